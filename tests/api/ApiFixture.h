/// \file ApiFixture.h
/// The public interface on the fake backend.
#ifndef TONWERK_TESTS_API_APIFIXTURE_H
#define TONWERK_TESTS_API_APIFIXTURE_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/FakeBackend.h"
#include "support/Signals.h"
#include "tonwerk/TonwerkProc.h"

/// A backend whose stems are the input times gains that sum to 1.
class ApiOnFakeBackend : public ::testing::Test
{
protected:
    using Stems = std::vector<std::vector<float>>;

    static constexpr std::size_t modelStems = 6;
    static constexpr std::size_t residual = 6;
    static constexpr std::size_t mix = 7;

    ApiOnFakeBackend()
    {
        fakeBackend() = FakeBackend{};
        fakeBackend().model = gainModel(gains);
    }

    ~ApiOnFakeBackend() override { fakeBackend() = FakeBackend{}; }

    static std::shared_ptr<tonwerk::InferenceContext> makeContext(const std::string& key = "")
    {
        static const std::string bytes = "the model";
        return std::make_shared<tonwerk::InferenceContext>(
            tonwerk::ModelData{bytes.data(), bytes.size(), key});
    }

    static tonwerk::TonwerkProcConfig allStems(bool interleaved)
    {
        tonwerk::TonwerkProcConfig config{};
        config.vocals = config.drum = config.piano = config.acousticGuitar = config.electricGuitar =
            config.bass = 1;
        config.interleaved = interleaved;
        return config;
    }

    /// The samples [first, first + count) of both channels as a host lays them out.
    static std::vector<float> layOut(const Array& signal, std::size_t first, std::size_t count,
                                     bool interleaved)
    {
        std::vector<float> samples(2 * count);
        for (std::size_t i = 0; i < count; ++i)
        {
            samples[interleaved ? 2 * i : i] = signal(0, first + i);
            samples[interleaved ? 2 * i + 1 : count + i] = signal(1, first + i);
        }
        return samples;
    }

    /// Appends a returned vector to a {2, length} signal at `position`.
    static void append(Array& target, std::size_t position, const std::vector<float>& samples,
                       bool interleaved)
    {
        const std::size_t count = samples.size() / 2;
        ASSERT_LE(position + count, target.shape(1));
        for (std::size_t i = 0; i < count; ++i)
        {
            target(0, position + i) = samples[interleaved ? 2 * i : i];
            target(1, position + i) = samples[interleaved ? 2 * i + 1 : count + i];
        }
    }

    /// Streams a signal in blocks of maxInputSize; returns the eight stems, {2, length} each.
    static std::vector<Array> separate(tonwerk::TonwerkProc& processor, const Array& signal, bool interleaved)
    {
        const std::size_t length = signal.shape(1);
        std::vector<Array> whole(8, Array(xt::zeros<float>({std::size_t{2}, length})));
        std::size_t returned = 0;
        for (std::size_t position = 0; position < length;)
        {
            const auto count =
                std::min(static_cast<std::size_t>(processor.maxInputSize()), length - position);
            const auto block = layOut(signal, position, count, interleaved);
            position += count;
            const Stems stems = processor.process(block, position == length);
            if (stems.empty())
                continue;
            EXPECT_EQ(stems.size(), 8U);
            for (std::size_t stem = 0; stem < stems.size(); ++stem)
            {
                EXPECT_EQ(stems[stem].size(), stems[0].size());
                append(whole[stem], returned, stems[stem], interleaved);
            }
            returned += stems[0].size() / 2;
        }
        EXPECT_EQ(returned, length);
        return whole;
    }

    std::vector<float> gains{0.3F, 0.25F, 0.2F, 0.1F, 0.1F, 0.05F};
};

#endif // TONWERK_TESTS_API_APIFIXTURE_H
