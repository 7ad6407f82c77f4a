// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_FOLDERLOCK_H
#define TONWERK_APPS_SYSTEM_FOLDERLOCK_H

#include <cstdint>
#include <filesystem>

namespace tonwerk::app
{

/// The right to write into a folder, which one process at a time has. It ends with this object, and with the
/// process in whatever way that ends. A file in the folder stands for it.
class FolderLock
{
public:
    static constexpr const char* fileName = "tonwerk.lock";

    /// \param folder must exist
    /// \throws Failure if another has the right, or the folder cannot be written to
    explicit FolderLock(const std::filesystem::path& folder);
    ~FolderLock();

    FolderLock(const FolderLock&) = delete;
    FolderLock& operator=(const FolderLock&) = delete;

    /// Removes the file before the process ends without destructors, as far as the system permits that.
    void removeFile() const noexcept;

private:
    std::filesystem::path location;
    std::intptr_t handle = -1; ///< of the system
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_FOLDERLOCK_H
