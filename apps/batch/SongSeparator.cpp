// SPDX-License-Identifier: MIT
#include "batch/SongSeparator.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "audio/RawOutput.h"
#include "audio/RawReader.h"
#include "audio/SongReader.h"
#include "audio/StemFiles.h"
#include "batch/TrackMeters.h"
#include "handoff/Session.h"
#include "report/SongReport.h"
#include "system/Failure.h"
#include "system/NewFile.h"
#include "system/OutputFolder.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

SongSummary summaryOf(const SongSource& song, const SeparationResult& result, double gain)
{
    return {result.audioSeconds, result.processingSeconds, result.nullPeak, result.nonFiniteSamples, gain,
            song.warnings()};
}

/// \throws Failure if another song's files are in the folder
void requireOwnFolder(const SongEntry& entry)
{
    const std::string other = songIn(entry.folder);
    if (!other.empty() && other != toText(entry.path.filename()))
        throw Failure("The folder " + quoted(entry.folder) + " holds the stems of " + quoted(toPath(other)) +
                      ", not of " + quoted(entry.path) + "; --overwrite replaces them.");
}

/// The title of a stem: "Acoustic guitar".
std::string titleOf(std::string name)
{
    std::replace(name.begin(), name.end(), '_', ' ');
    name.front() = static_cast<char>(name.front() - 'a' + 'A');
    return name;
}

/// The stems as a session. The mix would double them, so it is a track only if it is alone.
void writeSessions(const OutputFolder& folder, const SongEntry& entry, const SongSource& song,
                   const SeparationResult& result, const OutputSettings& settings)
{
    Session session{toText(entry.path.stem()), song.channels(), song.sampleRate(), result.frames, {}};
    constexpr std::size_t mix = stemNames.size() - 1;
    for (const Track& track : settings.tracks)
        if (track.stem && (*track.stem != mix || settings.stems.count() == 1))
            session.tracks.push_back({titleOf(track.name), track.name + ".wav", stemColors.at(*track.stem)});
    const std::string dawproject = dawProject(session);
    writeNewFile(folder.unfinished(dawProjectName), dawproject.data(), dawproject.size());
    const std::string reaper = reaperProject(session);
    writeNewFile(folder.unfinished(reaperProjectName), reaper.data(), reaper.size());
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
        return std::make_unique<RawReader>(stdin, job.inputRate, !job.rawInput);
    return std::make_unique<SongReader>(entry.path);
}

SongSummary SongSeparator::separateToOutput(SongSource& song, const Separation::Progress& progress)
{
    RawOutput stems(output, song.channels());
    Separation separation(loaded, song, {job.output.tracks, job.output.quality}, stems, {});
    const SeparationResult result = separation.run(progress);
    return summaryOf(song, result, 1.0);
}

SongSummary SongSeparator::separateToFolder(const SongEntry& entry, SongSource& song,
                                            const Separation::Progress& progress)
{
    const OutputSettings& settings = job.output;
    if (!job.overwrite)
        requireOwnFolder(entry);
    OutputFolder folder(entry.folder, filesOf(settings),
                        settings.report ? std::optional(Subfolder{playerName, ".js"}) : std::nullopt);
    StemFiles files(folder, namesOf(settings.tracks), song.channels(), song.sampleRate(),
                    song.expectedFrames());
    TrackMeters meters(settings.tracks.size(), song.channels(), song.sampleRate());
    std::vector<SeparationObserver*> observers{&meters};
    std::optional<SongReport> page;
    if (settings.report)
        observers.push_back(&page.emplace(folder.unfinished(playerName), settings.tracks, song.channels(),
                                          song.sampleRate()));
    Separation separation(loaded, song, {settings.tracks, settings.quality}, files, observers);
    const SeparationResult result = separation.run(progress);
    // One factor for all tracks keeps their balance.
    const double gain = gainToFit(meters.peak(), settings.format);

    files.finish(settings.format, gain);
    if (page)
        page->write(folder.unfinished(reportName),
                    {toText(entry.path.filename()), song.sha256(), model.name, model.passport.text("license"),
                     result.frames, result.audioSeconds, result.processingSeconds, result.nullPeak,
                     result.nonFiniteSamples});
    if (settings.project)
        writeSessions(folder, entry, song, result, settings);
    writeReceipt({entry, song, {song.sha256(), model.sha256}, model, result, meters, folder, gain}, settings);
    folder.commit(staleFiles(entry.folder, settings), job.lasting);
    return summaryOf(song, result, gain);
}

} // namespace tonwerk::app
