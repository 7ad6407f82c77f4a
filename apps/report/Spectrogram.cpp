// SPDX-License-Identifier: MIT
#include "report/Spectrogram.h"

#include <algorithm>
#include <cmath>

#include "spectral/WindowFunctions.h"

namespace tonwerk::app
{

namespace
{

constexpr std::size_t fftSize = 4096;
constexpr std::size_t hop = 1024;
/// More than an image has pixels: at least half of the columns are in use once a song is a minute long.
constexpr std::size_t maxColumns = 2048;
/// The powers of louder samples are no numbers any more.
constexpr float loudest = 1e15F;
/// Black is this far below the brightest colour.
constexpr double rangeInDecibels = 80.0;

/// From black over violet and orange to pale yellow. Brightness grows evenly, so that the image can be read
/// without seeing colours.
constexpr std::array<Color, 9> shades{{{7, 7, 17, 255},
                                       {28, 16, 68, 255},
                                       {79, 18, 123, 255},
                                       {129, 37, 129, 255},
                                       {181, 54, 122, 255},
                                       {229, 80, 100, 255},
                                       {251, 135, 97, 255},
                                       {254, 194, 135, 255},
                                       {252, 253, 191, 255}}};
/// Few enough that the PNGs compress well, and more than the eye can tell apart.
constexpr double shadeSteps = 63.0;

Color shadeOf(double brightness)
{
    const double step = std::round(std::clamp(brightness, 0.0, 1.0) * shadeSteps) / shadeSteps;
    const double place = step * static_cast<double>(shades.size() - 1);
    const auto lower = std::min(static_cast<std::size_t>(place), shades.size() - 2);
    const double part = place - static_cast<double>(lower);
    const auto mixed = [part](std::uint8_t from, std::uint8_t to)
    { return static_cast<std::uint8_t>(std::lround(from + part * (to - from))); };
    const Color& from = shades.at(lower);
    const Color& to = shades.at(lower + 1);
    return {mixed(from.red, to.red), mixed(from.green, to.green), mixed(from.blue, to.blue), 255};
}

} // namespace

double Spectrogram::highestFrequency(unsigned sampleRate)
{
    constexpr double enough = 18000.0;
    return std::min(enough, 0.45 * static_cast<double>(sampleRate));
}

Spectrogram::Spectrogram(unsigned sampleRate)
    : transformer(fftSize, false), window(makeWindow(WindowType::Hann, static_cast<std::int32_t>(fftSize))),
      binPowers(fftSize / 2), pending(fftSize) // half a window of silence before the first sample
{
    const double octaves = std::log2(highestFrequency(sampleRate) / lowestFrequency);
    const auto binAt = [&](double row)
    {
        const double frequency = lowestFrequency * std::exp2(octaves * row / static_cast<double>(rowCount));
        return frequency * static_cast<double>(fftSize) / static_cast<double>(sampleRate);
    };
    for (std::size_t row = 0; row < rowCount; ++row)
    {
        const double low = binAt(static_cast<double>(row));
        const double high = binAt(static_cast<double>(row + 1));
        const double middle = 0.5 * (low + high);
        const bool narrow = std::ceil(low) >= std::floor(high);
        const auto first = static_cast<std::size_t>(narrow ? std::floor(middle) : std::ceil(low));
        const auto last = narrow ? first + 1 : static_cast<std::size_t>(std::floor(high));
        bins.push_back({first, last, narrow ? middle - std::floor(middle) : -1.0});
    }
    columns.reserve(maxColumns);
}

void Spectrogram::feed(std::span<const float> stereo)
{
    frames += stereo.size() / 2;
    while (!stereo.empty())
    {
        const std::size_t count = std::min(stereo.size(), 2 * fftSize - pending.size());
        for (const float sample : stereo.first(count))
            pending.push_back(std::isfinite(sample) ? std::clamp(sample, -loudest, loudest) : 0.0F);
        stereo = stereo.subspan(count);
        if (pending.size() == 2 * fftSize)
            addSpectrum();
    }
}

void Spectrogram::finish()
{
    const std::uint64_t length = frames;
    feed(std::vector<float>(fftSize));
    frames = length;
}

void Spectrogram::addSpectrum()
{
    if (columns.empty() || columns.back().spectra == spectraPerColumn)
    {
        if (columns.size() == maxColumns)
            mergePairs();
        columns.emplace_back();
    }
    for (std::size_t channel = 0; channel < 2; ++channel)
        addChannel(channel, columns.back().powers);
    ++columns.back().spectra;
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(2 * hop));
}

void Spectrogram::addChannel(std::size_t channel, Rows& powers)
{
    const std::span<float> input = transformer.inputRow();
    for (std::size_t sample = 0; sample < fftSize; ++sample)
        input[sample] = window[sample] * pending[2 * sample + channel];
    const std::span<const float> packed = transformer.forwardRow();
    // Half of a sine's amplitude goes to its negative frequency, and a Hann window halves it again.
    constexpr float scale = 4.0F / static_cast<float>(fftSize);
    for (std::size_t bin = 0; bin < binPowers.size(); ++bin)
    {
        const float real = scale * packed[2 * bin];
        const float imaginary = scale * packed[2 * bin + 1];
        binPowers[bin] = real * real + imaginary * imaginary;
    }
    for (std::size_t row = 0; row < rowCount; ++row)
        powers.at(row) += powerOf(bins[row]);
}

float Spectrogram::powerOf(const BinRange& range) const
{
    if (range.fraction < 0.0)
        return *std::max_element(&binPowers[range.first], &binPowers[range.last] + 1);
    const auto part = static_cast<float>(range.fraction);
    return (1.0F - part) * binPowers[range.first] + part * binPowers[range.last];
}

void Spectrogram::mergePairs()
{
    for (std::size_t pair = 0; pair < columns.size() / 2; ++pair)
    {
        const Column later = columns[2 * pair + 1];
        Column& merged = columns[pair] = columns[2 * pair];
        for (std::size_t row = 0; row < rowCount; ++row)
            merged.powers.at(row) += later.powers.at(row);
        merged.spectra += later.spectra;
    }
    columns.resize(columns.size() / 2);
    spectraPerColumn *= 2;
}

double Spectrogram::peakPower() const
{
    double largest = 0.0;
    for (const Column& column : columns)
        for (const float power : column.powers)
            largest = std::max(largest, static_cast<double>(power) / static_cast<double>(column.spectra));
    return largest;
}

Image Spectrogram::draw(std::size_t width, double referencePower) const
{
    Image image(width, rowCount);
    const double framesPerColumn = static_cast<double>(hop * spectraPerColumn);
    for (std::size_t pixel = 0; pixel < width; ++pixel)
    {
        const double frame =
            (static_cast<double>(pixel) + 0.5) / static_cast<double>(width) * static_cast<double>(frames);
        // A spectrum shows the time around the middle of its window.
        const auto place =
            static_cast<std::size_t>((frame + 0.5 * static_cast<double>(hop)) / framesPerColumn);
        if (columns.empty())
            break;
        const Column& column = columns[std::min(place, columns.size() - 1)];
        for (std::size_t row = 0; row < rowCount; ++row)
        {
            const double power =
                static_cast<double>(column.powers.at(row)) / static_cast<double>(column.spectra);
            const double decibels = 10.0 * std::log10(power / referencePower);
            image.at(pixel, rowCount - 1 - row) = shadeOf(1.0 + decibels / rangeInDecibels);
        }
    }
    return image;
}

} // namespace tonwerk::app
