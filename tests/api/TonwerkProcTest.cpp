#include "tonwerk/TonwerkProc.h"

#include <cstring>
#include <stdexcept>

#include "api/ApiFixture.h"
#include "inference/InferenceBackend.h"
#include "support/LogCapture.h"

namespace
{

class TonwerkProcTest : public ApiOnFakeBackend
{
protected:
    static std::string constructionFailure(std::shared_ptr<tonwerk::InferenceContext> context)
    {
        try
        {
            const tonwerk::TonwerkProc processor(std::move(context), allStems(true));
        }
        catch (const std::runtime_error& error)
        {
            return error.what();
        }
        return "constructed";
    }

    static bool isSilent(const std::vector<float>& samples)
    {
        return std::all_of(samples.begin(), samples.end(), [](float sample) { return sample == 0.0F; });
    }

    /// A stream of 5000 frames in one call.
    static Stems separateShort(tonwerk::TonwerkProc& processor)
    {
        return processor.process(layOut(smoothNoise(2, 5000, 1), 0, 5000, true), true);
    }
};

} // namespace

TEST_F(TonwerkProcTest, WithoutContextThereIsNoProcessor)
{
    const LogCapture log(plog::warning);
    EXPECT_EQ(constructionFailure(nullptr), "Inference context is not provided");

    const auto movedFrom = makeContext();
    const tonwerk::InferenceContext owner(std::move(*movedFrom));
    EXPECT_EQ(constructionFailure(movedFrom), "Inference context is not provided");

    fakeBackend().makesNothing = true;
    EXPECT_EQ(constructionFailure(makeContext()), "Inference for specified model is not initialized");

    const std::string start = "ERROR [tonwerk::TonwerkProcImpl::TonwerkProcImpl] ";
    EXPECT_EQ(log.lines(), (std::vector<std::string>{start + "Inference context is not provided",
                                                     start + "Inference context is not provided",
                                                     start + "Inference is not initalized!"}));
    EXPECT_EQ(fakeBackend().selections, 0U);
}

TEST_F(TonwerkProcTest, EachSwitchSelectsItsStemInBothOrders)
{
    // In the order of the results; the flags have bass third.
    struct Case
    {
        void (*select)(tonwerk::TonwerkProcConfig&);
        bool StemFlags::*flag;
        const char* line;
    };
    const std::vector<Case> cases{
        {[](tonwerk::TonwerkProcConfig& c) { c.vocals = 1; }, &StemFlags::vocals,
         "vocals=1, drum=0, bass=0, piano=0, acousticGuitar=0, electricGuitar=0"},
        {[](tonwerk::TonwerkProcConfig& c) { c.drum = 1; }, &StemFlags::drum,
         "vocals=0, drum=1, bass=0, piano=0, acousticGuitar=0, electricGuitar=0"},
        {[](tonwerk::TonwerkProcConfig& c) { c.piano = 1; }, &StemFlags::piano,
         "vocals=0, drum=0, bass=0, piano=1, acousticGuitar=0, electricGuitar=0"},
        {[](tonwerk::TonwerkProcConfig& c) { c.acousticGuitar = 1; }, &StemFlags::acousticGuitar,
         "vocals=0, drum=0, bass=0, piano=0, acousticGuitar=1, electricGuitar=0"},
        {[](tonwerk::TonwerkProcConfig& c) { c.electricGuitar = 1; }, &StemFlags::electricGuitar,
         "vocals=0, drum=0, bass=0, piano=0, acousticGuitar=0, electricGuitar=1"},
        {[](tonwerk::TonwerkProcConfig& c) { c.bass = 1; }, &StemFlags::bass,
         "vocals=0, drum=0, bass=1, piano=0, acousticGuitar=0, electricGuitar=0"}};
    for (std::size_t selected = 0; selected < cases.size(); ++selected)
    {
        const LogCapture log(plog::info);
        tonwerk::TonwerkProcConfig config{};
        config.interleaved = true;
        cases[selected].select(config);
        tonwerk::TonwerkProc processor(makeContext(), config);
        EXPECT_EQ(log.lines(), std::vector<std::string>{
                                   "INFO [tonwerk::TonwerkProcImpl::TonwerkProcImpl] Selected stems: " +
                                   std::string(cases[selected].line)});
        for (std::size_t other = 0; other < cases.size(); ++other)
            EXPECT_EQ(fakeBackend().flags.*cases[other].flag, other == selected);

        const Stems stems = separateShort(processor);
        ASSERT_EQ(stems.size(), 8U);
        for (std::size_t stem = 0; stem < modelStems; ++stem)
            EXPECT_EQ(isSilent(stems[stem]), stem != selected)
                << "stem " << stem << " of " << cases[selected].line;
        EXPECT_EQ(stems[mix], stems[selected]);
    }
}

TEST_F(TonwerkProcTest, WithoutAnyStemTheResidualIsTheInputAndTheMixIsSilent)
{
    tonwerk::TonwerkProcConfig config{};
    config.interleaved = true;
    tonwerk::TonwerkProc processor(makeContext(), config);
    const Stems stems = separateShort(processor);
    ASSERT_EQ(stems.size(), 8U);
    for (std::size_t stem = 0; stem < modelStems; ++stem)
        EXPECT_TRUE(isSilent(stems[stem])) << stem;
    EXPECT_TRUE(isSilent(stems[mix]));
    EXPECT_EQ(stems[residual], layOut(smoothNoise(2, 5000, 1), 0, 5000, true));
}

TEST_F(TonwerkProcTest, TheProcessorBuiltLastDecidesForAllOfItsContext)
{
    const auto context = makeContext();
    tonwerk::TonwerkProc first(context, allStems(true));
    tonwerk::TonwerkProcConfig onlyDrum{};
    onlyDrum.drum = 1;
    onlyDrum.interleaved = true;
    tonwerk::TonwerkProc last(context, onlyDrum);
    EXPECT_EQ(fakeBackend().made, 1U);
    EXPECT_EQ(fakeBackend().selections, 2U);

    const Stems stems = separateShort(first);
    EXPECT_TRUE(isSilent(stems[0]));
    EXPECT_FALSE(isSilent(stems[1]));
    EXPECT_EQ(separateShort(last), stems) << "each has a stream of its own";
}

TEST_F(TonwerkProcTest, AProcessorKeepsItsModelAlive)
{
    auto context = makeContext();
    auto processor = std::make_unique<tonwerk::TonwerkProc>(context, allStems(true));
    const auto backend = fakeBackend().lastMade;
    *context =
        tonwerk::InferenceContext(tonwerk::ModelData{"other", 5, ""}); // the context gives the model up
    ASSERT_FALSE(backend.expired());
    EXPECT_EQ(separateShort(*processor).size(), 8U);
    context.reset();
    EXPECT_EQ(backend.lock()->runs, 1U);
    processor.reset();
    EXPECT_TRUE(backend.expired());
}

TEST_F(TonwerkProcTest, ChannelCountsOtherThanTwoAreRefusedWithoutDamage)
{
    for (const bool interleaved : {false, true})
        for (const std::int32_t channels : {4, 3, 1, 0, -1})
        {
            SCOPED_TRACE(std::to_string(channels) + (interleaved ? " interleaved" : " planar"));
            auto config = allStems(interleaved);
            config.channels = channels;
            const auto construct = [&]
            { return std::make_unique<tonwerk::TonwerkProc>(makeContext(), config); };
            std::unique_ptr<tonwerk::TonwerkProc> processor;
            try
            {
                processor = construct();
            }
            catch (const std::exception&)
            {
                continue;
            }
            const std::vector<float> input{1, 2, 3, 4, 5, 6, 7, 8};
            EXPECT_THROW(processor->process(input, false), std::exception);
            EXPECT_THROW(processor->process(input, true), std::exception);
        }
}

TEST_F(TonwerkProcTest, TheChannelCountOnlyDividesTheLengthOfInterleavedInput)
{
    const std::string api = "DEBUG [tonwerk::TonwerkProcImpl::process] ";
    const std::string engine = "DEBUG [ChunkProcessor::process] ChunkProcessor::process input shape: ";
    const auto logged = [](bool interleaved, std::int32_t channels, std::size_t floats)
    {
        auto config = allStems(interleaved);
        config.channels = channels;
        tonwerk::TonwerkProc processor(makeContext(), config);
        plog::get()->setMaxSeverity(plog::debug);
        const std::vector<float> input(floats);
        if (channels == 2)
            processor.process(input, false);
        else
            EXPECT_THROW(processor.process(input, false), std::exception);
        plog::get()->setMaxSeverity(plog::none);
    };
    const std::string waiting = "DEBUG [ChunkProcessor::process] Not enough data to process, returning empty";
    const LogCapture log(plog::none);
    logged(true, 4, 8);
    logged(false, 4, 8);
    logged(true, 2, 8);
    logged(false, 2, 9);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{api + "called with data size: 8, eof=0, channels=4",
                                        api + "Processing chunk: input size 2, eof=0", engine + "2x2, eof: 0",
                                        api + "called with data size: 8, eof=0, channels=4",
                                        api + "Processing chunk: input size 2, eof=0", engine + "2x4, eof: 0",
                                        api + "called with data size: 8, eof=0, channels=2",
                                        api + "Processing chunk: input size 4, eof=0", engine + "2x4, eof: 0",
                                        waiting, api + "called with data size: 9, eof=0, channels=2",
                                        api + "Processing chunk: input size 4, eof=0", engine + "2x4, eof: 0",
                                        waiting}));
}

TEST_F(TonwerkProcTest, FailuresPassThroughAndTheStreamGoesOn)
{
    tonwerk::TonwerkProc processor(makeContext(), allStems(true));
    try
    {
        processor.process(std::vector<float>(2 * 514049), false);
        ADD_FAILURE() << "the block was accepted";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_EQ(std::string(error.what()), "Buffer overflow: cannot accept chunk of size 514049");
    }
    ASSERT_EQ(processor.process(std::vector<float>(2 * 257024), false).size(), 8U);

    const auto backend = fakeBackend().lastMade.lock();
    backend->model = throwingModel();
    try
    {
        processor.process(std::vector<float>(2 * 254976), false);
        ADD_FAILURE() << "the model's exception is gone";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_EQ(std::string(error.what()), "the model broke");
    }
    backend->model = failingModel();
    const Stems failed = processor.process(std::vector<float>(2 * 254976), false);
    ASSERT_EQ(failed.size(), 8U);
    for (const auto& stem : failed)
        EXPECT_TRUE(stem.empty());

    backend->model = identityModel();
    const Stems stems = processor.process(std::vector<float>(2 * 254976), false);
    ASSERT_EQ(stems.size(), 8U);
    EXPECT_EQ(stems[0].size(), 2U * 254976U);
}

TEST_F(TonwerkProcTest, CopyAssignmentMakesBothHandlesPointToOneSeparator)
{
    tonwerk::TonwerkProc first(makeContext(), allStems(true));
    tonwerk::TonwerkProc second(makeContext(), allStems(true));
    // What the assignment loses is kept here and put back, so that each separator is destroyed once.
    unsigned char own[sizeof(tonwerk::TonwerkProc)];
    std::memcpy(own, static_cast<void*>(&second), sizeof own);
    tonwerk::TonwerkProc& result = second = first;
    EXPECT_EQ(&result, &second);
    first.process(std::vector<float>(2 * 257024), false);
    EXPECT_EQ(second.maxInputSize(), 254976U);
    const Stems rest = second.process({}, true);
    ASSERT_EQ(rest.size(), 8U);
    EXPECT_EQ(rest[0].size(), 2U * 4096U);
    std::memcpy(static_cast<void*>(&second), own, sizeof own);
    EXPECT_EQ(second.maxInputSize(), 257024U) << "nobody touched the former separator";
}
