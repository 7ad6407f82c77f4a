// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_STEMQUEUE_H
#define TONWERK_C_STEMQUEUE_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace tonwerk::c
{

/// Stems that are completed and wait to be read, of all stems the same stretch. Samples are interleaved.
class StemQueue
{
public:
    using Stems = std::vector<std::vector<float>>;

    /// Appends a result of StreamFeeder; one without vectors changes nothing.
    void push(Stems&& stems);

    /// Frames that can be read.
    std::uint64_t available() const { return frames; }

    /// Copies out up to `wanted` frames of every stem whose target is not null, and forgets them.
    /// \return the frames read
    std::size_t read(float* const* targets, std::size_t wanted) noexcept;

private:
    std::deque<Stems> results;
    std::size_t position = 0; // frames of the first result that have been read
    std::uint64_t frames = 0;
};

} // namespace tonwerk::c

#endif // TONWERK_C_STEMQUEUE_H
