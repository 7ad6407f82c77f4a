// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_NULLMETER_H
#define TONWERK_APPS_SEPARATION_NULLMETER_H

#include <cstdint>
#include <span>
#include <vector>

namespace tonwerk::app
{

/// Null test: measures six model stems + residual - input, sample by sample, which is 0 if the stems add up
/// to the song. It keeps the input only until its stems are back, so its memory does not grow with the song.
class NullMeter
{
public:
    /// Takes the next samples of the input, in the order in which the library gets them.
    void feed(std::span<const float> input);

    /// Compares the next stems with the input that it belongs to.
    void compare(const std::vector<std::vector<float>>& stems);

    /// Largest absolute difference so far, 1 being full scale; infinite if a stem is not finite where the
    /// input is.
    double peak() const { return largest; }

    /// Number of input samples that were NaN or infinite; the test leaves them out.
    std::uint64_t nonFiniteSamples() const { return skipped; }

private:
    std::vector<float> pending;
    double largest = 0.0;
    std::uint64_t skipped = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_NULLMETER_H
