#include "StemFolder.h"

#include <string>
#include <system_error>

#include "Failure.h"
#include "Text.h"

namespace tonwerk::app
{

namespace
{

/// Windows drops full stops and blanks at the end of a folder's name, so they go everywhere.
std::filesystem::path folderName(const std::filesystem::path& song)
{
    std::string name = toText(song.stem());
    name.erase(name.find_last_not_of(". ") + 1);
    return toPath(name.empty() ? "song" : name);
}

} // namespace

// Constructs through another constructor, so that the destructor runs if this one throws.
StemFolder::MadeFolders::MadeFolders(const std::filesystem::path& wanted) : MadeFolders()
{
    std::error_code failure;
    for (auto path = wanted; !path.empty() && !std::filesystem::exists(path, failure);
         path = path.parent_path())
        innermostFirst.push_back(path);
    std::filesystem::create_directories(wanted, failure);
    std::error_code ignored;
    if (failure || !std::filesystem::is_directory(wanted, ignored))
        throw Failure("Cannot make the folder " + quoted(wanted) + ": " +
                      asReason(failure ? failure.message() : "there is a file of that name") + ".");
}

StemFolder::MadeFolders::~MadeFolders()
{
    std::error_code notEmpty;
    for (const auto& path : innermostFirst)
        std::filesystem::remove(path, notEmpty);
}

StemFolder::StemFolder(const std::filesystem::path& outputFolder, const std::filesystem::path& song,
                       const StemSet& wanted, unsigned channels, unsigned sampleRate)
    : folder(outputFolder / folderName(song)), madeFolders(folder)
{
    for (std::size_t stem = 0; stem < stemNames.size(); ++stem)
    {
        if (!wanted.test(stem))
            continue;
        const auto path = folder / toPath(std::string(stemNames[stem]) + ".wav");
        writers.emplace_back(stem, std::make_unique<StemWriter>(path, channels, sampleRate));
    }
}

StemFolder::~StemFolder() = default;

void StemFolder::write(const std::vector<std::vector<float>>& stems)
{
    for (auto& [stem, writer] : writers)
        writer->write(stems.at(stem));
}

void StemFolder::keep()
{
    for (auto& [stem, writer] : writers)
        writer->finish();
    for (auto& [stem, writer] : writers)
        writer->keep();
}

} // namespace tonwerk::app
