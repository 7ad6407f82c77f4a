// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_NULLMETER_H
#define TONWERK_APPS_SEPARATION_NULLMETER_H

#include <cstdint>
#include <span>
#include <vector>

namespace tonwerk::app
{

/// Checks that the stems add up to the song: six model stems plus residual minus input, sample by sample.
/// Keeps the input only until its stems are back, so it takes as much memory for an hour as for a minute.
class NullMeter
{
public:
    /// Takes the next samples of the input, in the order in which the library gets them.
    void feed(std::span<const float> input);

    /// Compares the next result of TonwerkProc::process with the input that it belongs to.
    void compare(const std::vector<std::vector<float>>& stems);

    /// Largest absolute difference so far, 1 being full scale; infinite if a stem is not finite where the
    /// input is.
    double peak() const { return largest; }

    /// Input samples that were NaN or infinite, which have no meaningful difference and are left out.
    std::uint64_t nonFiniteSamples() const { return skipped; }

private:
    std::vector<float> pending;
    double largest = 0.0;
    std::uint64_t skipped = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_NULLMETER_H
