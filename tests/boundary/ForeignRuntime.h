// SPDX-License-Identifier: MIT
#ifndef TONWERK_TESTS_BOUNDARY_FOREIGNRUNTIME_H
#define TONWERK_TESTS_BOUNDARY_FOREIGNRUNTIME_H

#include <string>

#include "inference/OrtApi.h"

/// An inference runtime that carries its maker's file name.
struct ForeignRuntime
{
    const OrtApiBase* apiBase;
    std::string location; ///< UTF-8
};

/// Loads the runtime that goes by its maker's file name, wherever the system finds it.
/// \throws std::runtime_error if there is none
ForeignRuntime openForeignRuntime();

#endif // TONWERK_TESTS_BOUNDARY_FOREIGNRUNTIME_H
