// SPDX-License-Identifier: MIT
#include "tonwerk/tonwerk_c.h"

#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "c/Failures.h"
#include "c/Handles.h"
#include "c/Presets.h"
#include "c/Providers.h"
#include "c/Records.h"
#include "c/StreamChoices.h"

using tonwerk::c::guarded;
using tonwerk::c::report;

namespace
{

constexpr std::uint32_t knownFlags = TONWERK_PIN_THREADS | TONWERK_SPIN_THREADS;
constexpr std::uint32_t mostThreads = 1024;

tonwerk_status invalid(const char* reason) noexcept
{
    return report(TONWERK_INVALID_ARGUMENT, reason);
}

plog::Severity severityOf(std::int32_t level)
{
    switch (level)
    {
    case TONWERK_LOG_NONE:
        return plog::none;
    case TONWERK_LOG_ERROR:
        return plog::error;
    case TONWERK_LOG_INFO:
        return plog::info;
    case TONWERK_LOG_DEBUG:
        return plog::debug;
    default:
        return plog::warning;
    }
}

/// Null if a model can be loaded with the options, otherwise what is wrong with them.
const char* faultOf(const tonwerk_context_options& options) noexcept
{
    if ((options.flags & ~knownFlags) != 0 || options.reserved != 0)
        return "The options ask for something that this version does not know.";
    if (options.threads > mostThreads)
        return "The options ask for more than 1,024 threads.";
    if (tonwerk::c::providerName(options.provider) == nullptr)
        return "The options ask for an execution provider that does not exist.";
    if (options.log_level < TONWERK_LOG_DEFAULT || options.log_level > TONWERK_LOG_DEBUG)
        return "The options ask for a log level that does not exist.";
    if (options.key == nullptr && options.key_size != 0)
        return "The key is null.";
    return nullptr;
}

SessionChoices choicesOf(const tonwerk_context_options& options)
{
    SessionChoices choices;
    choices.provider = tonwerk::c::providerName(options.provider);
    choices.onlyProvider = options.provider != TONWERK_PROVIDER_AUTOMATIC;
    choices.threads = options.threads;
    choices.pinThreads = (options.flags & TONWERK_PIN_THREADS) != 0;
    choices.spinThreads = (options.flags & TONWERK_SPIN_THREADS) != 0;
    return choices;
}

tonwerk_status load(const void* model, size_t modelSize, const tonwerk_context_options& options,
                    tonwerk_context** context)
{
    try
    {
        const std::string key(static_cast<const char*>(options.key), options.key_size);
        auto target = std::make_shared<const tonwerk::c::LogTarget>(
            tonwerk::c::LogTarget{options.log, options.log_user, severityOf(options.log_level)});
        auto loaded = std::make_unique<tonwerk_context>();
        loaded->shared = std::make_shared<tonwerk::c::Context>(model, modelSize, key, choicesOf(options),
                                                               std::move(target));
        *context = loaded.release();
        return TONWERK_OK;
    }
    catch (const ProviderRefused& refusal)
    {
        return report(TONWERK_PROVIDER_REFUSED, refusal.what());
    }
}

tonwerk_status openStream(tonwerk::c::Context& context, std::shared_ptr<tonwerk::c::Context> shared,
                          const tonwerk_stream_options& options, tonwerk_stream** stream)
{
    const tonwerk::c::LogScope log(context.log());
    RunGeometry geometry{};
    const std::string fault =
        tonwerk::c::chooseGeometry(options, context.rows(), tonwerk::c::ordinaryPreset(), geometry);
    if (!fault.empty())
        return invalid(fault.c_str());
    *stream = new tonwerk_stream(std::move(shared), options.stems, geometry);
    return TONWERK_OK;
}

/// \param record a tonwerk_stream_options or its head; may be null
tonwerk_status takeAndOpen(tonwerk_context* context, const void* record, tonwerk_stream** stream)
{
    if (stream == nullptr)
        return invalid("The place for the stream is null.");
    *stream = nullptr;
    if (context == nullptr)
        return invalid("The context is null.");
    tonwerk_stream_options options{};
    if (const char* fault = tonwerk::c::takeStreamOptions(record, options))
        return invalid(fault);
    return guarded(TONWERK_STREAM_FAILED,
                   [&] { return openStream(*context->shared, context->shared, options, stream); });
}

template <typename Read>
tonwerk_status readFrames(tonwerk_stream* stream, const void* targets, size_t* framesRead, Read read)
{
    if (framesRead == nullptr)
        return invalid("The place for the number of frames is null.");
    *framesRead = 0;
    if (stream == nullptr)
        return invalid("The stream is null.");
    if (targets == nullptr)
        return invalid("The array of buffers is null.");
    *framesRead = read(stream->results());
    return TONWERK_OK;
}

tonwerk_status pushFrames(tonwerk_stream* stream, const float* left, const float* right, size_t step,
                          size_t frames)
{
    if (stream == nullptr)
        return invalid("The stream is null.");
    if (frames > SIZE_MAX / (2 * sizeof(float)))
        return invalid("The block has more frames than memory can hold.");
    return stream->push(left, right, step, frames);
}

} // namespace

const char* tonwerk_version(void)
{
    return TONWERK_VERSION;
}

uint32_t tonwerk_c_version(void)
{
    return TONWERK_C_VERSION;
}

const char* tonwerk_status_text(tonwerk_status status)
{
    return tonwerk::c::statusText(status);
}

const char* tonwerk_last_error(void)
{
    return tonwerk::c::lastError();
}

tonwerk_status tonwerk_preset(const char* name, tonwerk_stream_options* options)
{
    if (name == nullptr)
        return invalid("The name is null.");
    if (options == nullptr)
        return invalid("The options are null.");
    if (options->size < sizeof *options)
        return invalid("The size field of the record is too small.");
    const tonwerk::c::Preset* preset = tonwerk::c::findPreset(name);
    if (preset == nullptr)
        return invalid("There is no preset of that name.");
    options->step = static_cast<uint32_t>(preset->geometry.step);
    options->lookahead = static_cast<uint32_t>(preset->geometry.lookahead);
    options->blend = static_cast<uint32_t>(preset->geometry.blend);
    return TONWERK_OK;
}

const char* tonwerk_preset_name(uint32_t number)
{
    const tonwerk::c::Preset* preset = tonwerk::c::presetAt(number);
    return preset != nullptr ? preset->name : nullptr;
}

tonwerk_status tonwerk_context_open(const void* model, size_t modelSize,
                                    const tonwerk_context_options* options, tonwerk_context** context)
{
    if (context == nullptr)
        return invalid("The place for the context is null.");
    *context = nullptr;
    if (model == nullptr)
        return invalid("The model is null.");
    if (modelSize == 0)
        return invalid("The model has no bytes.");
    tonwerk_context_options known = TONWERK_CONTEXT_OPTIONS_INIT;
    if (options != nullptr)
        if (const char* fault = tonwerk::c::takeRecord(options, &known, sizeof known, {}))
            return invalid(fault);
    if (const char* fault = faultOf(known))
        return invalid(fault);
    return guarded(TONWERK_MODEL_REFUSED, [&] { return load(model, modelSize, known, context); });
}

tonwerk_status tonwerk_context_create(const void* model, size_t modelSize, const void* key, size_t keySize,
                                      tonwerk_context** context)
{
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.key = key;
    options.key_size = keySize;
    return tonwerk_context_open(model, modelSize, &options, context);
}

tonwerk_status tonwerk_context_get_info(const tonwerk_context* context, tonwerk_context_info* info)
{
    if (context == nullptr)
        return invalid("The context is null.");
    if (info == nullptr)
        return invalid("The place for the information is null.");
    return guarded(TONWERK_INVALID_ARGUMENT,
                   [&]
                   {
                       tonwerk_context_info known{};
                       context->shared->tell(known);
                       const char* fault = tonwerk::c::giveRecord(&known, sizeof known, info);
                       return fault != nullptr ? invalid(fault) : TONWERK_OK;
                   });
}

const char* tonwerk_context_metadata(const tonwerk_context* context, const char* key)
{
    return context != nullptr && key != nullptr ? context->shared->metadata(key) : nullptr;
}

void tonwerk_context_destroy(tonwerk_context* context)
{
    delete context;
}

tonwerk_status tonwerk_stream_open(tonwerk_context* context, const tonwerk_stream_options* options,
                                   tonwerk_stream** stream)
{
    return takeAndOpen(context, options, stream);
}

tonwerk_status tonwerk_stream_create(tonwerk_context* context, const tonwerk_config* config,
                                     tonwerk_stream** stream)
{
    return takeAndOpen(context, config, stream);
}

void tonwerk_stream_destroy(tonwerk_stream* stream)
{
    delete stream;
}

tonwerk_status tonwerk_stream_push(tonwerk_stream* stream, const float* interleaved, size_t frames)
{
    if (interleaved == nullptr && frames != 0)
        return invalid("The block is null.");
    const float* right = interleaved != nullptr ? interleaved + 1 : nullptr;
    return pushFrames(stream, interleaved, right, 2, frames);
}

tonwerk_status tonwerk_stream_push_planar(tonwerk_stream* stream, const float* left, const float* right,
                                          size_t frames)
{
    if ((left == nullptr || right == nullptr) && frames != 0)
        return invalid("A channel of the block is null.");
    return pushFrames(stream, left, right, 1, frames);
}

tonwerk_status tonwerk_stream_flush(tonwerk_stream* stream)
{
    return stream != nullptr ? stream->flush() : invalid("The stream is null.");
}

tonwerk_status tonwerk_stream_reset(tonwerk_stream* stream)
{
    if (stream == nullptr)
        return invalid("The stream is null.");
    stream->reset();
    return TONWERK_OK;
}

void tonwerk_stream_cancel(tonwerk_stream* stream)
{
    if (stream != nullptr)
        stream->cancel();
}

uint64_t tonwerk_stream_available(const tonwerk_stream* stream)
{
    return stream != nullptr ? stream->results().available() : 0;
}

tonwerk_status tonwerk_stream_read(tonwerk_stream* stream, float* const stems[TONWERK_STEM_COUNT],
                                   size_t frames, size_t* framesRead)
{
    return readFrames(stream, stems, framesRead,
                      [&](tonwerk::c::StemQueue& results) { return results.readInterleaved(stems, frames); });
}

tonwerk_status tonwerk_stream_read_planar(tonwerk_stream* stream,
                                          float* const channels[TONWERK_CHANNEL_COUNT], size_t frames,
                                          size_t* framesRead)
{
    return readFrames(stream, channels, framesRead,
                      [&](tonwerk::c::StemQueue& results) { return results.readPlanar(channels, frames); });
}

uint64_t tonwerk_stream_frames_until_result(const tonwerk_stream* stream)
{
    return stream != nullptr ? stream->framesUntilResult() : 0;
}

uint64_t tonwerk_stream_latency(const tonwerk_stream* stream)
{
    return stream != nullptr ? stream->latency() : 0;
}

tonwerk_status tonwerk_stream_get_info(const tonwerk_stream* stream, tonwerk_stream_info* info)
{
    if (stream == nullptr)
        return invalid("The stream is null.");
    if (info == nullptr)
        return invalid("The place for the information is null.");
    tonwerk_stream_info known{};
    stream->tell(known);
    const char* fault = tonwerk::c::giveRecord(&known, sizeof known, info);
    return fault != nullptr ? invalid(fault) : TONWERK_OK;
}
