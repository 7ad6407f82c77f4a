// SPDX-License-Identifier: MIT
// Memory that runs out at every point where the library asks for some, on a fake network.

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "common/Log.h"
#include "faults/CountingAllocator.h"
#include "support/FakeBackend.h"
#include "support/Stream.h"
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
    config.interleaved = true;
    return std::make_unique<tonwerk::TonwerkProc>(std::move(context), config);
}

class MemoryRunsOut : public ::testing::Test
{
protected:
    MemoryRunsOut()
    {
        fakeBackend() = {};
        // The log that the C interface sets up stays, and lets everything pass.
        threadLogLevel() = plog::warning;
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

/// One stream whose memory runs out in one of its calls.
struct Refusal
{
    const char* name;
    std::vector<std::size_t> before; ///< frames of the calls that go well
    std::size_t during;              ///< frames of the call that does not
    bool eof;                        ///< it is the last one, so that a call without frames follows
    std::size_t after;               ///< frames of the last call otherwise
    std::size_t passes;              ///< runs of the model in that call
};

class MemoryRunsOutInACall : public MemoryRunsOut, public ::testing::WithParamInterface<Refusal>
{
protected:
    /// The first stem is the input, so that any shift between stems and mixture shows.
    MemoryRunsOutInACall()
    {
        fakeBackend().model = [this](std::span<const float> input, const std::vector<float*>& outputs, auto&&)
        {
            ++runs;
            std::copy(input.begin(), input.end(), outputs.front());
            for (std::size_t stem = 1; stem < outputs.size(); ++stem)
                std::fill_n(outputs[stem], input.size(), 0.0F);
            return true;
        };
    }

    using Stems = std::vector<std::vector<float>>;

    /// The signal's next frames.
    std::vector<float> nextBlock(std::size_t frames)
    {
        fed += frames;
        return packed(slice(signal, fed - frames, frames), true);
    }

    void collect(const Stems& stems)
    {
        if (stems.empty())
            return;
        returnedMix.insert(returnedMix.end(), stems[7].begin(), stems[7].end());
        for (std::size_t i = 0; i < stems[6].size(); ++i)
            returnedInput.push_back(stems[6][i] + stems[7][i]);
    }

    /// A processor before the signal's first frame, on a network that takes no memory in its runs.
    std::unique_ptr<tonwerk::TonwerkProc> begin()
    {
        fed = runs = 0;
        returnedMix.clear();
        returnedInput.clear();
        auto processor = open("");
        fakeBackend().lastMade.lock()->lastInput.reserve(std::size_t{4} * 256 * 2048);
        return processor;
    }

    /// Expects that the last frames of the signal came back, in place from `whole` on, where no frame of the
    /// transform is missing.
    void expectEndOfSignal(std::size_t whole) const
    {
        ASSERT_LE(returnedInput.size(), 2 * signal.size());
        const std::vector<float> expected =
            packed(slice(signal, signal.size() - returnedInput.size() / 2, returnedInput.size() / 2), true);
        float mixError = 0.0F;
        float inputError = 0.0F;
        for (std::size_t i = 0; i < expected.size(); ++i)
        {
            inputError = std::max(inputError, std::abs(returnedInput[i] - expected[i]));
            if (i >= 2 * whole)
                mixError = std::max(mixError, std::abs(returnedMix[i] - expected[i]));
        }
        EXPECT_LT(inputError, 1e-6F) << "residual and mix are the signal";
        EXPECT_LT(mixError, 1e-3F) << "the mix is in place";
    }

    std::size_t runs = 0;
    std::size_t fed = 0;
    std::vector<float> returnedMix;
    std::vector<float> returnedInput; ///< residual and mix
    Stereo signal;
};

// Nothing is lost or moved unless an earlier pass of the same call has run the model: then that pass is lost.
TEST_P(MemoryRunsOutInACall, TheStreamGoesOnInItsPlace)
{
    const Refusal& refusal = GetParam();
    std::size_t length = refusal.during + refusal.after;
    for (const std::size_t frames : refusal.before)
        length += frames;
    signal = noise(length);
    std::size_t losses = 0;
    const std::size_t points = countWhile(
        [&](std::size_t point)
        {
            const auto processor = begin();
            for (const std::size_t frames : refusal.before)
                collect(processor->process(nextBlock(frames), false));
            const std::size_t returnedBefore = returnedInput.size() / 2;
            const std::size_t runsBefore = runs;
            const std::vector<float> block = nextBlock(refusal.during);
            Stems stems;
            const bool more = refused(point, [&] { stems = processor->process(block, refusal.eof); });
            collect(stems);
            const bool lost = more && runs != runsBefore;
            losses += lost ? 1U : 0U;
            if (lost)
            {
                returnedMix.clear();
                returnedInput.clear();
            }
            if (more || !refusal.eof)
                collect(processor->process(nextBlock(refusal.after), true));
            const std::size_t returned = returnedInput.size() / 2;
            if (lost)
                EXPECT_LT(returned, length - returnedBefore) << "point " << point;
            else
                EXPECT_EQ(returned, length) << "point " << point;
            EXPECT_GE(returned, 4096U) << "point " << point;
            expectEndOfSignal(lost ? 4096 : 0);
            EXPECT_FALSE(HasFailure()) << "point " << point;
            return more && !HasFailure();
        });
    EXPECT_GE(points, 9U + refusal.passes)
        << "eight stems, their vector, and a list of pointers for each run";
    EXPECT_EQ(losses, refusal.passes - 1);
}

INSTANTIATE_TEST_SUITE_P(Of, MemoryRunsOutInACall,
                         ::testing::Values(Refusal{"TheFirstChunk", {}, 257024, false, 254976, 1},
                                           Refusal{"ALaterChunk", {257024}, 254976, false, 4097, 1},
                                           Refusal{"AWholeShortStream", {}, 100001, true, 0, 1},
                                           Refusal{"TheEnd", {257024, 254976}, 20001, true, 0, 1},
                                           Refusal{"ALongEnd", {257024, 254976}, 509952, true, 0, 2},
                                           Refusal{"ALongWholeStream", {}, 514047, true, 0, 2}),
                         [](const auto& test) { return std::string(test.param.name); });

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
