// SPDX-License-Identifier: MIT
// Whole streams through the library on a runtime that fails on request.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "inference/BackendFixture.h"
#include "support/Stream.h"

namespace
{

constexpr std::size_t frame = 4096;
constexpr std::size_t never = SIZE_MAX;
// What the calls return that feed a stream of `length` in blocks of maxInputSize().
constexpr std::size_t length = 800000;
constexpr std::size_t ends[]{0, 252928, 507904, 762880, length};

// The newest frame of each run's segment ends here.
constexpr std::size_t segmentEnds[]{257024, 512000, 766976, 804864};

struct Failing
{
    const char* name;
    std::set<std::string> failing;
    std::map<std::size_t, std::size_t> chunks; ///< whose run fails, and the last run before it that did not
};

/// The signal `frames` later, after silence, cut to its length.
Stereo delayed(const Stereo& signal, std::size_t frames)
{
    Stereo later = silence(signal.size());
    std::copy(signal.left.begin(), signal.left.end() - static_cast<std::ptrdiff_t>(frames),
              later.left.begin() + static_cast<std::ptrdiff_t>(frames));
    std::copy(signal.right.begin(), signal.right.end() - static_cast<std::ptrdiff_t>(frames),
              later.right.begin() + static_cast<std::ptrdiff_t>(frames));
    return later;
}

class FailingStream : public BackendFixture, public ::testing::WithParamInterface<Failing>
{
protected:
    std::size_t errorLines() const { return log.lines(plog::error).size(); }
};

// What a run leaves alone stays in its buffers: the segment of the run before, heard once more.
TEST_P(FailingStream, RepeatsAnEarlierSegmentInThoseChunksAndNowhereElse)
{
    const Stereo input = noise(length);
    const StreamResult whole = separate(loadContext("gains.onnx"), input);
    standin.runAttempts = 0;
    standin.failing = GetParam().failing;
    log.clear();
    const StreamResult result = separate(loadContext("gains.onnx"), input);

    EXPECT_EQ(result.lengths, whole.lengths);
    EXPECT_EQ(errorLines(), GetParam().chunks.size()) << "one failure, one line";
    for (std::size_t chunk = 0; chunk < std::size(ends) - 1; ++chunk)
    {
        const auto failed = GetParam().chunks.find(chunk);
        // The frames at the joins reach less than their own length into the neighbours' chunks.
        const std::size_t first = ends[chunk] + frame;
        const std::size_t last = std::max(first, ends[chunk + 1] - frame);
        for (std::size_t stem = 0; stem < modelGains.size(); ++stem)
        {
            Stereo expected = whole.stems[stem];
            if (failed != GetParam().chunks.end())
                expected = failed->second == never
                               ? silence(length)
                               : delayed(expected, segmentEnds[chunk] - segmentEnds[failed->second]);
            EXPECT_EQ(largestDifference(result.stems[stem], expected, first, last), 0)
                << "chunk " << chunk << ", stem " << stem;
        }
    }
    for (std::size_t i = 0; i < length; ++i)
        ASSERT_NEAR(result.stems[residual].left[i] + result.stems[mix].left[i], input.left[i],
                    i < frame || i + frame > length ? 1e-4F : 1e-6F)
            << "the residual is what the stems leave of the song, sample " << i;
}

INSTANTIATE_TEST_SUITE_P(Stream, FailingStream,
                         ::testing::Values(Failing{"WhereTheFirstRunFails", {"run1"}, {{0, never}}},
                                           Failing{"WhereTheSecondRunFails", {"run2"}, {{1, 0}}},
                                           Failing{"WhereTwoInARowFail", {"run2", "run3"}, {{1, 0}, {2, 0}}},
                                           Failing{"WhereTheLastRunFails", {"run4"}, {{3, 2}}},
                                           Failing{"WhereEveryRunFails",
                                                   {"Run"},
                                                   {{0, never}, {1, never}, {2, never}, {3, never}}}),
                         [](const auto& test) { return std::string(test.param.name); });

// A run that cannot even begin is an exception for the host, which may go on with the stream.
TEST_F(FailingStream, OfACallThatThrewGoesOnWithTheNextBlock)
{
    const Stereo input = noise(length);
    Stream stream(loadContext("gains.onnx"));
    stream.feed(slice(input, 0, 257024));
    standin.failing = {"CreateRunOptions"};
    EXPECT_THROW(stream.feed(slice(input, 257024, 254976)), Ort::Exception);
    standin.failing.clear();
    EXPECT_EQ(stream.feed(slice(input, 512000, 254976)), 254976U);
    EXPECT_EQ(stream.feed(silence(0), true), frame);
}

} // namespace
