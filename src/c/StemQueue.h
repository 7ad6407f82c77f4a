// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_STEMQUEUE_H
#define TONWERK_C_STEMQUEUE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "common/SampleRows.h"

namespace tonwerk::c
{

/// Stems that are completed and wait to be read: of all eight the same stretch, residual and mix among them.
class StemQueue
{
public:
    /// Appends a result of SteppedStream; one without samples changes nothing.
    /// \throws std::bad_alloc; nothing has changed then
    void push(const SampleRows& result);

    /// Forgets everything.
    void clear();

    /// Frames that can be read.
    std::uint64_t available() const { return frames; }

    /// Copies out up to `wanted` frames and forgets them.
    /// \param targets for each stem a buffer of interleaved samples, or null
    /// \return the frames read
    std::size_t readInterleaved(float* const* targets, std::size_t wanted) noexcept;

    /// The same for one buffer per channel: the left ones at the even places, the right ones behind them.
    std::size_t readPlanar(float* const* targets, std::size_t wanted) noexcept;

private:
    /// What one run has completed, row by row: left and right of every stem.
    struct Stretch
    {
        std::vector<float> samples;
        std::size_t length;

        const float* row(std::size_t index) const { return samples.data() + index * length; }
    };

    template <typename Copy>
    std::size_t read(std::size_t wanted, Copy copy) noexcept;

    std::deque<Stretch> stretches;
    std::size_t position = 0; // frames of the first stretch that have been read
    std::uint64_t frames = 0;
};

} // namespace tonwerk::c

#endif // TONWERK_C_STEMQUEUE_H
