// SPDX-License-Identifier: MIT
#include "system/OutputFolder.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "system/Failure.h"
#include "system/Files.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

namespace fs = std::filesystem;

/// What a name stands for itself, not what it leads to.
fs::file_type typeOf(const fs::path& path)
{
    std::error_code absent;
    return fs::symlink_status(path, absent).type();
}

bool isThere(const fs::path& path)
{
    const fs::file_type type = typeOf(path);
    return type != fs::file_type::not_found && type != fs::file_type::none;
}

void move(const fs::path& from, const fs::path& to)
{
    std::error_code failure;
    fs::rename(from, to, failure);
    if (failure)
        throw Failure("Cannot move " + quoted(from) + " to " + quoted(to) + ": " +
                      asReason(failure.message()) + ".");
}

void requireSynced(const fs::path& path)
{
    if (!syncToDisk(path))
        throw Failure("Cannot bring " + quoted(path) +
                      " to the disk: " + asReason(std::generic_category().message(errno)) + ".");
}

std::vector<fs::path> entriesOf(const fs::path& path) noexcept
{
    std::error_code failure;
    std::vector<fs::path> found;
    for (fs::directory_iterator entry(path, failure); !failure && entry != fs::directory_iterator();
         entry.increment(failure))
        found.push_back(entry->path());
    return found;
}

/// The folder's files and empty folders, not what lies deeper: nothing else is ours.
void removeContent(const fs::path& path) noexcept
{
    std::error_code failure;
    for (const fs::path& file : entriesOf(path))
        fs::remove(file, failure);
}

/// As removeContent, and the files in its folders.
void removeDeepContent(const fs::path& path) noexcept
{
    for (const fs::path& entry : entriesOf(path))
        if (typeOf(entry) == fs::file_type::directory)
            removeContent(entry);
    removeContent(path);
}

} // namespace

// Constructs through another constructor, so that the destructor runs if this one throws.
OutputFolder::MadeFolders::MadeFolders(const fs::path& wanted) : MadeFolders()
{
    if (typeOf(wanted) == fs::file_type::symlink)
        throw Failure("The folder " + quoted(wanted) + " is a link; stems are not written through links.");
    std::error_code failure;
    for (auto path = wanted; !path.empty() && !fs::exists(path, failure); path = path.parent_path())
        innermostFirst.push_back(path);
    fs::create_directories(wanted, failure);
    if (failure || typeOf(wanted) != fs::file_type::directory)
        throw Failure("Cannot make the folder " + quoted(wanted) + ": " +
                      asReason(failure ? failure.message() : "there is a file of that name") + ".");
}

void OutputFolder::MadeFolders::removeEmpty() const noexcept
{
    std::error_code notEmpty;
    for (const auto& path : innermostFirst)
        fs::remove(path, notEmpty);
}

// As far as it goes: one may make a folder where one may not read.
void OutputFolder::MadeFolders::sync() const
{
    for (const auto& path : innermostFirst)
        syncToDisk(path.has_parent_path() ? path.parent_path() : ".");
}

OutputFolder::OutputFolder(fs::path path, std::vector<std::string> files, std::optional<Subfolder> inside)
    : folder(std::move(path)), names(std::move(files)), subfolder(std::move(inside)),
      workshop(folder / unfinishedName), aside(workshop / "before"), madeFolders(folder), lock(folder)
{
    undoKilledRun();
    checkSubfolder();
    checkPlaces();
    if (subfolder)
        names.insert(names.begin(), subfolder->name);
    if (!makePrivateFolder(workshop))
        throw Failure("Cannot make the folder " + quoted(workshop) + ": " +
                      asReason(std::generic_category().message(errno)) + ".");
    tidyUp.emplace([this] { removeUnfinished(); });
}

void OutputFolder::checkPlaces() const
{
    for (const std::string& name : names)
    {
        const fs::path place = folder / toPath(name);
        const fs::file_type type = typeOf(place);
        if (isThere(place) && type != fs::file_type::regular && type != fs::file_type::symlink)
            throw Failure("Cannot write " + quoted(place) + ": what is there now is no file.");
    }
}

void OutputFolder::checkSubfolder() const
{
    if (!subfolder)
        return;
    const fs::path place = folder / toPath(subfolder->name);
    const auto isOurs = [this](const fs::path& path)
    { return typeOf(path) == fs::file_type::regular && path.extension() == subfolder->extension; };
    const std::vector<fs::path> content = entriesOf(place);
    const bool isFolder = typeOf(place) == fs::file_type::directory;
    if (isThere(place) && !(isFolder && std::all_of(content.begin(), content.end(), isOurs)))
        throw Failure("Cannot write " + quoted(place) + ": what is there now is not of this program.");
}

/// Nobody else writes here now, so what lies here was left by a process that was killed. Where the last file
/// had not got its place, the older ones get theirs again.
void OutputFolder::undoKilledRun() const
{
    if (typeOf(aside) == fs::file_type::directory && !isThere(folder / toPath(names.back())))
    {
        for (const fs::path& older : entriesOf(aside))
        {
            const fs::path place = folder / older.filename();
            if (typeOf(older) == fs::file_type::directory && typeOf(place) == fs::file_type::directory)
                removeContent(place); // nothing replaces a folder that has files
            move(older, place);
        }
    }
    if (typeOf(workshop) == fs::file_type::directory)
    {
        removeDeepContent(aside);
        removeDeepContent(workshop);
    }
    std::error_code failure;
    fs::remove(workshop, failure);
}

fs::path OutputFolder::unfinished(const std::string& name) const
{
    return workshop / toPath(name);
}

void OutputFolder::commit(const std::vector<std::string>& stale, bool lasting)
{
    if (lasting)
        sync();
    const Unbroken exchanging;
    std::vector<std::string> done;
    try
    {
        exchange(stale, lasting, done);
    }
    catch (...)
    {
        takeBack(done);
        throw;
    }
    removeDeepContent(aside);
}

void OutputFolder::sync() const
{
    if (subfolder)
        for (const fs::path& file : entriesOf(unfinished(subfolder->name)))
            requireSynced(file);
    for (const std::string& name : names)
        requireSynced(unfinished(name));
}

/// \param done gets the names of the files that have their places
void OutputFolder::exchange(const std::vector<std::string>& stale, bool lasting,
                            std::vector<std::string>& done)
{
    if (!makePrivateFolder(aside))
        throw Failure("Cannot make the folder " + quoted(aside) + ": " +
                      asReason(std::generic_category().message(errno)) + ".");
    // The last one goes first: it always speaks of the files beside it.
    std::vector<std::string> older(names.rbegin(), names.rend());
    older.insert(older.end(), stale.begin(), stale.end());
    for (const std::string& name : older)
        if (isThere(folder / toPath(name)))
            move(folder / toPath(name), aside / toPath(name));
    for (const std::string& name : names)
    {
        if (lasting && name == names.back())
            requireSynced(folder);
        move(unfinished(name), folder / toPath(name));
        done.push_back(name);
    }
    if (!lasting)
        return;
    requireSynced(folder);
    madeFolders.sync();
}

void OutputFolder::takeBack(const std::vector<std::string>& done) const noexcept
{
    std::error_code failure;
    for (const std::string& name : done)
        fs::rename(folder / toPath(name), unfinished(name), failure);
    for (const fs::path& older : entriesOf(aside))
        fs::rename(older, folder / older.filename(), failure);
}

// Files that could not be put back stay set aside, for the next run.
void OutputFolder::removeUnfinished() const noexcept
{
    std::error_code failure;
    if (subfolder)
        removeContent(unfinished(subfolder->name));
    removeContent(workshop);
    fs::remove(workshop, failure);
    lock.removeFile();
    madeFolders.removeEmpty();
}

} // namespace tonwerk::app
