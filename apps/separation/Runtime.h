// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_RUNTIME_H
#define TONWERK_APPS_SEPARATION_RUNTIME_H

#include <exception>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Loads the inference runtime that the library loads, for use through the classes of namespace Ort.
/// \return its name, version and file, for people
/// \throws Failure if that is not possible
std::string loadRuntime();

/// The execution providers that the inference runtime offers. Which of them works on this machine only the
/// loading of a model shows.
/// \throws Failure if there is no runtime
std::vector<std::string> offeredProviders();

/// What the runtime said, as part of a sentence: without the place in its sources and its codes.
std::string runtimeReason(const std::string& message);

/// The same of its exception.
inline std::string runtimeReason(const std::exception& failure)
{
    return runtimeReason(std::string(failure.what()));
}

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_RUNTIME_H
