// SPDX-License-Identifier: MIT
// The public class runs its model in one geometry; a stream of that geometry gives the same bits.
#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <tonwerk/StreamFeeder.h>

#include "inference/InferenceBackend.h"
#include "pipeline/SteppedStream.h"
#include "support/FakeBackend.h"
#include "support/Noise.h"

namespace
{

constexpr std::size_t stems = 6;
constexpr std::size_t channels = 2;

/// Planar samples of each stem, joined: channel by channel.
using Samples = std::vector<std::vector<float>>;

Samples throughThePublicClass(const std::vector<float>& left, const std::vector<float>& right)
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = config.drum = config.piano = config.acousticGuitar = config.electricGuitar = config.bass =
        1;
    config.channels = channels;
    const char model = 0;
    tonwerk::StreamFeeder feeder(
        std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{&model, 1, {}}), config);
    Samples rows(channels * stems);
    const auto append = [&rows](const tonwerk::StreamFeeder::Stems& result)
    {
        for (std::size_t row = 0; !result.empty() && row < rows.size(); ++row)
        {
            const auto& stem = result[row / channels];
            const auto half = static_cast<std::ptrdiff_t>(stem.size() / channels);
            const auto first = stem.begin() + static_cast<std::ptrdiff_t>(row % channels) * half;
            rows[row].insert(rows[row].end(), first, first + half);
        }
    };
    constexpr std::size_t blockLength = 50'000;
    for (std::size_t position = 0; position < left.size(); position += blockLength)
    {
        const std::size_t count = std::min(blockLength, left.size() - position);
        const auto begin = static_cast<std::ptrdiff_t>(position);
        std::vector<float> block(left.begin() + begin,
                                 left.begin() + begin + static_cast<std::ptrdiff_t>(count));
        block.insert(block.end(), right.begin() + begin,
                     right.begin() + begin + static_cast<std::ptrdiff_t>(count));
        append(feeder.feed(block));
    }
    append(feeder.finish());
    return rows;
}

Samples throughASteppedStream(const std::vector<float>& left, const std::vector<float>& right)
{
    const char model = 0;
    const auto backend = makeInferenceBackend(&model, 1, {}, {}, "");
    setSelectedStems(backend, {true, true, true, true, true, true});
    SteppedStream stream(backend, {249, 1, 0});
    Samples rows(channels * stems);
    const auto append = [&rows](const SampleRows& result)
    {
        for (std::size_t row = 0; result.length > 0 && row < rows.size(); ++row)
            rows[row].insert(rows[row].end(), result.row(row), result.row(row) + result.length);
    };
    std::vector<float> planar(left);
    planar.insert(planar.end(), right.begin(), right.end());
    for (std::size_t position = 0; position < left.size();)
    {
        const std::size_t count =
            std::min({std::size_t{777}, left.size() - position, stream.samplesUntilResult()});
        append(stream.feed({planar.data() + position, channels, count, left.size(), 1}));
        position += count;
    }
    append(stream.finish());
    return rows;
}

} // namespace

TEST(OrdinaryGeometry, GivesTheBitsOfThePublicClass)
{
    fakeBackend() = FakeBackend{};
    fakeBackend().model = recipeModel({{0.0, 1.0, 0.0}, {0.2, 0.5, 0.3, true}, {-0.4, 0.9, 0.1, true}});
    std::mt19937 generator(1);
    for (const std::size_t length : {std::size_t{1}, std::size_t{30'001}, std::size_t{600'123}})
    {
        const std::vector<float> left = smoothNoise(length, generator);
        const std::vector<float> right = smoothNoise(length, generator);
        EXPECT_EQ(throughASteppedStream(left, right), throughThePublicClass(left, right))
            << length << " samples";
    }
}
