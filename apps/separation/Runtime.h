// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_RUNTIME_H
#define TONWERK_APPS_SEPARATION_RUNTIME_H

#include <exception>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Loads the inference runtime that the library loads, for use through the classes of namespace Ort.
/// \return its name, version and file as text
/// \throws Failure if it cannot be loaded
std::string loadRuntime();

/// The execution providers that the inference runtime offers. Only loading a model shows which of them work
/// on this machine.
/// \throws Failure if there is no runtime
std::vector<std::string> offeredProviders();

/// The reason in a message of the runtime, without source positions and error codes, for use in a sentence.
std::string runtimeReason(const std::string& message);

/// The reason in an exception of the runtime.
inline std::string runtimeReason(const std::exception& failure)
{
    return runtimeReason(std::string(failure.what()));
}

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_RUNTIME_H
