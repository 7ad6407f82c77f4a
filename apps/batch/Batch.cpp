// SPDX-License-Identifier: MIT
#include "batch/Batch.h"

#include <algorithm>
#include <exception>
#include <new>
#include <system_error>
#include <thread>
#include <utility>

#include "separation/Model.h"
#include "separation/Runtime.h"
#include "system/Failure.h"
#include "system/Interrupts.h"
#include "system/Sha256.h"
#include "system/Text.h"

namespace tonwerk::app
{

Batch::Batch(const Job& job, ProgressReporter& reporter, std::FILE* output)
    : job(job), reporter(reporter), output(output)
{
}

BatchCounts Batch::run()
{
    const std::vector<SongEntry> songs = withoutDone(findAll());
    if (!songs.empty())
        checkModel();
    loadModels(songs.size());
    reporter.begin(songs.size());
    if (models.size() <= 1)
    {
        for (const auto& loaded : models)
            work(loaded, songs);
    }
    else
    {
        std::vector<std::jthread> workers; // joins them at the end of the block
        for (const auto& loaded : models)
            workers.emplace_back([this, loaded, &songs] { work(loaded, songs); });
    }
    reporter.end(counts);
    if (interruptRequested())
        throw Interrupted();
    return counts;
}

std::vector<SongEntry> Batch::findAll()
{
    SongList list = findSongs(job.inputs, job.outputFolder);
    if (job.raw && list.songs.size() + list.errors.size() != 1)
        throw UsageError("--raw takes exactly one song.");
    for (const InputError& error : list.errors)
        countFailure(error.input, error.message);
    if (!list.unreadable.empty())
        reporter.noted(unreadableSentence(list));
    return shardOf(list.songs, job.shard, job.shardCount);
}

std::vector<SongEntry> Batch::withoutDone(const std::vector<SongEntry>& songs)
{
    if (songs.empty())
        return {};
    // Read once, so that all that is said of the model is true of the bytes that are loaded.
    modelBytes = readModel(job.model);
    Sha256 hash;
    hash.feed(modelBytes.data(), modelBytes.size());
    model.name = toText(job.model.filename());
    model.sha256 = hash.hexadecimal();
    std::vector<SongEntry> left;
    for (const SongEntry& song : songs)
    {
        if (interruptRequested())
            throw Interrupted();
        if (!job.resume || !isDoneBefore(song))
        {
            left.push_back(song);
            continue;
        }
        reporter.skipped(song);
        ++counts.skipped;
    }
    return left;
}

bool Batch::isDoneBefore(const SongEntry& song) const
{
    std::error_code failure;
    if (song.isStandardInput || !std::filesystem::exists(song.folder / receiptName, failure) ||
        !std::filesystem::is_regular_file(song.path, failure))
        return false;
    return isDone(song.folder, {sha256OfFile(song.path), model.sha256}, job.output);
}

/// Looks into the model's passport before any song is begun.
void Batch::checkModel()
{
    model.passport = readPassport(modelBytes, job.key);
    requireRows();
    if (!job.modelRemark.empty())
        reporter.noted(job.modelRemark);
    std::string missing;
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        if (!model.passport.stems().test(stem))
            missing.append(missing.empty() ? "" : ", ").append(stemNames.at(stem));
    if (!missing.empty())
        reporter.noted("The model has no " + missing + ": what plays them stays in the residual.");
}

/// What a model for live streams does not compute would be silence.
void Batch::requireRows() const
{
    const Quality& quality = job.output.quality;
    const unsigned needed = std::min(quality.rows(), ModelPassport::allRows);
    if (model.passport.rows() < needed)
        throw Failure("The model " + quoted(job.model) + " computes its newest " +
                      std::to_string(model.passport.rows()) +
                      " rows only, for live streams with a small step, and --quality " + quality.name +
                      " needs " + std::to_string(needed) + ".");
}

void Batch::loadModels(std::size_t songs)
{
    const std::size_t count = workerCount(songs);
    const unsigned processors = std::thread::hardware_concurrency();
    const unsigned share = count > 1 ? std::max(1U, processors / static_cast<unsigned>(count)) : 0;
    while (models.size() < count)
    {
        models.push_back(
            std::make_shared<Model>(modelBytes, "The model " + quoted(job.model), job.key, share));
        for (LibraryLog::Line& line : models.back()->log().take())
            model.log.push_back(std::move(line.text));
    }
    modelBytes = {};
    if (models.empty())
        return; // nothing to do, and no runtime loaded
    model.providers = offeredProviders();
    model.provider = models.front()->provider();
}

std::size_t Batch::workerCount(std::size_t songs) const
{
    std::size_t workers = std::min<std::size_t>(job.workers, songs);
    if (job.memory)
    {
        // A stream, the runtime's working memory, and the runtime's copies of the model.
        const std::uintmax_t perWorker = 500'000'000 + 3 * modelBytes.size();
        workers = std::min<std::size_t>(workers, static_cast<std::size_t>(*job.memory / perWorker));
        workers = std::max<std::size_t>(workers, songs > 0 ? 1 : 0);
    }
    return workers;
}

void Batch::work(std::shared_ptr<Model> loaded, const std::vector<SongEntry>& songs)
{
    SongSeparator separator(job, std::move(loaded), model, output);
    while (!interruptRequested())
    {
        const std::size_t song = nextSong++;
        if (song >= songs.size())
            return;
        separate(separator, songs[song]);
    }
}

void Batch::separate(SongSeparator& separator, const SongEntry& song)
{
    const std::string name = toText(song.path);
    try
    {
        reporter.progress(song, 0.0, 0.0);
        const SongSummary summary = separator.separate(song, [&](double fraction, double seconds)
                                                       { reporter.progress(song, fraction, seconds); });
        reporter.done(song, summary);
        const std::lock_guard lock(guard);
        ++counts.done;
    }
    catch (const Interrupted&)
    {
        // The other workers stop, too; then run() throws.
    }
    catch (const std::bad_alloc&)
    {
        countFailure(name, "There is not enough memory for " + quoted(song.path) + ".");
    }
    catch (const Failure& failure)
    {
        countFailure(name, failure.what());
    }
    catch (const std::exception& failure)
    {
        countFailure(name, "Something unexpected happened with " + quoted(song.path) + ": " +
                               asReason(failure.what()) + ".");
    }
}

void Batch::countFailure(const std::string& input, const std::string& sentence)
{
    reporter.failed(input, sentence);
    const std::lock_guard lock(guard);
    ++counts.failed;
}

} // namespace tonwerk::app
