// SPDX-License-Identifier: MIT
#include "c/StreamInference.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>

#include "common/Log.h"

namespace tonwerk::c
{

namespace
{

/// The turn on a context's model, given back at the end.
class Turn
{
public:
    Turn(RunTurns& turns, const std::atomic<bool>& cancelled) : turns(turns)
    {
        if (!turns.enter([&] { return cancelled.load(); }))
            throw RunCancelled();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() { turns.leave(); }

private:
    RunTurns& turns;
};

} // namespace

StreamInference::StreamInference(std::shared_ptr<Context> context, StemFlags flags)
    : context(std::move(context)), flags(flags), runSwitch(this->context->model().makeRunSwitch())
{
}

bool StreamInference::run(const float* input, std::vector<float*> outputs,
                          const std::array<std::int64_t, 4>& shape)
{
    const Turn turn(context->turns(), cancelled);
    const auto begin = std::chrono::steady_clock::now();
    const bool done = context->measured([&] { return evaluate(input, outputs, shape); });
    if (isCancelled())
        throw RunCancelled();
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    runRecord.lastSeconds = taken.count();
    runRecord.worstSeconds = std::max(runRecord.worstSeconds, taken.count());
    ++runRecord.runs;
    if (done)
        return true;
    ++runRecord.failedRuns;
    const auto count = static_cast<std::size_t>(shape[0] * shape[1] * shape[2] * shape[3]);
    for (float* output : outputs)
        std::fill_n(output, count, 0.0F);
    return true;
}

bool StreamInference::evaluate(const float* input, const std::vector<float*>& outputs,
                               const std::array<std::int64_t, 4>& shape)
{
    try
    {
        context->model().evaluate(input, outputs, shape, flags, *runSwitch);
        return true;
    }
    catch (const std::bad_alloc&)
    {
        throw;
    }
    catch (const std::exception& failure)
    {
        if (!isCancelled())
        {
            TONWERK_LOG_AS("tonwerk_stream", error)
                << "A run of the model has failed; its stems are silent: " << failure.what();
        }
        return false;
    }
}

void StreamInference::cancel()
{
    {
        const std::lock_guard lock(switching);
        cancelled = true;
        runSwitch->stop();
    }
    context->turns().reconsider();
}

void StreamInference::interrupt() noexcept
{
    cancelled = true;
    runSwitch->stop();
}

void StreamInference::allow()
{
    const std::lock_guard lock(switching);
    runSwitch->allow();
    cancelled = false;
}

} // namespace tonwerk::c
