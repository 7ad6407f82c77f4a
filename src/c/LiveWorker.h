// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_LIVEWORKER_H
#define TONWERK_C_LIVEWORKER_H

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

#include "c/Counter.h"
#include "c/LiveExchange.h"
#include "c/LogRoute.h"
#include "c/Stream.h"

namespace tonwerk::c
{

/// The thread behind a live object: feeds a stream with what the audio thread gives, and hands back what the
/// stream completes.
///
/// The audio thread never wakes it, for that would ask the system. It looks for input by itself: after half
/// the time in which the next run can become due, at least every millisecond towards the end (on Windows,
/// where the system's clock is coarser, every 16). That delay is part of the time allowed for a run.
class LiveWorker
{
public:
    /// How the runs went. Written by the worker, read by any thread.
    struct Record
    {
        Counter runs;
        Counter failedRuns;
        Counter cancelledRuns;
        std::atomic<double> lastSeconds{0.0};
        std::atomic<double> worstSeconds{0.0};
        std::atomic<double> load{0.0};
    };

    /// \param stepSeconds time in which a run becomes due
    /// \param sampleRate  frames that come in a second
    /// \param block       frames that may come at once
    LiveWorker(std::unique_ptr<Stream> stream, std::shared_ptr<const LogTarget> log, LiveExchange& exchange,
               double stepSeconds, double sampleRate, std::size_t block);
    LiveWorker(const LiveWorker&) = delete;
    LiveWorker& operator=(const LiveWorker&) = delete;

    /// Ends the run that is under way.
    ~LiveWorker();

    /// Audio thread, wait-free: the stream whose first frame has this number is wanted and no other. Called
    /// before any frame of it is given.
    void beginStream(std::uint64_t number) noexcept;

    /// Audio thread, not wait-free: waits until all results below this number have been handed back or will
    /// never be. Enough frames must have been given.
    void waitFor(std::uint64_t number);

    const Record& record() const { return runRecord; }

private:
    using Clock = std::chrono::steady_clock;

    void work();
    bool advance();
    bool startStream();
    void feed();
    tonwerk_status push(std::size_t count);
    void deliver();
    void note(const tonwerk_stream_info& before, Clock::duration taken);
    void sleep();
    tonwerk_stream_info infoOfStream() const;

    std::unique_ptr<Stream> stream;
    std::shared_ptr<const LogTarget> log;
    LiveExchange& exchange;
    double stepSeconds;
    double sampleRate;
    std::size_t block;

    // A run is ended by a switch that must not be moved by two threads at once. So the audio thread says
    // first which stream it wants, then moves the switch if it sees a push under way, then says that it is
    // done with it. The worker says that a push is under way before it asks which stream is wanted, and moves
    // the switch only when the audio thread is done.
    std::atomic<std::uint64_t> wanted{0};  ///< number of the first frame of the stream that is wanted
    std::atomic<std::uint64_t> settled{0}; ///< the same, when the audio thread is done with the switch
    std::atomic<bool> pushing{false};
    std::atomic<bool> closing{false};

    std::array<InputFrame, 512> frames{}; ///< taken and not yet fed: those from `fed` on
    std::size_t taken = 0;
    std::size_t fed = 0;
    std::uint64_t begin = 0;            ///< number of the first frame of the stream at hand
    std::uint64_t nextFrame = 0;        ///< number of the next frame to feed
    std::uint64_t nextResult = 0;       ///< number of the next frame to come back
    std::atomic<std::uint64_t> done{0}; ///< no result below this number will come any more

    std::mutex mutex;
    std::condition_variable wake;     ///< of the worker: `awake` or `closing` has changed
    std::condition_variable progress; ///< of who waits: `done` has changed
    bool awake = false;

    Record runRecord;
    std::thread thread; ///< last: it uses all the others
};

} // namespace tonwerk::c

#endif // TONWERK_C_LIVEWORKER_H
