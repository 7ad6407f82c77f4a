// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_MODELSESSION_H
#define TONWERK_INFERENCE_MODELSESSION_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "inference/OrtApi.h"
#include "inference/SessionChoices.h"

/// A session and how it came about.
struct ModelSession
{
    /// An execution provider that was asked in vain, and why.
    struct Refusal
    {
        std::string provider;
        std::string reason;
    };

    std::unique_ptr<Ort::Session> session; ///< never null
    /// With which it was built. DirectML may have left it to the CPU without a word (see appendProvider).
    std::string provider;
    std::vector<Refusal> refusals;
};

/// Builds a session of the model with every available execution provider that comes before the CPU in
/// providerPreference, and keeps the last that succeeds; without a provider if there is none. What each
/// provider said is logged. If only one provider will do, the session is built with that one.
///
/// \param env         must outlive the session
/// \param model, size the plain serialized network; read only during the call
/// \throws ExternalDataRefused if the model keeps values outside of its bytes
/// \throws ProviderRefused if the only provider that will do cannot be had
/// \throws Ort::Exception if the runtime refuses the model on the CPU, or the only provider does
ModelSession makeModelSession(const Ort::Env& env, const void* model, std::size_t size,
                              const SessionChoices& choices);

#endif // TONWERK_INFERENCE_MODELSESSION_H
