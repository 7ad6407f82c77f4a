// SPDX-License-Identifier: MIT
#include "inference/RuntimeLoader.h"

#include <stdexcept>

void useRuntime(const RuntimeLibrary& library)
{
    const OrtApi* api = library.apiBase->GetApi(ORT_API_VERSION);
    if (api == nullptr)
        throw std::runtime_error("The inference runtime " + library.location + " is version " +
                                 library.apiBase->GetVersionString() + ", but version 1." +
                                 std::to_string(ORT_API_VERSION) + " or newer is needed");
    Ort::InitApi(api);
}
