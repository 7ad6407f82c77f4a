// SPDX-License-Identifier: MIT
#ifndef TONWERK_TESTS_SUPPORT_SCRATCHFOLDER_H
#define TONWERK_TESTS_SUPPORT_SCRATCHFOLDER_H

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

/// An empty folder for one test, removed with everything in it.
class ScratchFolder
{
public:
    ScratchFolder()
        : folder(std::filesystem::temp_directory_path() /
                 ("tonwerk-test-" + std::to_string(std::random_device{}())))
    {
        std::filesystem::create_directory(folder);
    }

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    const std::filesystem::path& path() const { return folder; }

private:
    std::filesystem::path folder;
};

#endif // TONWERK_TESTS_SUPPORT_SCRATCHFOLDER_H
