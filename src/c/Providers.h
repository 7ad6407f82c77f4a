// SPDX-License-Identifier: MIT
/// \file Providers.h
/// The execution providers as hosts name them and as the runtime does.
#ifndef TONWERK_C_PROVIDERS_H
#define TONWERK_C_PROVIDERS_H

#include <string>

#include "tonwerk/tonwerk_c.h"

namespace tonwerk::c
{

/// A choice and its name; null for a number that is no choice, "" for TONWERK_PROVIDER_AUTOMATIC.
inline const char* providerName(tonwerk_provider provider)
{
    switch (provider)
    {
    case TONWERK_PROVIDER_AUTOMATIC:
        return "";
    case TONWERK_PROVIDER_CPU:
        return "CPUExecutionProvider";
    case TONWERK_PROVIDER_DIRECTML:
        return "DmlExecutionProvider";
    case TONWERK_PROVIDER_CUDA:
        return "CUDAExecutionProvider";
    case TONWERK_PROVIDER_ROCM:
        return "ROCmExecutionProvider";
    default:
        return nullptr;
    }
}

/// The choice of that name; TONWERK_PROVIDER_AUTOMATIC if there is none.
inline tonwerk_provider providerOf(const std::string& name)
{
    for (tonwerk_provider provider = TONWERK_PROVIDER_CPU; providerName(provider) != nullptr; ++provider)
        if (name == providerName(provider))
            return provider;
    return TONWERK_PROVIDER_AUTOMATIC;
}

} // namespace tonwerk::c

#endif // TONWERK_C_PROVIDERS_H
