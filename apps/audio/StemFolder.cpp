// SPDX-License-Identifier: MIT
#include "audio/StemFolder.h"

#include <cstddef>
#include <system_error>
#include <utility>

#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

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

StemFolder::StemFolder(std::filesystem::path path, const std::vector<std::string>& names, unsigned channels,
                       unsigned sampleRate, std::uint64_t expectedFrames)
    : folder(std::move(path)), madeFolders(folder)
{
    for (const std::string& name : names)
        writers.push_back(std::make_unique<StemWriter>(folder / toPath(name + ".wav"), channels, sampleRate,
                                                       expectedFrames));
}

StemFolder::~StemFolder() = default;

void StemFolder::write(const std::vector<std::vector<float>>& tracks)
{
    for (std::size_t track = 0; track < writers.size(); ++track)
        writers[track]->write(tracks.at(track));
}

void StemFolder::commit(SampleFormat format, double gain)
{
    for (const auto& writer : writers)
        writer->finish(format, gain);
    for (const auto& writer : writers)
        writer->commit();
}

} // namespace tonwerk::app
