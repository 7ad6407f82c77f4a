// SPDX-License-Identifier: MIT
#include "audio/StemCheck.h"

#include <memory>

#include "audio/SndfileDecoder.h"
#include "system/Failure.h"

namespace tonwerk::app
{

bool isStem(const std::filesystem::path& path, SampleFormat format, const SoundShape& shape)
{
    try
    {
        FileSource source(path);
        const std::unique_ptr<SndfileDecoder> decoder = SndfileDecoder::open(source);
        return decoder && decoder->wavFormat() == format && decoder->channels() == shape.channels &&
               decoder->sampleRate() == shape.sampleRate && decoder->statedFrames() == shape.frames;
    }
    catch (const Failure&)
    {
        return false;
    }
}

} // namespace tonwerk::app
