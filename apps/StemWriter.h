#ifndef TONWERK_APPS_STEMWRITER_H
#define TONWERK_APPS_STEMWRITER_H

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "BinaryFile.h"

struct ma_encoder;

namespace tonwerk::app
{

/// Writes one stem to a WAV file of 32-bit float samples. Until it is kept, the file bears a temporary name
/// (its final name and ".part"), and it goes with the object if it never is.
class StemWriter
{
public:
    /// \param finalPath the file's name once it is kept; its folder must exist
    /// \param channels of the file, 1 or 2
    /// \throws Failure if the file cannot be made
    StemWriter(std::filesystem::path finalPath, unsigned channels, unsigned sampleRate);
    ~StemWriter();

    StemWriter(const StemWriter&) = delete;
    StemWriter& operator=(const StemWriter&) = delete;

    /// Samples per channel that a WAV file can hold: its sizes are 32-bit numbers.
    static std::uint64_t maxFrames(unsigned channels);

    /// Appends interleaved stereo samples; a mono file gets the mean of both sides.
    /// \throws Failure if the file cannot be written or would grow too long
    void write(std::span<const float> stereo);

    /// Completes the file, still under its temporary name.
    /// \throws Failure if it cannot be written
    void finish();

    /// Gives the finished file its final name; an older file of that name is replaced.
    /// \throws Failure if it cannot be renamed
    void keep();

private:
    struct EncoderCloser
    {
        void operator()(ma_encoder* open) const;
    };

    std::span<const float> inFileChannels(std::span<const float> stereo);

    std::filesystem::path finalLocation;
    std::filesystem::path location;
    unsigned channelCount;
    BinaryFile file;
    std::unique_ptr<ma_encoder, EncoderCloser> encoder;
    std::uint64_t framesWritten = 0;
    std::vector<float> mono;
    bool kept = false;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_STEMWRITER_H
