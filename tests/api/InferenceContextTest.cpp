#include <new>
#include <stdexcept>
#include <type_traits>

#include "api/ApiFixture.h"
#include "common/Log.h"
#include "support/FreedBlockWatch.h"

static_assert(!std::is_copy_constructible_v<tonwerk::InferenceContext>);
static_assert(!std::is_copy_assignable_v<tonwerk::InferenceContext>);
static_assert(std::is_nothrow_move_constructible_v<tonwerk::InferenceContext>);
static_assert(std::is_nothrow_move_assignable_v<tonwerk::InferenceContext>);

namespace
{

class InferenceContextTest : public ApiOnFakeBackend
{
protected:
    using Context = tonwerk::InferenceContext;

    static Context contextOf(const std::string& bytes, const std::string& key = "")
    {
        return Context(tonwerk::ModelData{bytes.data(), bytes.size(), key});
    }

    static bool isUsable(const std::shared_ptr<Context>& context)
    {
        try
        {
            const tonwerk::TonwerkProc processor(context, allStems(true));
            return true;
        }
        catch (const std::runtime_error&)
        {
            return false;
        }
    }
};

} // namespace

TEST_F(InferenceContextTest, TheBackendIsAskedForTheStemsInTheOrderOfTheResults)
{
    const Context context = contextOf("plain bytes");
    const FakeBackend& asked = fakeBackend();
    EXPECT_EQ(asked.made, 1U);
    EXPECT_TRUE(asked.inputNames.empty());
    EXPECT_EQ(asked.outputNames,
              (std::vector<std::string>{"vocals_output", "drum_output", "piano_output",
                                        "acoustic_guitar_output", "electric_guitar_output", "bass_output"}));
    EXPECT_EQ(asked.providerName, "");
}

TEST_F(InferenceContextTest, PlainBytesGoToTheBackendAsTheyAreAndWithoutACopy)
{
    const std::string bytes("\x00plain\xFF", 7);
    const Context context = contextOf(bytes);
    EXPECT_EQ(fakeBackend().modelBytes, bytes);
    EXPECT_EQ(fakeBackend().modelAddress, bytes.data());
}

TEST_F(InferenceContextTest, ScrambledBytesAreUnscrambledInAPrivateCopyThatIsWiped)
{
    const std::string plain = "a model of some length";
    for (const std::string& key :
         {std::string("k"), std::string("\x00\xFEkey", 5), std::string(100, 'x') + "longer"})
    {
        std::string scrambled = plain;
        for (std::size_t i = 0; i < scrambled.size(); ++i)
            scrambled[i] = static_cast<char>(scrambled[i] ^ key[i % key.size()]);
        const std::string before = scrambled;
        fakeBackend().onMake = [&] { watchBlock(fakeBackend().modelAddress, plain.size()); };
        const Context context = contextOf(scrambled, key);
        EXPECT_EQ(fakeBackend().modelBytes, plain);
        EXPECT_NE(fakeBackend().modelAddress, scrambled.data());
        EXPECT_EQ(scrambled, before) << "the host's bytes are left alone";
        EXPECT_EQ(watchedBlock(), FreedBlock::FreedWiped);
    }
}

TEST_F(InferenceContextTest, WhatTheBackendThrowsPassesThroughAndLeavesNothingBehind)
{
    fakeBackend().onMake = []
    {
        watchBlock(fakeBackend().modelAddress, fakeBackend().modelBytes.size());
        throw std::domain_error("no such model");
    };
    try
    {
        contextOf("secret", "key");
        ADD_FAILURE() << "the failure is gone";
    }
    catch (const std::domain_error& error)
    {
        EXPECT_EQ(std::string(error.what()), "no such model");
    }
    EXPECT_EQ(watchedBlock(), FreedBlock::FreedWiped);
    EXPECT_EQ(plog::get(), nullptr) << "the log went with the context";
}

TEST_F(InferenceContextTest, MovingHandsTheModelOver)
{
    const auto source = std::make_shared<Context>(contextOf("first"));
    const auto backend = fakeBackend().lastMade;
    const auto target = std::make_shared<Context>(std::move(*source));
    EXPECT_FALSE(isUsable(source));
    EXPECT_TRUE(isUsable(target));
    EXPECT_EQ(fakeBackend().lastMade.lock(), backend.lock()) << "it is the same model";

    *source = std::move(*target); // into the empty one
    EXPECT_TRUE(isUsable(source));
    EXPECT_FALSE(isUsable(target));
    EXPECT_FALSE(backend.expired());

    *target = std::move(*source);
    *source = Context(std::move(*source)); // an empty one into itself by way of another
    EXPECT_FALSE(isUsable(source));
    EXPECT_TRUE(isUsable(target));
}

TEST_F(InferenceContextTest, MoveAssignmentReleasesTheFormerModel)
{
    Context target = contextOf("first");
    const auto first = fakeBackend().lastMade;
    Context source = contextOf("second");
    const auto second = fakeBackend().lastMade;
    target = std::move(source);
    EXPECT_TRUE(first.expired());
    EXPECT_FALSE(second.expired());
}

TEST_F(InferenceContextTest, SelfMoveAssignmentChangesNothing)
{
    const auto context = std::make_shared<Context>(contextOf("model"));
    Context& same = *context;
    Context& result = *context = std::move(same);
    EXPECT_EQ(&result, context.get());
    EXPECT_TRUE(isUsable(context));
}

TEST_F(InferenceContextTest, TheFirstContextOwnsTheLog)
{
    ASSERT_EQ(plog::get(), nullptr);
    auto owner = std::make_unique<Context>(contextOf("first"));
    auto* const log = plog::get();
    ASSERT_NE(log, nullptr);
    EXPECT_EQ(log->getMaxSeverity(), plog::warning);

    auto second = std::make_unique<Context>(contextOf("second"));
    EXPECT_EQ(plog::get(), log);
    auto third = std::make_unique<Context>(contextOf("third"));
    third.reset();
    EXPECT_EQ(plog::get(), log) << "a context that found a log leaves it alone";
    owner.reset();
    EXPECT_EQ(plog::get(), nullptr) << "although another context lives";

    owner = std::make_unique<Context>(contextOf("fourth"));
    EXPECT_NE(plog::get(), nullptr) << "set up again";
    second.reset();
    EXPECT_NE(plog::get(), nullptr);
    owner.reset();
    EXPECT_EQ(plog::get(), nullptr);
}

TEST_F(InferenceContextTest, TheLogOutlivesTheMakingAndTheDestructionOfTheBackend)
{
    bool whileMaking = false;
    bool whileDestroying = false;
    fakeBackend().onMake = [&] { whileMaking = plog::get() != nullptr; };
    fakeBackend().onDestroy = [&] { whileDestroying = plog::get() != nullptr; };
    {
        const Context context = contextOf("model");
    }
    EXPECT_TRUE(whileMaking);
    EXPECT_TRUE(whileDestroying);
}

TEST_F(InferenceContextTest, MovingTheContextMovesTheLogAlong)
{
    auto source = std::make_unique<Context>(contextOf("model"));
    auto* const log = plog::get();
    auto target = std::make_unique<Context>(std::move(*source));
    source.reset();
    EXPECT_EQ(plog::get(), log);
    target.reset();
    EXPECT_EQ(plog::get(), nullptr);
}
