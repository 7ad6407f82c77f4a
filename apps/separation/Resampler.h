// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_RESAMPLER_H
#define TONWERK_APPS_SEPARATION_RESAMPLER_H

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

namespace tonwerk::app
{

/// Converts an interleaved stereo stream to another sample rate, by linear-phase filters of 24-bit quality.
/// It compensates the filters' delay: frame n of the result belongs to second n / (new rate) of the stream.
class Resampler
{
public:
    /// Rates in Hz; they must differ.
    Resampler(unsigned fromRate, unsigned toRate);
    ~Resampler();

    Resampler(Resampler&&) noexcept;
    Resampler& operator=(Resampler&&) noexcept;

    /// Takes the next samples, which must be finite, and appends the new output to `result`.
    void feed(std::span<const float> stereo, std::vector<float>& result);

    /// Ends the stream: feeds silence until `frames` frames have been returned in total.
    void finish(std::uint64_t frames, std::vector<float>& result);

private:
    struct Channels;

    std::unique_ptr<Channels> channels;
    std::uint64_t returned = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_RESAMPLER_H
