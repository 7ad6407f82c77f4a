#include <algorithm>
#include <cmath>

#include "api/ApiFixture.h"

namespace
{

class TonwerkProcStream : public ApiOnFakeBackend
{
protected:
    /// Soft noise with a louder sample every 10,000, first and last among them.
    static Array impulsesInNoise(std::size_t length)
    {
        Array signal = smoothNoise(2, length, static_cast<std::uint32_t>(length));
        for (auto& sample : signal)
            sample *= 0.05F;
        for (std::size_t i = 0; i < length; i += 10000)
        {
            signal(0, i) = 0.1F;
            signal(1, length - 1 - i) = -0.1F;
        }
        return signal;
    }
};

class TonwerkProcLengths : public TonwerkProcStream, public ::testing::WithParamInterface<std::size_t>
{
};

} // namespace

INSTANTIATE_TEST_SUITE_P(TonwerkProc, TonwerkProcLengths,
                         ::testing::Values(1, 2, 1023, 1024, 1025, 4095, 4096, 4097, 50000, 257023, 257024,
                                           257025, 300000, 1200000));

TEST_P(TonwerkProcLengths, TheMixIsTheInputSampleForSampleAndResidualIsWhatItMisses)
{
    const Array signal = impulsesInNoise(GetParam());
    tonwerk::TonwerkProc processor(makeContext(), allStems(true));
    const auto stems = separate(processor, signal, true);
    for (std::size_t channel = 0; channel < 2; ++channel)
    {
        const auto expected = row(signal, channel);
        // An impulse loses the Nyquist component of its frames, 0.1 / 4096; at the ends with two mirror
        // images.
        EXPECT_TRUE(samplesNear(row(stems[mix], channel), expected, 1e-4));
        for (std::size_t stem = 0; stem < modelStems; ++stem)
        {
            std::vector<float> scaled(expected.begin(), expected.end());
            for (float& sample : scaled)
                sample *= gains[stem];
            EXPECT_TRUE(samplesNear(row(stems[stem], channel), scaled, 1e-4)) << "stem " << stem;
        }
        for (std::size_t i = 0; i < expected.size(); ++i)
            ASSERT_EQ(stems[residual](channel, i), expected[i] - stems[mix](channel, i)) << i;
    }
}

TEST_F(TonwerkProcStream, SmoothSignalsComeBackWithinOneTenThousandthOfFullScale)
{
    const Array signal = smoothNoise(2, 600000, 1);
    tonwerk::TonwerkProc processor(makeContext(), allStems(false));
    const auto stems = separate(processor, signal, false);
    for (std::size_t channel = 0; channel < 2; ++channel)
    {
        EXPECT_TRUE(samplesNear(row(stems[mix], channel), row(signal, channel), 1e-4));
        // Away from the stream's ends only single precision limits it.
        EXPECT_TRUE(samplesNear(row(stems[mix], channel).subspan(4096, 600000 - 8192),
                                row(signal, channel).subspan(4096, 600000 - 8192), 2e-6));
    }
}

TEST_F(TonwerkProcStream, InterleavedAndPlanarGiveTheSameSamples)
{
    fakeBackend().model = recipeModel({{0.3, 0.5, 0.0, true}, {0.0, 1.0, 0.0, true}, {0.0, 0.1, 0.2, false}});
    const Array signal = smoothNoise(2, 520000, 1);
    tonwerk::TonwerkProc interleaved(makeContext(), allStems(true));
    tonwerk::TonwerkProc planar(makeContext(), allStems(false));
    const auto interleavedStems = separate(interleaved, signal, true);
    const auto planarStems = separate(planar, signal, false);
    for (std::size_t stem = 0; stem < 8; ++stem)
        EXPECT_EQ(interleavedStems[stem], planarStems[stem]) << "stem " << stem;
}

TEST_F(TonwerkProcStream, TheMixIsTheSumOfTheStemsInTheirOrder)
{
    tonwerk::TonwerkProc processor(makeContext(), allStems(false));
    const Array signal = smoothNoise(2, 10000, 1);
    const Stems stems = processor.process(layOut(signal, 0, 10000, false), true);
    ASSERT_EQ(stems.size(), 8U);
    std::size_t orderMatters = 0;
    for (std::size_t i = 0; i < 20000; ++i)
    {
        float sum = stems[0][i];
        float backwards = stems[5][i];
        for (std::size_t stem = 1; stem < modelStems; ++stem)
        {
            sum += stems[stem][i];
            backwards += stems[5 - stem][i];
        }
        ASSERT_EQ(stems[mix][i], sum) << i;
        orderMatters += sum != backwards ? 1U : 0U;
    }
    EXPECT_GT(orderMatters, 0U);
}

TEST_F(TonwerkProcStream, ResultsComeInTheCallsAndLengthsThatTheHeaderStates)
{
    tonwerk::TonwerkProc processor(makeContext(), allStems(true));
    const auto feed = [&](std::size_t frames, bool eof) -> std::size_t
    {
        const Stems stems = processor.process(std::vector<float>(2 * frames), eof);
        EXPECT_TRUE(stems.empty() || stems.size() == 8);
        return stems.empty() ? 0 : stems[7].size() / 2;
    };
    EXPECT_EQ(processor.maxInputSize(), 257024U);
    EXPECT_EQ(feed(257023, false), 0U);
    EXPECT_EQ(processor.maxInputSize(), 257024U);
    EXPECT_EQ(feed(1, false), 252928U);
    EXPECT_EQ(processor.maxInputSize(), 254976U);
    EXPECT_EQ(feed(254976, false), 254976U);
    EXPECT_EQ(feed(0, true), 4096U);
    EXPECT_TRUE(processor.process({}, true).empty());
}

TEST_F(TonwerkProcStream, NothingFedIsNothingReturned)
{
    for (const bool interleaved : {false, true})
    {
        tonwerk::TonwerkProc processor(makeContext(), allStems(interleaved));
        EXPECT_TRUE(processor.process({}, false).empty());
        EXPECT_TRUE(processor.process({}, true).empty());
        EXPECT_TRUE(processor.process({}, true).empty());
    }
}

TEST_F(TonwerkProcStream, AnOddLastSampleIsIgnored)
{
    for (const bool interleaved : {false, true})
    {
        tonwerk::TonwerkProc even(makeContext(), allStems(interleaved));
        tonwerk::TonwerkProc odd(makeContext(), allStems(interleaved));
        std::vector<float> samples = layOut(smoothNoise(2, 5000, 1), 0, 5000, interleaved);
        const Stems expected = even.process(samples, true);
        samples.push_back(0.5F);
        samples.shrink_to_fit();
        EXPECT_EQ(odd.process(samples, true), expected);
        ASSERT_EQ(expected.size(), 8U);
        EXPECT_EQ(expected[0].size(), 10000U);
        EXPECT_TRUE(tonwerk::TonwerkProc(makeContext(), allStems(interleaved)).process({1.0F}, true).empty());
    }
}

TEST_F(TonwerkProcStream, SamplesThatAreNotFiniteStayWithinTheReachThatTheHeaderStates)
{
    constexpr std::size_t length = 300000;
    constexpr std::size_t position = 252000; // within the overlap of two chunks
    Array signal = smoothNoise(2, length, 1);
    tonwerk::TonwerkProc untouched(makeContext(), allStems(true));
    const auto expected = separate(untouched, signal, true);
    signal(0, position) = std::nanf("");
    tonwerk::TonwerkProc processor(makeContext(), allStems(true));
    const auto stems = separate(processor, signal, true);
    for (std::size_t stem = 0; stem < 8; ++stem)
    {
        EXPECT_TRUE(samplesNear(row(stems[stem], 1), row(expected[stem], 1), 0.0)) << "the other channel";
        for (std::size_t i = 0; i < length; ++i)
        {
            ASSERT_EQ(std::isfinite(stems[stem](0, i)), stem != residual || i != position) << i;
            if (i + 4096 <= position || i >= position + 4096)
            {
                ASSERT_EQ(stems[stem](0, i), expected[stem](0, i)) << i;
            }
        }
    }
}
