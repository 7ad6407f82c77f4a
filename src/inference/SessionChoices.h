// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_SESSIONCHOICES_H
#define TONWERK_INFERENCE_SESSIONCHOICES_H

#include <stdexcept>
#include <string>

/// How a model is to be run. By default as the runtime does by itself.
struct SessionChoices
{
    std::string provider;      ///< execution provider to try first; empty: the fixed order
    bool onlyProvider = false; ///< no other one will do
    /// Threads that compute, the caller's among them; 0: as many as the runtime thinks fit.
    unsigned threads = 0;
    bool pinThreads = true;  ///< bind each of the runtime's threads to a processor
    bool spinThreads = true; ///< let them wait for work in a loop instead of sleeping
};

/// The one execution provider that was wanted cannot be had; the text is the runtime's reason.
class ProviderRefused : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

#endif // TONWERK_INFERENCE_SESSIONCHOICES_H
