// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_STREAMINFERENCE_H
#define TONWERK_C_STREAMINFERENCE_H

#include <atomic>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>

#include "c/Context.h"
#include "inference/IInference.h"

namespace tonwerk::c
{

/// Ends a call whose stream was cancelled.
class RunCancelled : public std::exception
{
public:
    const char* what() const noexcept override { return "The run was cancelled."; }
};

/// The model as one stream has it: with its own choice of stems, in its turn among the context's other
/// streams, and with a count of how it went. A run that fails gives silence.
class StreamInference : public IInference
{
public:
    /// How the runs of a stream went, since its beginning or its last reset.
    struct Record
    {
        std::uint64_t runs = 0;
        std::uint64_t failedRuns = 0;
        double lastSeconds = 0.0;
        double worstSeconds = 0.0;
    };

    StreamInference(std::shared_ptr<Context> context, StemFlags flags);

    /// Always true: a failure is logged and counted, and silence in all outputs is the answer.
    /// \throws RunCancelled if the stream was cancelled before or meanwhile
    /// \throws std::bad_alloc before the model has run
    bool run(const float* input, std::vector<float*> outputs,
             const std::array<std::int64_t, 4>& shape) override;

    /// From any thread: a run that waits or is under way ends, and no other one begins until allow().
    void cancel();

    /// cancel() for a thread that must not wait: wait-free, but a run that waits for its turn waits on, and
    /// only then ends. Must not overlap with cancel() or allow().
    void interrupt() noexcept;

    /// Runs may begin again.
    void allow();

    bool isCancelled() const { return cancelled.load(); }

    const Record& record() const { return runRecord; }
    void clearRecord() { runRecord = {}; }

private:
    bool evaluate(const float* input, const std::vector<float*>& outputs,
                  const std::array<std::int64_t, 4>& shape);

    std::shared_ptr<Context> context;
    StemFlags flags;
    std::mutex switching; ///< held while the switch is moved
    std::unique_ptr<IRunSwitch> runSwitch;
    std::atomic<bool> cancelled{false};
    Record runRecord;
};

} // namespace tonwerk::c

#endif // TONWERK_C_STREAMINFERENCE_H
