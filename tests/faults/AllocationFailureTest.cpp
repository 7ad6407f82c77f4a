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
