#ifndef TONWERK_APPS_SONGREADER_H
#define TONWERK_APPS_SONGREADER_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

struct ma_decoder;

namespace tonwerk::app
{

/// Decodes a WAV, FLAC, OGG or MP3 file from its start to its end, block by block.
class SongReader
{
public:
    /// \throws Failure if there is no such file, it cannot be decoded, or it has more than two channels or a
    /// sample
    ///         rate that cannot be separated
    explicit SongReader(const std::filesystem::path& path);
    ~SongReader();

    SongReader(const SongReader&) = delete;
    SongReader& operator=(const SongReader&) = delete;

    /// Decodes the next block as interleaved stereo; a mono song has the same samples on both sides.
    /// \param frames samples per channel that are wanted
    /// \param stereo replaced by the block, which is shorter than wanted only at the end of the song
    /// \throws Failure if the file cannot be read, ends before the length that its header states, or has no
    /// sound
    void read(std::size_t frames, std::vector<float>& stereo);

    /// 1 or 2.
    unsigned channels() const { return channelCount; }

    /// Samples per second and channel.
    unsigned sampleRate() const { return rate; }

    /// Length that the file's header states, in samples per channel; 0 if it states none.
    std::uint64_t statedFrames() const { return stated; }

    /// Samples per channel that have been read so far.
    std::uint64_t framesRead() const { return framesSoFar; }

    /// How much of the song has been read, from 0 to 1.
    double fractionRead() const;

private:
    struct Source;
    struct DecoderCloser
    {
        void operator()(ma_decoder* open) const;
    };

    void openDecoder();
    void checkFormat();
    std::size_t decode(float* interleaved, std::size_t frames);
    void checkEnd() const;

    std::filesystem::path location;
    std::unique_ptr<Source> source;
    std::unique_ptr<ma_decoder, DecoderCloser> decoder;
    unsigned channelCount = 0;
    unsigned rate = 0;
    std::uint64_t stated = 0;
    std::uint64_t framesSoFar = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SONGREADER_H
