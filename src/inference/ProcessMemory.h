// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_PROCESSMEMORY_H
#define TONWERK_INFERENCE_PROCESSMEMORY_H

#include <cstdint>

/// Bytes of the process that lie in the machine's memory; 0 if the system does not tell.
std::uint64_t residentBytes();

#endif // TONWERK_INFERENCE_PROCESSMEMORY_H
