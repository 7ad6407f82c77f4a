// SPDX-License-Identifier: MIT
#include "batch/SongSeparator.h"

#include <algorithm>
#include <optional>
#include <system_error>
#include <utility>

#include "audio/RawOutput.h"
#include "audio/RawReader.h"
#include "audio/SongReader.h"
#include "audio/StemFolder.h"
#include "report/SongReport.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

void checkFits(const SongSource& song)
{
    if (song.statedFrames() > WavFile::maxFrames(SampleFormat::float32, song.channels()))
        throw Failure("The song is too long: its stems would exceed the 4 GB that a WAV file can hold.");
}

SongSummary summaryOf(const SeparationResult& result, double gain)
{
    return {result.audioSeconds, result.processingSeconds, result.nullPeak, result.nonFiniteSamples, gain};
}

} // namespace

SongSeparator::SongSeparator(const Options& options, std::shared_ptr<InferenceContext> context,
                             const ModelFacts& model, LibraryLog& log, std::FILE* output)
    : options(options), context(std::move(context)), model(model), log(log), output(output)
{
}

SongSummary SongSeparator::separate(const SongEntry& entry, const Separation::Progress& progress)
{
    const std::unique_ptr<SongSource> song = open(entry);
    return options.raw ? separateToOutput(*song, progress) : separateToFolder(entry, *song, progress);
}

std::unique_ptr<SongSource> SongSeparator::open(const SongEntry& entry) const
{
    if (entry.isStandardInput)
        return std::make_unique<RawReader>(stdin, options.inputRate);
    return std::make_unique<SongReader>(entry.path);
}

SongSummary SongSeparator::separateToOutput(SongSource& song, const Separation::Progress& progress)
{
    RawOutput stems(output, song.channels());
    Separation separation(context, song, options.tracks, stems, log, nullptr);
    return summaryOf(separation.run(progress), 1.0);
}

SongSummary SongSeparator::separateToFolder(const SongEntry& entry, SongSource& song,
                                            const Separation::Progress& progress)
{
    checkFits(song);
    StemFolder folder(entry.folder, options.tracks, song.channels(), song.sampleRate());
    std::optional<SongReport> page;
    if (options.report)
        page.emplace(options.stems, song.sampleRate());
    Separation separation(context, song, options.tracks, folder, log, page ? &*page : nullptr);
    const SeparationResult result = separation.run(progress);
    const double gain = commonGain(result);

    // While there is a receipt, the files are those that it tells of.
    std::error_code absent;
    std::filesystem::remove(entry.folder / receiptName, absent);
    folder.commit(options.format, gain);
    if (page)
        page->write(entry.folder / "report.html",
                    {toText(entry.path.filename()), model.name, song.channels(), result.audioSeconds,
                     result.processingSeconds, result.nullPeak, result.nonFiniteSamples});
    writeReceipt({entry, song, {song.sha256(), model.sha256}, model, result, gain}, options);
    return summaryOf(result, gain);
}

/// One factor for all tracks, so that their balance stays.
double SongSeparator::commonGain(const SeparationResult& result) const
{
    double peak = 0.0;
    for (const TrackMeter& meter : result.meters)
        peak = std::max(peak, meter.peak());
    return gainToFit(peak, options.format);
}

} // namespace tonwerk::app
