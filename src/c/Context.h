// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_CONTEXT_H
#define TONWERK_C_CONTEXT_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "c/LogRoute.h"
#include "c/RunTurns.h"
#include "inference/InferenceBackend.h"
#include "inference/ProcessMemory.h"

namespace tonwerk::c
{

/// A loaded model, what its streams share. Streams keep it alive.
class Context
{
public:
    /// \param model, size the serialized model; read only during the call
    /// \param key         unscrambles it; empty: it is plain
    /// \throws what makeSharedModel throws
    Context(const void* model, std::size_t size, const std::string& key, const SessionChoices& choices,
            std::shared_ptr<const LogTarget> target);
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
    ~Context();

    ISharedModel& model() { return *shared; }

    /// Who evaluates the model takes a turn.
    RunTurns& turns() { return runTurns; }

    /// Where the lines of its calls go.
    const std::shared_ptr<const LogTarget>& log() const { return target; }

    /// Fills all but the size.
    void tell(tonwerk_context_info& info) const;

    /// An entry of the model's metadata; null if there is none.
    const char* metadata(const char* key) const;

    /// Calls `run`, in the caller's turn on the model. The first time, what the process grows by counts as
    /// the model's.
    template <typename Run>
    bool measured(Run run)
    {
        if (std::exchange(hasRun, true))
            return run();
        const std::uint64_t before = residentBytes();
        const bool done = run();
        memory += grownSince(before);
        return done;
    }

    /// Newest frames of a run that the model computes.
    std::size_t rows() const;

private:
    std::uint32_t number(const char* key, std::uint32_t otherwise) const;
    std::uint32_t stems() const;
    static std::uint64_t grownSince(std::uint64_t before);

    std::shared_ptr<const LogTarget> target;
    SessionChoices choices;
    std::uint64_t modelSize;
    std::shared_ptr<ISharedModel> shared;
    RunTurns runTurns;
    bool hasRun = false;
    std::atomic<std::uint64_t> memory{0};
};

} // namespace tonwerk::c

#endif // TONWERK_C_CONTEXT_H
