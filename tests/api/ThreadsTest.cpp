// SPDX-License-Identifier: MIT
// What the public header promises to hosts with several threads: meant for the thread sanitizer, but the
// results must be right as well.

#include <array>
#include <thread>

#include "api/ApiFixture.h"

namespace
{

using Threads = ApiOnFakeBackend;

constexpr std::size_t length = 600000;
constexpr std::size_t blockLength = 65536;

} // namespace

TEST_F(Threads, StreamsOfDifferentContextsRunSideBySide)
{
    const Stereo input = noise(length);
    const std::array contexts{loadContext("gains.onnx"), loadContext("gains.onnx")};
    const StreamResult alone = separate(contexts[0], input);
    std::array<StreamResult, 2> results;
    {
        const std::jthread one([&] { results[0] = separate(contexts[0], input); });
        const std::jthread other([&] { results[1] = separate(contexts[1], input); });
    }
    for (const StreamResult& result : results)
        for (std::size_t stem = 0; stem < stemCount; ++stem)
            EXPECT_EQ(largestDifference(result.stems[stem], alone.stems[stem]), 0) << "stem " << stem;
}

TEST_F(Threads, StreamsOfOneContextTakeTurnsOnAnyThread)
{
    const Stereo input = noise(length);
    const auto context = loadContext("gains.onnx");
    const StreamResult alone = separate(context, input);
    std::array<Stream, 2> streams{Stream(context), Stream(context)};
    for (std::size_t position = 0; position < length; position += blockLength)
    {
        const Stereo block = slice(input, position, std::min(blockLength, length - position));
        for (Stream& stream : streams)
            std::jthread([&] { stream.feed(block, position + blockLength >= length); }).join();
    }
    for (const Stream& stream : streams)
        for (std::size_t stem = 0; stem < stemCount; ++stem)
            EXPECT_EQ(largestDifference(stream.stem(stem), alone.stems[stem]), 0) << "stem " << stem;
}
