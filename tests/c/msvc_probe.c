// SPDX-License-Identifier: MIT
/* A program as Microsoft's compiler and linker make it, without any run-time library: calls the C library
   through its import library and returns 0, or the number of the step that went wrong. */
#include <tonwerk/tonwerk_live.h>

int probe(void)
{
    tonwerk_context* context = NULL;
    const char* error = NULL;
    if (tonwerk_version()[0] < '0' || tonwerk_version()[0] > '9')
        return 1;
    if (tonwerk_context_create(NULL, 0, NULL, 0, &context) != TONWERK_INVALID_ARGUMENT || context != NULL)
        return 2;
    error = tonwerk_last_error();
    if (error[0] != 'A' || error[1] != 'n')
        return 3;
    if (tonwerk_context_create("no model", 8, "key", 3, &context) != TONWERK_MODEL_REFUSED)
        return 4;
    if (tonwerk_live_latency(NULL) != 0)
        return 5;
    return 0;
}
