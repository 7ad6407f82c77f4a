// SPDX-License-Identifier: MIT
#include "c/LiveWorker.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "c/Failures.h"
#include "common/Log.h"

namespace tonwerk::c
{

LiveWorker::LiveWorker(std::unique_ptr<Stream> stream, std::shared_ptr<const LogTarget> log,
                       LiveExchange& exchange, double stepSeconds, double sampleRate, std::size_t block)
    : stream(std::move(stream)), log(std::move(log)), exchange(exchange), stepSeconds(stepSeconds),
      sampleRate(sampleRate), block(block), thread([this] { work(); })
{
}

LiveWorker::~LiveWorker()
{
    {
        const std::lock_guard lock(mutex);
        closing = true;
    }
    stream->cancel();
    wake.notify_one();
    thread.join();
}

void LiveWorker::beginStream(std::uint64_t number) noexcept
{
    wanted = number;
    if (pushing)
        stream->interrupt();
    settled = number;
}

void LiveWorker::waitFor(std::uint64_t number)
{
    std::unique_lock lock(mutex);
    awake = true;
    wake.notify_one();
    progress.wait(lock, [&] { return done >= number; });
}

void LiveWorker::work()
{
    const LogScope scope(log);
    while (!closing)
        if (!advance())
            sleep();
}

/// \return whether there was anything to do
bool LiveWorker::advance()
{
    if (fed == taken)
    {
        fed = 0;
        taken = exchange.take(frames.data(), frames.size());
    }
    // After the frames: of a stream that has some among them it is known that it is wanted.
    if (wanted != begin)
        return startStream();
    if (fed == taken)
        return false;
    feed();
    return true;
}

bool LiveWorker::startStream()
{
    const std::uint64_t number = wanted;
    if (settled != number)
        return false;
    stream->reset();
    begin = nextFrame = nextResult = number;
    deliver();
    return true;
}

void LiveWorker::feed()
{
    while (fed < taken && frames.at(fed).number < nextFrame) // of streams that were given up
        ++fed;
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(taken - fed, stream->framesUntilResult()));
    if (count == 0)
        return;
    const tonwerk_stream_info before = infoOfStream();
    const Clock::time_point start = Clock::now();
    const tonwerk_status status = push(count);
    if (status == TONWERK_CANCELLED)
        return;
    nextFrame += count;
    fed += count;
    deliver();
    note(before, Clock::now() - start);
    if (status == TONWERK_OK || wanted != begin)
        return;
    // Nothing of what it held can be had any more. It goes on in its place.
    TONWERK_LOG_AS("tonwerk_live", error) << lastError();
    runRecord.failedRuns.add(1);
    stream->reset();
    nextResult = nextFrame;
    deliver();
}

/// \return TONWERK_CANCELLED if another stream is wanted; what has been pushed is of no use then
tonwerk_status LiveWorker::push(std::size_t count)
{
    std::array<float, std::tuple_size_v<decltype(frames)>> left;  // NOLINT: filled as needed
    std::array<float, std::tuple_size_v<decltype(frames)>> right; // NOLINT
    for (std::size_t i = 0; i < count; ++i)
    {
        left.at(i) = frames.at(fed + i).left;
        right.at(i) = frames.at(fed + i).right;
    }
    tonwerk_status status = TONWERK_CANCELLED;
    pushing = true;
    if (wanted == begin && !closing)
    {
        status = stream->push(left.data(), right.data(), 1, count);
        if (status == TONWERK_CANCELLED)
            runRecord.cancelledRuns.add(1);
    }
    pushing = false;
    return status;
}

/// Passes on what the stream has completed, and says how far it has come.
void LiveWorker::deliver()
{
    StemQueue& results = stream->results();
    while (results.available() > 0)
    {
        StemBlock* target = exchange.emptyBlock();
        if (target == nullptr) // the audio thread takes nothing: it has no use for them
        {
            nextResult += results.available();
            results.clear();
            break;
        }
        std::array<float*, stemRows> rows{};
        for (std::size_t row = 0; row < rows.size(); ++row)
            rows.at(row) = target->row(row);
        target->first = nextResult;
        target->count = results.readPlanar(rows.data(), StemBlock::capacity);
        nextResult += target->count;
        exchange.publish(target);
    }
    if (done.exchange(nextResult) == nextResult)
        return;
    {
        const std::lock_guard lock(
            mutex); // who has asked already and waits not yet is let through to waiting
    }
    progress.notify_all();
}

void LiveWorker::note(const tonwerk_stream_info& before, Clock::duration taken)
{
    constexpr double weightOfNew = 0.125;
    const tonwerk_stream_info after = infoOfStream();
    if (after.runs == before.runs)
        return;
    const bool first = runRecord.runs.get() == 0;
    runRecord.runs.add(after.runs - before.runs);
    runRecord.failedRuns.add(after.failed_runs - before.failed_runs);
    runRecord.lastSeconds = after.last_run_seconds;
    runRecord.worstSeconds = std::max<double>(runRecord.worstSeconds, after.last_run_seconds);
    const double load = std::chrono::duration<double>(taken).count() / stepSeconds;
    const double former = first ? load : runRecord.load.load();
    runRecord.load = former + weightOfNew * (load - former);
}

void LiveWorker::sleep()
{
    using Seconds = std::chrono::duration<double>;
    constexpr Seconds shortest{0.001};
    constexpr Seconds longest{0.05};
    const std::uint64_t missing = stream->framesUntilResult();
    const double frames = missing > block ? static_cast<double>(missing - block) / 2 : 0.0;
    const Seconds time = std::clamp(Seconds(frames / sampleRate), shortest, longest);
    std::unique_lock lock(mutex);
    wake.wait_for(lock, time, [&] { return awake || closing; });
    awake = false;
}

tonwerk_stream_info LiveWorker::infoOfStream() const
{
    tonwerk_stream_info info{};
    stream->tell(info);
    return info;
}

} // namespace tonwerk::c
