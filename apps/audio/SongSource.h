// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_SONGSOURCE_H
#define TONWERK_APPS_AUDIO_SONGSOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace tonwerk::app
{

/// Reads a song block by block, from start to end.
class SongSource
{
public:
    SongSource() = default;
    virtual ~SongSource() = default;

    SongSource(const SongSource&) = delete;
    SongSource& operator=(const SongSource&) = delete;

    /// Reads the next block as interleaved stereo; a mono song has the same samples on both sides.
    /// \param frames samples per channel that are wanted
    /// \param stereo replaced by the block, which is shorter than wanted only at the end of the song
    /// \throws Failure if the song cannot be read, ends before the length that it states, or has no sound
    virtual void read(std::size_t frames, std::vector<float>& stereo) = 0;

    /// How much of the song has been read, from 0 to 1; 0 throughout if the length is unknown.
    virtual double fractionRead() const = 0;

    /// What the user should know of the song, as sentences, once it has been read; empty if it is in order.
    virtual std::vector<std::string> warnings() const { return {}; }

    /// SHA-256 of the bytes that the song was read from, to be asked for once and at its end.
    /// \throws Failure if they cannot be read again or have been changed meanwhile
    virtual std::string sha256() = 0;

    /// 1 or 2.
    unsigned channels() const { return channelCount; }

    /// Samples per second and channel.
    unsigned sampleRate() const { return rate; }

    /// Length that the song states, in samples per channel; 0 if it states none.
    std::uint64_t statedFrames() const { return stated; }

    /// The same, or else an estimate; 0 if there is none.
    std::uint64_t expectedFrames() const { return expected; }

    /// Samples per channel that have been read so far.
    std::uint64_t framesRead() const { return framesSoFar; }

protected:
    unsigned channelCount = 0;
    unsigned rate = 0;
    std::uint64_t stated = 0;
    std::uint64_t expected = 0;
    std::uint64_t framesSoFar = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_SONGSOURCE_H
