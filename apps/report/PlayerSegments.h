// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_PLAYERSEGMENTS_H
#define TONWERK_APPS_REPORT_PLAYERSEGMENTS_H

#include <cstddef>
#include <deque>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Writes the sound of some tracks for a page that plays them: a folder of scripts, "0.js" and so on, each
/// with some seconds of all tracks. A page from the disk may read no other files.
///
/// A script calls stemSegment(number, [[scale, FLAC file in Base64], ...]): 16 bits, of which full scale
/// stands for the scale, 1 or what is louder; null is silence. The sample rate in the FLAC files is nominal.
class PlayerSegments
{
public:
    /// Samples per channel and segment; the last one is shorter.
    static std::size_t segmentFrames(unsigned sampleRate);

    /// \param folder to be made
    /// \param channels to write, 1 or 2; 1 gets the mean of left and right
    /// \throws Failure if the folder cannot be made
    PlayerSegments(std::filesystem::path folder, std::size_t tracks, unsigned channels, unsigned sampleRate);

    /// Takes the next interleaved stereo samples of a track; the tracks may be some segments apart. Samples
    /// that are not finite count as zero.
    /// \throws Failure if a file cannot be written
    void feed(std::size_t track, std::span<const float> stereo);

    /// Ends all tracks, which must be of equal length.
    /// \throws Failure if a file cannot be written
    void finish();

private:
    struct Track
    {
        std::vector<float> pending; ///< interleaved, less than a segment
        std::deque<std::string> encoded;
    };

    void encode(Track& track);
    void writeComplete();

    std::filesystem::path folder;
    unsigned channelCount;
    std::size_t segmentSamples;
    std::vector<Track> tracks;
    std::size_t written = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_PLAYERSEGMENTS_H
