// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_IINFERENCE_H
#define TONWERK_INFERENCE_IINFERENCE_H

#include <array>
#include <cstdint>
#include <vector>

/// The seam between the signal pipeline and the neural network.
///
/// Not thread-safe: callers that share one instance take turns.
class IInference
{
public:
    IInference() = default;
    IInference(const IInference&) = delete;
    IInference& operator=(const IInference&) = delete;
    virtual ~IInference() = default;

    /// Evaluates the network once, on the caller's memory: nothing is copied in either direction.
    ///
    /// \param input  contiguous spectrogram of the given shape
    /// \param outputs one buffer per model output, in output order, each with room for as many floats as the
    ///               input has; afterwards the buffers of stems that are not selected hold zeros, and after
    ///               a failed evaluation the others what it left there, at worst what they held before
    /// \param shape  {1, 2 * channels, frames, bins}: plane 2c holds the real and plane 2c + 1 the imaginary
    ///               parts of channel c, frames oldest first, bins from DC upward without Nyquist
    /// \return false if there are no outputs to go on with. The network's own backend always returns true: a
    ///         failed evaluation is logged, and the caller goes on with what is in the buffers
    /// \throws what keeps an evaluation from being begun, such as outputs of another shape
    virtual bool run(const float* input, std::vector<float*> outputs,
                     const std::array<std::int64_t, 4>& shape) = 0;
};

#endif // TONWERK_INFERENCE_IINFERENCE_H
