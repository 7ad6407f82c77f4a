// SPDX-License-Identifier: MIT
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
