// SPDX-License-Identifier: MIT
#ifndef TONWERK_TESTS_STANDIN_REALRUNTIME_H
#define TONWERK_TESTS_STANDIN_REALRUNTIME_H

#include "inference/OrtApi.h"

/// Loads the real runtime from the folder above this library's own.
/// \return null if that fails
const OrtApiBase* openRealRuntime();

#endif // TONWERK_TESTS_STANDIN_REALRUNTIME_H
