// SPDX-License-Identifier: MIT
#include "batch/SongSeparator.h"

#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "audio/RawOutput.h"
#include "audio/RawReader.h"
#include "audio/SongReader.h"
#include "audio/StemFolder.h"
#include "batch/TrackMeters.h"
#include "report/SongReport.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

SongSummary summaryOf(const SeparationResult& result, double gain)
{
    return {result.audioSeconds, result.processingSeconds, result.nullPeak, result.nonFiniteSamples, gain};
}

} // namespace

SongSeparator::SongSeparator(const Job& job, std::shared_ptr<Model> loaded, const ModelFacts& model,
                             std::FILE* output)
    : job(job), loaded(std::move(loaded)), model(model), output(output)
{
}

SongSummary SongSeparator::separate(const SongEntry& entry, const Separation::Progress& progress)
{
    const std::unique_ptr<SongSource> song = open(entry);
    return job.raw ? separateToOutput(*song, progress) : separateToFolder(entry, *song, progress);
}

std::unique_ptr<SongSource> SongSeparator::open(const SongEntry& entry) const
{
    if (entry.isStandardInput)
        return std::make_unique<RawReader>(stdin, job.inputRate);
    return std::make_unique<SongReader>(entry.path);
}

SongSummary SongSeparator::separateToOutput(SongSource& song, const Separation::Progress& progress)
{
    RawOutput stems(output, song.channels());
    Separation separation(loaded, song, job.output.tracks, stems, {});
    return summaryOf(separation.run(progress), 1.0);
}

SongSummary SongSeparator::separateToFolder(const SongEntry& entry, SongSource& song,
                                            const Separation::Progress& progress)
{
    const OutputSettings& settings = job.output;
    StemFolder folder(entry.folder, namesOf(settings.tracks), song.channels(), song.sampleRate(),
                      song.expectedFrames());
    TrackMeters meters(settings.tracks.size(), song.channels(), song.sampleRate());
    std::vector<SeparationObserver*> observers{&meters};
    std::optional<SongReport> page;
    if (settings.report)
        observers.push_back(&page.emplace(settings.stems, song.sampleRate()));
    Separation separation(loaded, song, settings.tracks, folder, observers);
    const SeparationResult result = separation.run(progress);
    // One factor for all tracks keeps their balance.
    const double gain = gainToFit(meters.peak(), settings.format);

    // A receipt must always describe the files beside it, so the old one goes first.
    std::error_code absent;
    std::filesystem::remove(entry.folder / receiptName, absent);
    folder.commit(settings.format, gain);
    if (page)
        page->write(entry.folder / "report.html",
                    {toText(entry.path.filename()), model.name, model.passport.text("license"),
                     song.channels(), result.audioSeconds, result.processingSeconds, result.nullPeak,
                     result.nonFiniteSamples});
    writeReceipt({entry, song, {song.sha256(), model.sha256}, model, result, meters, gain}, settings);
    return summaryOf(result, gain);
}

} // namespace tonwerk::app
