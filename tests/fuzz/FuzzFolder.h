// SPDX-License-Identifier: MIT
/// \file FuzzFolder.h
/// A fuzzer's bytes as files.
#ifndef TONWERK_TESTS_FUZZ_FUZZFOLDER_H
#define TONWERK_TESTS_FUZZ_FUZZFOLDER_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/ScratchFolder.h"

/// A folder for the files of one input after the other.
class FuzzFolder
{
public:
    /// Replaces a file.
    std::filesystem::path write(const std::string& name, const std::uint8_t* data, std::size_t size) const
    {
        const std::filesystem::path path = folder.path() / name;
        std::ofstream file(path, std::ios::binary | std::ios::trunc);
        file.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
        return path;
    }

    const std::filesystem::path& path() const { return folder.path(); }

private:
    ScratchFolder folder;
};

#endif // TONWERK_TESTS_FUZZ_FUZZFOLDER_H
