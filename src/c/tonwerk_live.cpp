// SPDX-License-Identifier: MIT
#include "tonwerk/tonwerk_live.h"

#include <memory>
#include <string>

#include "c/Failures.h"
#include "c/Handles.h"
#include "c/Live.h"
#include "c/Presets.h"
#include "c/Records.h"
#include "c/StreamChoices.h"
#include "tonwerk/StreamGeometry.h"

using tonwerk::c::guarded;
using tonwerk::c::LiveChoices;
using tonwerk::c::LiveOutput;
using tonwerk::c::report;

static_assert(tonwerk::c::stemRows / 2 == TONWERK_STEM_COUNT);

struct tonwerk_live : tonwerk::c::Live
{
    using Live::Live;
};

namespace
{

constexpr std::uint32_t ordinaryBlock = 1024;
constexpr std::uint32_t longestBlock = 65536;
constexpr std::uint32_t longestRun = 16777216;

tonwerk_status invalid(const char* reason) noexcept
{
    return report(TONWERK_INVALID_ARGUMENT, reason);
}

/// Null if an object can be made with the options, otherwise what is wrong with them.
const char* faultOf(const tonwerk_live_options& options) noexcept
{
    if ((options.flags & ~std::uint32_t{TONWERK_LIVE_DRY}) != 0)
        return "The options ask for something that this version does not know.";
    if (options.block > longestBlock)
        return "The block has more than 65,536 frames.";
    if (options.run_frames > longestRun)
        return "The time for a run has more than 16,777,216 frames.";
    return nullptr;
}

tonwerk_status open(const std::shared_ptr<tonwerk::c::Context>& context, const tonwerk_live_options& options,
                    const tonwerk_stream_options& stream, tonwerk_live** live)
{
    const tonwerk::c::LogScope log(context->log());
    LiveChoices choices{};
    const std::string fault = tonwerk::c::chooseGeometry(stream, context->rows(),
                                                         *tonwerk::c::findPreset("live"), choices.geometry);
    if (!fault.empty())
        return invalid(fault.c_str());
    choices.stems = stream.stems;
    choices.block = options.block != 0 ? options.block : ordinaryBlock;
    choices.runFrames =
        options.run_frames != 0 ? options.run_frames : choices.geometry.step * tonwerk::geometry::hop;
    choices.dry = (options.flags & TONWERK_LIVE_DRY) != 0;
    *live = new tonwerk_live(context, choices);
    return TONWERK_OK;
}

} // namespace

tonwerk_status tonwerk_live_open(tonwerk_context* context, const tonwerk_live_options* options,
                                 tonwerk_live** live)
{
    if (live == nullptr)
        return invalid("The place for the live object is null.");
    *live = nullptr;
    if (context == nullptr)
        return invalid("The context is null.");
    tonwerk_live_options known = TONWERK_LIVE_OPTIONS_INIT;
    if (options != nullptr)
        if (const char* fault = tonwerk::c::takeRecord(options, &known, sizeof known, {}))
            return invalid(fault);
    if (const char* fault = faultOf(known))
        return invalid(fault);
    tonwerk_stream_options stream{};
    if (const char* fault = tonwerk::c::takeStreamOptions(known.stream, stream))
        return invalid(fault);
    return guarded(TONWERK_STREAM_FAILED, [&] { return open(context->shared, known, stream, live); });
}

void tonwerk_live_destroy(tonwerk_live* live)
{
    delete live;
}

size_t tonwerk_live_process(tonwerk_live* live, const float* interleaved,
                            float* const stems[TONWERK_STEM_COUNT], size_t frames)
{
    if (live == nullptr || stems == nullptr)
        return 0;
    LiveOutput output{{}, 2};
    for (std::size_t stem = 0; stem < TONWERK_STEM_COUNT; ++stem)
    {
        output.channels[2 * stem] = stems[stem];
        output.channels[2 * stem + 1] = stems[stem] != nullptr ? stems[stem] + 1 : nullptr;
    }
    const float* right = interleaved != nullptr ? interleaved + 1 : nullptr;
    return live->process({interleaved, right, 2}, output, frames);
}

size_t tonwerk_live_process_planar(tonwerk_live* live, const float* left, const float* right,
                                   float* const channels[TONWERK_CHANNEL_COUNT], size_t frames)
{
    if (live == nullptr || channels == nullptr)
        return 0;
    LiveOutput output{{}, 1};
    for (std::size_t channel = 0; channel < tonwerk::c::stemRows; ++channel)
        output.channels[channel] = channels[channel];
    return live->process({left, right, 1}, output, frames);
}

void tonwerk_live_reset(tonwerk_live* live, int64_t position)
{
    if (live != nullptr)
        live->reset(position);
}

int64_t tonwerk_live_position(const tonwerk_live* live)
{
    return live != nullptr ? live->position() : 0;
}

void tonwerk_live_set_offline(tonwerk_live* live, int offline)
{
    if (live != nullptr)
        live->setOffline(offline != 0);
}

uint64_t tonwerk_live_latency(const tonwerk_live* live)
{
    return live != nullptr ? live->latency() : 0;
}

tonwerk_status tonwerk_live_get_info(const tonwerk_live* live, tonwerk_live_info* info)
{
    if (live == nullptr)
        return invalid("The live object is null.");
    if (info == nullptr)
        return invalid("The place for the information is null.");
    tonwerk_live_info known{};
    live->tell(known);
    const char* fault = tonwerk::c::giveRecord(&known, sizeof known, info);
    return fault != nullptr ? invalid(fault) : TONWERK_OK;
}
