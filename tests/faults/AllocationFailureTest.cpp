// SPDX-License-Identifier: MIT
// Memory that runs out at every point where the library asks for some, on a fake network.

#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "faults/CountingAllocator.h"
#include "support/FakeBackend.h"
#include "tonwerk/TonwerkProc.h"
#include "tonwerk/tonwerk_c.h"

namespace
{

constexpr std::size_t firstBlock = 257024;
constexpr std::size_t nextBlock = 254976;

std::unique_ptr<tonwerk::TonwerkProc> open(const std::string& key)
{
    const std::string model(100, 'm');
    auto context =
        std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{model.data(), model.size(), key});
    tonwerk::TonwerkProcConfig config{};
    config.vocals = 1;
    config.channels = 2;
    config.interleaved = true;
    return std::make_unique<tonwerk::TonwerkProc>(std::move(context), config);
}

class MemoryRunsOut : public ::testing::Test
{
protected:
    MemoryRunsOut()
    {
        fakeBackend() = {};
        // No memory of its own, so that every refusal is the library's to bear.
        fakeBackend().model = [](std::span<const float>, const std::vector<float*>&, const auto&)
        { return true; };
    }

    ~MemoryRunsOut() override { refuseAllocation(0); }

    /// Calls `action` with 1, 2 and so on as long as it returns true; returns how often that was.
    static std::size_t countWhile(const std::function<bool(std::size_t)>& action)
    {
        std::size_t point = 1;
        while (action(point))
            ++point;
        return point - 1;
    }

    /// Calls `work` with its n-th allocation refused, which must come out as std::bad_alloc; false if there
    /// is none.
    static bool refused(std::size_t point, const std::function<void()>& work)
    {
        refuseAllocation(point);
        try
        {
            work();
            EXPECT_FALSE(allocationWasRefused()) << "point " << point << " was swallowed";
        }
        catch (const std::bad_alloc&)
        {
        }
        const bool happened = allocationWasRefused();
        refuseAllocation(0);
        return happened;
    }
};

} // namespace

TEST_F(MemoryRunsOut, WhileAProcessorIsBuilt)
{
    const std::string key = "a key that is too long for the string's own room";
    open(key); // once, for what is allocated only the first time in a process
    const std::size_t before = livingBlocks();
    const std::size_t points = countWhile(
        [&](std::size_t point)
        {
            const bool more = refused(point, [&] { open(key); });
            EXPECT_EQ(livingBlocks(), before) << "leaked at point " << point;
            return more;
        });
    EXPECT_GT(points, 20U);
}

TEST_F(MemoryRunsOut, WhileAChunkIsProcessed)
{
    const std::vector<float> first(2 * firstBlock, 0.25F);
    const std::vector<float> next(2 * nextBlock, 0.25F);
    const std::size_t points = countWhile(
        [&](std::size_t point)
        {
            const auto processor = open("");
            processor->process(first, false);
            const bool more = refused(point, [&] { processor->process(next, false); });
            // The stream goes on, whatever has become of that block.
            std::size_t length = 0;
            for (const bool eof : {false, true})
            {
                const auto stems = processor->process(eof ? std::vector<float>{} : next, eof);
                EXPECT_EQ(stems.size(), 8U) << "point " << point;
                for (std::size_t i = 0; i < stems.at(0).size(); ++i)
                    EXPECT_EQ(stems.at(6)[i] + stems.at(7)[i], 0.25F)
                        << "point " << point << ", sample " << i;
                length += stems.at(0).size() / 2;
            }
            EXPECT_GE(length, nextBlock) << "point " << point;
            return more;
        });
    EXPECT_GT(points, 8U);
}

// Status by status, and nothing leaks.
TEST_F(MemoryRunsOut, BehindTheCInterface)
{
    const auto throwIfRefused = [](tonwerk_status status)
    {
        if (status == TONWERK_OK)
            return;
        EXPECT_EQ(status, TONWERK_OUT_OF_MEMORY);
        EXPECT_STREQ(tonwerk_last_error(), "There is not enough memory.");
        throw std::bad_alloc();
    };
    const std::vector<float> block(2 * (firstBlock + nextBlock), 0.25F);
    std::vector<float> mix(2 * firstBlock);
    float* stems[TONWERK_STEM_COUNT] = {}; // NOLINT(modernize-avoid-c-arrays)
    stems[TONWERK_MIX] = mix.data();
    std::size_t resultsBeforeTheFailure = 0;
    const auto play = [&](std::size_t point)
    {
        tonwerk_context* context = nullptr;
        tonwerk_stream* stream = nullptr;
        const bool more =
            refused(point,
                    [&]
                    {
                        throwIfRefused(tonwerk_context_create("model", 5, "a key", 5, &context));
                        throwIfRefused(tonwerk_stream_create(context, nullptr, &stream));
                        throwIfRefused(tonwerk_stream_push(stream, block.data(), firstBlock + nextBlock));
                    });
        if (more && stream != nullptr)
        {
            std::size_t count = 0;
            EXPECT_EQ(tonwerk_stream_push(stream, block.data(), 1), TONWERK_STREAM_FAILED);
            EXPECT_EQ(tonwerk_stream_read(stream, stems, firstBlock, &count), TONWERK_OK);
            EXPECT_TRUE(count == 0 || count == 252928) << count;
            resultsBeforeTheFailure += count != 0 ? 1U : 0U;
        }
        tonwerk_stream_destroy(stream);
        tonwerk_context_destroy(context);
        return more;
    };
    play(0); // once, for what is allocated only the first time in a process
    const std::size_t before = livingBlocks();
    const std::size_t points = countWhile(
        [&](std::size_t point)
        {
            const bool more = play(point);
            EXPECT_EQ(livingBlocks(), before) << "leaked at point " << point;
            return more;
        });
    EXPECT_GT(points, 30U);
    EXPECT_GT(resultsBeforeTheFailure, 0U) << "what was ready can still be read";
}
