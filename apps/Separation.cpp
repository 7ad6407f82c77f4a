#include "Separation.h"

#include <chrono>
#include <cstddef>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "Failure.h"
#include "Platform.h"
#include "Text.h"

namespace tonwerk::app
{

namespace
{

/// What `separate` returns; a failure of the library becomes a sentence for the user.
template <typename Separate>
StreamFeeder::Stems separated(Separate separate)
{
    try
    {
        return separate();
    }
    catch (const std::bad_alloc&)
    {
        throw;
    }
    catch (const std::exception& failure)
    {
        throw Failure("The song cannot be separated: " + asReason(failure.what()) + ".");
    }
}

} // namespace

Separation::Separation(std::shared_ptr<InferenceContext> model, SongReader& song, StemFolder& stems,
                       const StemSet& wanted, SongReport* report)
    : feeder(std::move(model), processorConfig(wanted)), reader(song), folder(stems), report(report)
{
}

SeparationResult Separation::run(const Progress& progress)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    if (reader.statedFrames() > StemWriter::maxFrames(reader.channels()))
        throw Failure("The song is too long: its stems would exceed the 4 GB that a WAV file can hold.");
    bool atEnd = false;
    while (!atEnd)
    {
        if (platform::interruptRequested())
            throw Interrupted();
        atEnd = processBlock();
        progress(atEnd ? 1.0 : reader.fractionRead(), seconds(reader.framesRead()));
    }
    checkLength();
    if (platform::interruptRequested())
        throw Interrupted();
    folder.keep();
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    return {seconds(reader.framesRead()), elapsed, nullTest.peak(), nullTest.nonFiniteSamples()};
}

bool Separation::processBlock()
{
    // One run of the model each time, so that the progress tells the speed.
    const std::size_t frames = feeder.framesUntilResult();
    reader.read(frames, block);
    const bool atEnd = block.size() < 2 * frames;
    nullTest.feed(block);
    if (report)
        report->feedSong(block);
    take(separated([this] { return feeder.feed(block); }));
    if (atEnd)
        take(separated([this] { return feeder.finish(); }));
    return atEnd;
}

void Separation::take(const StreamFeeder::Stems& stems)
{
    if (stems.empty())
        return;
    nullTest.compare(stems);
    folder.write(stems);
    if (report)
        report->feedStems(stems);
    framesReturned += stems.front().size() / 2;
}

void Separation::checkLength() const
{
    if (framesReturned != reader.framesRead())
        throw Failure("The library returned " + std::to_string(framesReturned) +
                      " samples per channel for the " + std::to_string(reader.framesRead()) +
                      " that it was given.");
}

double Separation::seconds(std::uint64_t frames) const
{
    return static_cast<double>(frames) / static_cast<double>(reader.sampleRate());
}

} // namespace tonwerk::app
