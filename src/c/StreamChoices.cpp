// SPDX-License-Identifier: MIT
#include "c/StreamChoices.h"

#include "c/Records.h"
#include "tonwerk/StreamGeometry.h"

namespace tonwerk::c
{

namespace
{

using geometry::segmentFrames;

/// What a run may know beyond the frames that it gives out or holds: those of the lead-out, or of the
/// lead-in.
constexpr std::size_t edgeRows = 5;

} // namespace

const char* takeStreamOptions(const void* record, tonwerk_stream_options& options) noexcept
{
    options = TONWERK_STREAM_OPTIONS_INIT;
    if (record != nullptr)
        if (const char* fault = takeRecord(record, &options, sizeof options, {sizeof(tonwerk_config)}))
            return fault;
    if ((options.stems & ~TONWERK_ALL_STEMS) != 0)
        return "The options ask for a stem that does not exist.";
    return nullptr;
}

std::string chooseGeometry(const tonwerk_stream_options& options, std::size_t rows, const Preset& ordinary,
                           RunGeometry& geometry)
{
    geometry = {options.step, options.lookahead, options.blend};
    if (geometry.step == 0 && geometry.held() == 0)
        geometry = ordinary.geometry;
    std::string fault = geometry.fault(segmentFrames);
    if (fault.empty() && rows < segmentFrames && geometry.step + geometry.held() + edgeRows > rows)
        fault = "The model computes the newest " + std::to_string(rows) + " frames of a run, and step, " +
                "lookahead and blend need " + std::to_string(geometry.step + geometry.held() + edgeRows) +
                '.';
    return fault;
}

} // namespace tonwerk::c
