// SPDX-License-Identifier: MIT
/// \file ExecutionProviders.h
/// The execution providers that a model may run on, in order of preference, and how each one is asked for.
#ifndef TONWERK_INFERENCE_EXECUTIONPROVIDERS_H
#define TONWERK_INFERENCE_EXECUTIONPROVIDERS_H

#include <deque>
#include <string>

#include "inference/DmlAdapterChoice.h"
#include "inference/OrtApi.h"

/// Where the walk over the providers ends: it needs no asking for.
inline constexpr const char* cpuProvider = "CPUExecutionProvider";

inline constexpr const char* directMLProvider = "DmlExecutionProvider";

/// The order in which providers are tried, with `preferred`, unless empty, moved or put to the front.
std::deque<std::string> providerPreference(const std::string& preferred);

/// Compares provider names without regard to ASCII case, since the runtime's spelling of one differs from
/// ours.
bool sameProvider(const std::string& left, const std::string& right);

/// Asks for `provider` in `options`.
/// \return false if there is no way to ask for it on this platform
/// \throws Ort::Exception if CUDA or ROCm refuse. DirectML's refusal is not reported: the options then stay
///         as they are, and the session made with them runs on the CPU
bool appendProvider(Ort::SessionOptions& options, const std::string& provider);

/// The same, with the adapters that DirectML's is chosen from.
bool appendProvider(Ort::SessionOptions& options, const std::string& provider, IAdapterList& adapters);

/// Asks for `provider` and drops it again: for people who want to know why their model runs on the CPU.
/// An Ort::Env must exist.
/// \return the runtime's reason for refusing it, DirectML's included; empty if it is available
std::string providerRefusal(const std::string& provider);

#endif // TONWERK_INFERENCE_EXECUTIONPROVIDERS_H
