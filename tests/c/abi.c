// SPDX-License-Identifier: MIT
/* The binary interface of version 1 as a C compiler sees it: what is written down here must never change, and
   the header compiles as C. Records grow at their ends, and then a line for the new field is added here. */
#include <tonwerk/tonwerk_live.h>

#define HOLDS(condition) _Static_assert(condition, #condition)

HOLDS(sizeof(void*) == 8);
HOLDS(TONWERK_C_VERSION_MAJOR == 1);

HOLDS(TONWERK_OK == 0 && TONWERK_INVALID_ARGUMENT == 1 && TONWERK_OUT_OF_MEMORY == 2);
HOLDS(TONWERK_MODEL_REFUSED == 3 && TONWERK_STREAM_ENDED == 4 && TONWERK_STREAM_FAILED == 5);
HOLDS(TONWERK_CANCELLED == 6 && TONWERK_PROVIDER_REFUSED == 7);
HOLDS(TONWERK_VOCALS == 0 && TONWERK_DRUM == 1 && TONWERK_PIANO == 2 && TONWERK_ACOUSTIC_GUITAR == 3);
HOLDS(TONWERK_ELECTRIC_GUITAR == 4 && TONWERK_BASS == 5 && TONWERK_RESIDUAL == 6 && TONWERK_MIX == 7);
HOLDS(TONWERK_PROVIDER_CPU == 1 && TONWERK_PROVIDER_DIRECTML == 2 && TONWERK_PROVIDER_CUDA == 3);
HOLDS(TONWERK_PROVIDER_ROCM == 4 && TONWERK_LOG_NONE == 1 && TONWERK_LOG_DEBUG == 5);
HOLDS(TONWERK_PIN_THREADS == 1 && TONWERK_SPIN_THREADS == 2);

HOLDS(sizeof(tonwerk_config) == 8 && offsetof(tonwerk_config, stems) == 4);

HOLDS(sizeof(tonwerk_stream_options) == 20);
HOLDS(offsetof(tonwerk_stream_options, stems) == offsetof(tonwerk_config, stems));
HOLDS(offsetof(tonwerk_stream_options, step) == 8 && offsetof(tonwerk_stream_options, lookahead) == 12);
HOLDS(offsetof(tonwerk_stream_options, blend) == 16);

HOLDS(sizeof(tonwerk_context_options) == 56);
HOLDS(offsetof(tonwerk_context_options, flags) == 4 && offsetof(tonwerk_context_options, threads) == 8);
HOLDS(offsetof(tonwerk_context_options, provider) == 12 &&
      offsetof(tonwerk_context_options, log_level) == 16);
HOLDS(offsetof(tonwerk_context_options, log) == 24 && offsetof(tonwerk_context_options, log_user) == 32);
HOLDS(offsetof(tonwerk_context_options, key) == 40 && offsetof(tonwerk_context_options, key_size) == 48);

HOLDS(sizeof(tonwerk_context_info) == 40);
HOLDS(offsetof(tonwerk_context_info, provider) == 4 && offsetof(tonwerk_context_info, threads) == 8);
HOLDS(offsetof(tonwerk_context_info, sample_rate) == 12 && offsetof(tonwerk_context_info, stems) == 16);
HOLDS(offsetof(tonwerk_context_info, rows) == 20 && offsetof(tonwerk_context_info, model_size) == 24);
HOLDS(offsetof(tonwerk_context_info, memory) == 32);

HOLDS(sizeof(tonwerk_stream_info) == 80);
HOLDS(offsetof(tonwerk_stream_info, step) == 8 && offsetof(tonwerk_stream_info, latency) == 24);
HOLDS(offsetof(tonwerk_stream_info, frames_until_result) == 32 &&
      offsetof(tonwerk_stream_info, available) == 40);
HOLDS(offsetof(tonwerk_stream_info, runs) == 48 && offsetof(tonwerk_stream_info, failed_runs) == 56);
HOLDS(offsetof(tonwerk_stream_info, last_run_seconds) == 64);
HOLDS(offsetof(tonwerk_stream_info, worst_run_seconds) == 72);

HOLDS(TONWERK_LIVE_DRY == 1);
HOLDS(sizeof(tonwerk_live_options) == 24);
HOLDS(offsetof(tonwerk_live_options, flags) == 4 && offsetof(tonwerk_live_options, block) == 8);
HOLDS(offsetof(tonwerk_live_options, run_frames) == 12 && offsetof(tonwerk_live_options, stream) == 16);

HOLDS(sizeof(tonwerk_live_info) == 88);
HOLDS(offsetof(tonwerk_live_info, block) == 4 && offsetof(tonwerk_live_info, latency) == 8);
HOLDS(offsetof(tonwerk_live_info, underruns) == 16 && offsetof(tonwerk_live_info, late_frames) == 24);
HOLDS(offsetof(tonwerk_live_info, restarts) == 32 && offsetof(tonwerk_live_info, runs) == 40);
HOLDS(offsetof(tonwerk_live_info, failed_runs) == 48 && offsetof(tonwerk_live_info, cancelled_runs) == 56);
HOLDS(offsetof(tonwerk_live_info, last_run_seconds) == 64);
HOLDS(offsetof(tonwerk_live_info, worst_run_seconds) == 72 && offsetof(tonwerk_live_info, load) == 80);
