// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_OUTPUTFOLDER_H
#define TONWERK_APPS_SYSTEM_OUTPUTFOLDER_H

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "system/FolderLock.h"
#include "system/Interrupts.h"

namespace tonwerk::app
{

/// A folder within an OutputFolder, with files of one extension, as in ".js", and nothing else.
struct Subfolder
{
    std::string name;
    std::string extension;
};

/// A folder that gets a set of files, and perhaps a folder of files, all at once or not at all.
///
/// Until then the files lie in a folder of their own inside, which other users cannot enter, and those that
/// they replace are set aside there while they change places. Nothing is written through links. If the
/// process is killed meanwhile, the next OutputFolder puts back what was set aside.
class OutputFolder
{
public:
    /// Makes the folder, as far as it does not exist, and keeps others from writing to it.
    /// \param names of the files there will be. The last one is there only when all others are
    /// \param subfolder if there will be one
    /// \throws Failure if the folder cannot be made or written to, another run writes to it, or what is no
    ///         file stands in the place of one
    OutputFolder(std::filesystem::path path, std::vector<std::string> names,
                 std::optional<Subfolder> subfolder = {});

    /// Without commit(), removes what this object has made.
    ~OutputFolder() = default;

    OutputFolder(const OutputFolder&) = delete;
    OutputFolder& operator=(const OutputFolder&) = delete;

    /// Where to make the file, or the subfolder, that shall have this name.
    std::filesystem::path unfinished(const std::string& name) const;

    /// Puts all files, which must be closed, in their places.
    /// \param stale names of files and of a subfolder to remove with those that are replaced, if they exist
    /// \param lasting whether to wait until the files are on the disk, so that none of them can be empty after
    ///        a crash of the machine
    /// \throws Failure if that is not possible; then everything is as before
    void commit(const std::vector<std::string>& stale, bool lasting);

private:
    /// Makes a folder; what did not exist before is removed again while it is empty.
    class MadeFolders
    {
    public:
        explicit MadeFolders(const std::filesystem::path& wanted);
        ~MadeFolders() { removeEmpty(); }

        MadeFolders(const MadeFolders&) = delete;
        MadeFolders& operator=(const MadeFolders&) = delete;

        void removeEmpty() const noexcept;
        void sync() const;

    private:
        MadeFolders() = default;

        std::vector<std::filesystem::path> innermostFirst;
    };

    void checkPlaces() const;
    void checkSubfolder() const;
    void sync() const;
    void undoKilledRun() const;
    void exchange(const std::vector<std::string>& stale, bool lasting, std::vector<std::string>& done);
    void takeBack(const std::vector<std::string>& done) const noexcept;
    void removeUnfinished() const noexcept;

    std::filesystem::path folder;
    std::vector<std::string> names; ///< with the subfolder's in front: it has its place before the last file
    std::optional<Subfolder> subfolder;
    std::filesystem::path workshop; ///< for the unfinished files
    std::filesystem::path aside;    ///< for those that are being replaced
    MadeFolders madeFolders;        // before the lock, whose file lies in it: it goes after that
    FolderLock lock;
    std::optional<TidyUp> tidyUp;
};

/// The name of the folder for unfinished files.
inline constexpr const char* unfinishedName = "tonwerk-unfinished";

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_OUTPUTFOLDER_H
