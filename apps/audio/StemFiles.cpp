// SPDX-License-Identifier: MIT
#include "audio/StemFiles.h"

#include <cstddef>

namespace tonwerk::app
{

StemFiles::StemFiles(const OutputFolder& folder, const std::vector<std::string>& tracks, unsigned channels,
                     unsigned sampleRate, std::uint64_t expectedFrames)
{
    for (const std::string& track : tracks)
        writers.push_back(std::make_unique<StemWriter>(folder.unfinished(track + ".wav"), channels,
                                                       sampleRate, expectedFrames));
}

void StemFiles::write(const std::vector<std::vector<float>>& tracks)
{
    for (std::size_t track = 0; track < writers.size(); ++track)
        writers[track]->write(tracks.at(track));
}

void StemFiles::finish(SampleFormat format, double gain)
{
    for (const auto& writer : writers)
        writer->finish(format, gain);
}

} // namespace tonwerk::app
