// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_NETWORKRUNNER_H
#define TONWERK_APPS_TOOLS_NETWORKRUNNER_H

#include <array>
#include <cstdint>
#include <vector>

#include "inference/ModelContract.h"
#include "inference/OrtApi.h"

namespace tonwerk::app
{

/// Runs a network with buffers bound as the library binds them, but does not silence stems without a flag.
class NetworkRunner
{
public:
    /// A result per stem, in the order of contractOutputs.
    using Results = std::array<std::vector<float>, contractOutputs.size()>;
    using Flags = std::array<bool, contractOutputs.size()>;

    /// \param session of a network that keeps to the contract; must outlive this object
    explicit NetworkRunner(Ort::Session& session);

    /// \param input spectrogram of spectrogramShape
    /// \return the run's time in seconds
    /// \throws Ort::Exception if the runtime cannot run the network
    double run(const std::vector<float>& input, Flags flags);

    /// The outputs of the last run.
    const Results& results() const { return outputs; }

private:
    Ort::Session& session;
    std::vector<std::int64_t> outputShape;
    Results outputs;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_NETWORKRUNNER_H
