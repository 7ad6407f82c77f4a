// SPDX-License-Identifier: MIT
#include <algorithm>
#include <span>

#include "api/ApiFixture.h"
#include "support/LogCapture.h"

namespace
{

using TonwerkProcTest = ApiOnFakeBackend;

} // namespace

TEST_F(TonwerkProcTest, TheMixIsTheSumOfTheStemsInTheirOrderAndTheResidualIsWhatItMisses)
{
    const Stereo signal = noise(10000);
    const StreamResult result = separate(loadContext("gains.onnx"), signal);
    std::size_t orderMatters = 0;
    for (std::size_t i = 0; i < signal.size(); ++i)
    {
        float sum = result.stems[0].left[i];
        float backwards = result.stems[5].left[i];
        for (std::size_t stem = 1; stem < 6; ++stem)
        {
            sum += result.stems[stem].left[i];
            backwards += result.stems[5 - stem].left[i];
        }
        ASSERT_EQ(result.stems[mix].left[i], sum) << i;
        ASSERT_EQ(result.stems[residual].left[i], signal.left[i] - sum) << i;
        orderMatters += sum != backwards ? 1U : 0U;
    }
    EXPECT_GT(orderMatters, 0U);
}

// The switches are those of the context's processor built last. Nothing is computed for a stem that is off,
// which must not be heard: the stream is the same as if the network had fallen silent for as long.
TEST_F(TonwerkProcTest, ALaterProcessorSwitchesStemsOffAndOnInMidStream)
{
    const Stereo signal = noise(5 * 254976 + 5000);
    std::size_t runs = 0;
    const auto falls = [&](std::size_t stem) { return stem % 2 == 1 && (runs == 2 || runs == 3); };
    const auto gains = fakeBackend().model;
    fakeBackend().model = [&](std::span<const float> input, const std::vector<float*>& outputs,
                              const FakeInference::Shape& shape)
    {
        gains(input, outputs, shape);
        ++runs;
        for (std::size_t stem = 0; stem < outputs.size(); ++stem)
            if (falls(stem))
                std::fill_n(outputs[stem], input.size(), 0.0F);
        return true;
    };
    const StreamResult expected = separate(loadContext("gains.onnx"), signal);
    ASSERT_EQ(runs, 6U);
    const Stereo silentPart = slice(expected.stems[bass], 252928 + 4096, 254976);
    ASSERT_EQ(largestDifference(silentPart, silence(silentPart.size())), 0);

    fakeBackend().model = gains;
    const auto context = loadContext("gains.onnx");
    auto some = allStems();
    some.drum = some.acousticGuitar = some.bass = 0; // every other one
    Stream stream(context);
    std::size_t position = 0;
    for (std::size_t call = 0; call < 6; ++call)
    {
        if (call == 1)
            tonwerk::TonwerkProc(context, some);
        if (call == 3)
            tonwerk::TonwerkProc(context, allStems());
        const std::size_t count =
            std::min<std::size_t>(stream.processor().maxInputSize(), signal.size() - position);
        stream.feed(slice(signal, position, count), position + count == signal.size());
        position += count;
    }
    for (std::size_t stem = 0; stem < stemCount; ++stem)
        EXPECT_EQ(largestDifference(stream.stem(stem), expected.stems[stem]), 0) << "stem " << stem;
}

TEST_F(TonwerkProcTest, AHostsFloatingPointModeIsBackAfterEveryCall)
{
    // Through memory, so that the product is not computed at compile time.
    const auto halfOfADenormal = []
    {
        const volatile float denormal = 1e-40F;
        return denormal * 0.5F;
    };
    const float before = halfOfADenormal();
    ASSERT_GT(before, 0.0F);
    Stream stream(loadContext("gains.onnx"));
    stream.feed(silence(1000));
    EXPECT_EQ(halfOfADenormal(), before);
    EXPECT_THROW(stream.feed(silence(600000)), std::runtime_error);
    EXPECT_EQ(halfOfADenormal(), before);
    stream.feed(scaled(noise(1000), 1e-39F), true);
    EXPECT_EQ(halfOfADenormal(), before);
    EXPECT_EQ(largestDifference(stream.stem(mix), silence(2000)), 0);
}

TEST_F(TonwerkProcTest, TheChannelCountOnlyDividesTheLengthOfInterleavedInput)
{
    const LogCapture log;
    for (const bool interleaved : {true, false})
    {
        auto config = allStems(interleaved);
        config.channels = 4;
        tonwerk::TonwerkProc processor(loadContext("gains.onnx"), config);
        EXPECT_THROW(processor.process(std::vector<float>(8), false), std::exception);
        const std::string api = "DEBUG [tonwerk::TonwerkProcImpl::process] ";
        const std::vector<std::string> lines(log.lines().end() - 3, log.lines().end());
        EXPECT_EQ(lines, (std::vector<std::string>{
                             api + "called with data size: 8, eof=0, channels=4",
                             api + "Processing chunk: input size 2, eof=0",
                             "DEBUG [ChunkProcessor::process] ChunkProcessor::process input shape: 2x" +
                                 std::string(interleaved ? "2" : "4") + ", eof: 0"}));
    }
}
