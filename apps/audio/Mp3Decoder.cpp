// SPDX-License-Identifier: MIT
#include "audio/Mp3Decoder.h"

#include <cstdio>

#define MPG123_PORTABLE_API
#include <mpg123.h>

namespace tonwerk::app
{

namespace
{

/// How far into the file the first frame may lie, behind a tag if there is one. What else looks like a frame
/// lies somewhere in every large file.
constexpr long farthestStart = 65536;

int readBytes(void* source, void* bytes, size_t count, size_t* done)
{
    *done = static_cast<FileSource*>(source)->read(bytes, count);
    return 0;
}

std::int64_t seekByte(void* source, std::int64_t offset, int origin)
{
    return static_cast<FileSource*>(source)->seek(offset, origin);
}

} // namespace

void Mp3Decoder::Closer::operator()(mpg123_handle_struct* open) const
{
    mpg123_delete(open);
}

std::unique_ptr<Mp3Decoder> Mp3Decoder::open(FileSource& source)
{
    std::unique_ptr<Mp3Decoder> decoder(new Mp3Decoder);
    return decoder->start(source) ? std::move(decoder) : nullptr;
}

bool Mp3Decoder::start(FileSource& source)
{
    source.seek(0, SEEK_SET);
    handle.reset(mpg123_new(nullptr, nullptr));
    long frequency = 0;
    int encoding = 0;
    int count = 0;
    if (!handle ||
        mpg123_param(handle.get(), MPG123_ADD_FLAGS, MPG123_QUIET | MPG123_FORCE_FLOAT | MPG123_GAPLESS,
                     0.0) != MPG123_OK ||
        mpg123_param(handle.get(), MPG123_RESYNC_LIMIT, farthestStart, 0.0) != MPG123_OK ||
        mpg123_reader64(handle.get(), readBytes, seekByte, nullptr) != MPG123_OK ||
        mpg123_open_handle(handle.get(), &source) != MPG123_OK ||
        mpg123_getformat(handle.get(), &frequency, &count, &encoding) != MPG123_OK)
        return false;
    rate = static_cast<unsigned>(frequency);
    channelCount = static_cast<unsigned>(count);
    // From here on, a frame of another rate or channel count is no end but a fault.
    mpg123_format_none(handle.get());
    return mpg123_format(handle.get(), frequency, count, MPG123_ENC_FLOAT_32) == MPG123_OK;
}

std::uint64_t Mp3Decoder::expectedFrames() const
{
    const std::int64_t frames = mpg123_length64(handle.get());
    return frames < 0 ? 0 : static_cast<std::uint64_t>(frames);
}

std::size_t Mp3Decoder::read(float* interleaved, std::size_t frames)
{
    const std::size_t frameBytes = channelCount * sizeof(float);
    std::size_t done = 0;
    mpg123_read(handle.get(), interleaved, frames * frameBytes, &done);
    return done / frameBytes;
}

} // namespace tonwerk::app
