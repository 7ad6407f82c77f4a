// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_ISHAREDMODEL_H
#define TONWERK_INFERENCE_ISHAREDMODEL_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "inference/StemFlags.h"

/// Ends the runs of one user of a model, from any thread. Calls of stop() and allow() must not overlap.
class IRunSwitch
{
public:
    IRunSwitch() = default;
    IRunSwitch(const IRunSwitch&) = delete;
    IRunSwitch& operator=(const IRunSwitch&) = delete;
    virtual ~IRunSwitch() = default;

    /// The run that is under way fails soon, and every later one at once.
    virtual void stop() = 0;

    /// Later runs may go on again.
    virtual void allow() = 0;
};

/// What is known of a loaded model.
struct ModelFacts
{
    /// The runtime's name of the execution provider that runs it: never one that left it to the CPU.
    std::string provider;
    std::map<std::string, std::string> metadata; ///< what the model's file says of itself, by key
};

/// A network that several users share. What a run computes and how it ended is said run by run.
///
/// evaluate() is not thread-safe: users take turns. The rest may be called from any thread.
class ISharedModel
{
public:
    ISharedModel() = default;
    ISharedModel(const ISharedModel&) = delete;
    ISharedModel& operator=(const ISharedModel&) = delete;
    virtual ~ISharedModel() = default;

    /// Evaluates the network once; input, outputs and shape as IInference::run takes them.
    ///
    /// \param flags     the stems of this run: afterwards the buffers of all others hold zeros
    /// \param runSwitch one that this model has made
    /// \throws std::exception if the run failed or was stopped: whatever is in the buffers is no result
    virtual void evaluate(const float* input, const std::vector<float*>& outputs,
                          const std::array<std::int64_t, 4>& shape, StemFlags flags,
                          const IRunSwitch& runSwitch) = 0;

    /// A switch for a new user, in the state that allow() leaves. It may outlive the model.
    virtual std::unique_ptr<IRunSwitch> makeRunSwitch() const = 0;

    virtual const ModelFacts& facts() const = 0;
};

#endif // TONWERK_INFERENCE_ISHAREDMODEL_H
