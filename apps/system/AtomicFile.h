// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_ATOMICFILE_H
#define TONWERK_APPS_SYSTEM_ATOMICFILE_H

#include <cstddef>
#include <filesystem>

namespace tonwerk::app
{

/// Writes a file that is there as a whole or not at all: under a name that ends in .part first. An older file
/// of the name is replaced.
/// \throws Failure if it cannot be written
void writeFileAtomically(const std::filesystem::path& path, const void* bytes, std::size_t size);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_ATOMICFILE_H
