// SPDX-License-Identifier: MIT
#include "tonwerk/tonwerk_c.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "c/Failures.h"
#include "c/StemQueue.h"
#include "common/StemSwitches.h"
#include "common/Stems.h"
#include "tonwerk/StreamFeeder.h"
#include "tonwerk/TonwerkProc.h"

using tonwerk::c::guarded;
using tonwerk::c::report;

struct tonwerk_context
{
    std::shared_ptr<tonwerk::InferenceContext> model;
};

struct tonwerk_stream
{
    enum class State
    {
        Open,
        Ended,
        Failed
    };

    tonwerk_stream(std::shared_ptr<tonwerk::InferenceContext> model, tonwerk::TonwerkProcConfig config)
        : feeder(std::move(model), config)
    {
    }

    tonwerk::StreamFeeder feeder;
    tonwerk::c::StemQueue queue;
    State state = State::Open;
};

namespace
{

constexpr std::uint32_t stemBit(std::size_t stem)
{
    return std::uint32_t{1} << stem;
}

// Far beyond any later version's record, so that a size that was never set leads nowhere.
constexpr std::uint32_t longestConfig = 4096;

constexpr std::uint32_t allStems = stemBit(tonwerk::modelStemCount) - 1;

static_assert(tonwerk::stemNames[TONWERK_VOCALS] == "vocals" && tonwerk::stemNames[TONWERK_DRUM] == "drum" &&
              tonwerk::stemNames[TONWERK_PIANO] == "piano" &&
              tonwerk::stemNames[TONWERK_ACOUSTIC_GUITAR] == "acoustic_guitar" &&
              tonwerk::stemNames[TONWERK_ELECTRIC_GUITAR] == "electric_guitar" &&
              tonwerk::stemNames[TONWERK_BASS] == "bass" &&
              tonwerk::stemNames[TONWERK_RESIDUAL] == "residual" &&
              tonwerk::stemNames[TONWERK_MIX] == "mix" && tonwerk::stemNames.size() == TONWERK_STEM_COUNT);

tonwerk_status invalid(const char* reason) noexcept
{
    return report(TONWERK_INVALID_ARGUMENT, reason);
}

/// Null if the configuration can be used, otherwise what is wrong with it. A newer caller's record may be
/// longer, as long as it asks for nothing that is unknown here.
const char* faultOf(const tonwerk_config& config) noexcept
{
    if (config.size < sizeof config)
        return "The size field of the configuration is too small.";
    if (config.size > longestConfig)
        return "The size field of the configuration is too large.";
    const auto* bytes = reinterpret_cast<const unsigned char*>(&config);
    if (std::any_of(bytes + sizeof config, bytes + config.size, [](unsigned char byte) { return byte != 0; }))
        return "The configuration asks for something that this version does not know.";
    if ((config.stems & ~allStems) != 0)
        return "The configuration asks for a stem that does not exist.";
    return nullptr;
}

tonwerk::TonwerkProcConfig processorConfig(std::uint32_t stems) noexcept
{
    tonwerk::StemSelection selection{};
    for (std::size_t stem = 0; stem < selection.size(); ++stem)
        selection[stem] = (stems & stemBit(stem)) != 0;
    return tonwerk::configOf(selection);
}

/// Calls `action` on an open stream, which has failed if that throws.
template <typename Action>
tonwerk_status onOpenStream(tonwerk_stream& stream, Action action) noexcept
{
    using State = tonwerk_stream::State;
    if (stream.state == State::Ended)
        return report(TONWERK_STREAM_ENDED, "");
    if (stream.state == State::Failed)
        return report(TONWERK_STREAM_FAILED, "It failed in an earlier call.");
    stream.state = State::Failed;
    return guarded(TONWERK_STREAM_FAILED,
                   [&]
                   {
                       stream.state = action();
                       return TONWERK_OK;
                   });
}

} // namespace

const char* tonwerk_version(void)
{
    return TONWERK_VERSION;
}

const char* tonwerk_status_text(tonwerk_status status)
{
    switch (status)
    {
    case TONWERK_OK:
        return "All is well.";
    case TONWERK_INVALID_ARGUMENT:
        return "An argument is invalid.";
    case TONWERK_OUT_OF_MEMORY:
        return "There is not enough memory.";
    case TONWERK_MODEL_REFUSED:
        return "The model cannot be loaded.";
    case TONWERK_STREAM_ENDED:
        return "The stream has been flushed and takes no more input.";
    case TONWERK_STREAM_FAILED:
        return "The stream has failed and takes no more input.";
    default:
        return "The status is unknown.";
    }
}

const char* tonwerk_last_error(void)
{
    return tonwerk::c::lastError();
}

tonwerk_status tonwerk_context_create(const void* model, size_t modelSize, const void* key, size_t keySize,
                                      tonwerk_context** context)
{
    if (context == nullptr)
        return invalid("The place for the context is null.");
    *context = nullptr;
    if (model == nullptr)
        return invalid("The model is null.");
    if (modelSize == 0)
        return invalid("The model has no bytes.");
    if (key == nullptr && keySize != 0)
        return invalid("The key is null.");
    return guarded(TONWERK_MODEL_REFUSED,
                   [&]
                   {
                       const auto* letters = static_cast<const char*>(key);
                       tonwerk::ModelData data{model, modelSize, {letters, letters + keySize}};
                       auto loaded = std::make_unique<tonwerk_context>();
                       loaded->model = std::make_shared<tonwerk::InferenceContext>(std::move(data));
                       *context = loaded.release();
                       return TONWERK_OK;
                   });
}

void tonwerk_context_destroy(tonwerk_context* context)
{
    delete context;
}

tonwerk_status tonwerk_stream_create(tonwerk_context* context, const tonwerk_config* config,
                                     tonwerk_stream** stream)
{
    if (stream == nullptr)
        return invalid("The place for the stream is null.");
    *stream = nullptr;
    if (context == nullptr)
        return invalid("The context is null.");
    if (config != nullptr)
        if (const char* fault = faultOf(*config); fault != nullptr)
            return invalid(fault);
    const std::uint32_t stems = config != nullptr ? config->stems : allStems;
    return guarded(TONWERK_STREAM_FAILED,
                   [&]
                   {
                       *stream = new tonwerk_stream(context->model, processorConfig(stems));
                       return TONWERK_OK;
                   });
}

void tonwerk_stream_destroy(tonwerk_stream* stream)
{
    delete stream;
}

tonwerk_status tonwerk_stream_push(tonwerk_stream* stream, const float* interleaved, size_t frames)
{
    if (stream == nullptr)
        return invalid("The stream is null.");
    if (interleaved == nullptr && frames != 0)
        return invalid("The block is null.");
    if (frames > SIZE_MAX / (2 * sizeof(float)))
        return invalid("The block has more frames than memory can hold.");
    return onOpenStream(*stream,
                        [&]
                        {
                            // One result at a time: those before a failure can still be read.
                            while (frames > 0)
                            {
                                const size_t count = std::min(frames, stream->feeder.framesUntilResult());
                                stream->queue.push(stream->feeder.feed(interleaved, count));
                                interleaved += 2 * count;
                                frames -= count;
                            }
                            return tonwerk_stream::State::Open;
                        });
}

tonwerk_status tonwerk_stream_flush(tonwerk_stream* stream)
{
    if (stream == nullptr)
        return invalid("The stream is null.");
    return onOpenStream(*stream,
                        [&]
                        {
                            stream->queue.push(stream->feeder.finish());
                            return tonwerk_stream::State::Ended;
                        });
}

uint64_t tonwerk_stream_available(const tonwerk_stream* stream)
{
    return stream != nullptr ? stream->queue.available() : 0;
}

tonwerk_status tonwerk_stream_read(tonwerk_stream* stream, float* const stems[TONWERK_STEM_COUNT],
                                   size_t frames, size_t* framesRead)
{
    if (framesRead == nullptr)
        return invalid("The place for the number of frames is null.");
    *framesRead = 0;
    if (stream == nullptr)
        return invalid("The stream is null.");
    if (stems == nullptr)
        return invalid("The array of buffers is null.");
    *framesRead = stream->queue.read(stems, frames);
    return TONWERK_OK;
}

uint64_t tonwerk_stream_latency(const tonwerk_stream* stream)
{
    return stream != nullptr ? tonwerk::StreamFeeder::latencyFrames : 0;
}
