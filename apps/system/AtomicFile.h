// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_ATOMICFILE_H
#define TONWERK_APPS_SYSTEM_ATOMICFILE_H

#include <cstddef>
#include <filesystem>

namespace tonwerk::app
{

/// Writes a file completely or not at all: first under a name that ends in .part, then renames it. It
/// replaces an older file.
/// \throws Failure if it cannot be written
void writeFileAtomically(const std::filesystem::path& path, const void* bytes, std::size_t size);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_ATOMICFILE_H
