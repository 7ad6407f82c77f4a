// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <type_traits>

#include "api/ApiFixture.h"
#include "common/Log.h"

using tonwerk::InferenceContext;

static_assert(!std::is_copy_constructible_v<InferenceContext>);
static_assert(!std::is_copy_assignable_v<InferenceContext>);
static_assert(std::is_nothrow_move_constructible_v<InferenceContext>);
static_assert(std::is_nothrow_move_assignable_v<InferenceContext>);

namespace
{

enum class Freed
{
    NotYet,
    Wiped,      ///< every byte was 0
    WithContent ///< at least one byte was not
};

/// The block whose end operator delete[] of this program looks at.
struct
{
    const void* block = nullptr;
    std::size_t size = 0;
    Freed fate = Freed::NotYet;
} watched;

void release(void* block) noexcept
{
    if (block != nullptr && block == watched.block)
    {
        const auto* bytes = static_cast<const unsigned char*>(block);
        const bool wiped =
            std::all_of(bytes, bytes + watched.size, [](unsigned char byte) { return byte == 0; });
        watched = {nullptr, 0, wiped ? Freed::Wiped : Freed::WithContent};
    }
    std::free(block);
}

class InferenceContextTest : public ApiOnFakeBackend
{
protected:
    static InferenceContext contextOf(const std::string& bytes, const std::string& key = "")
    {
        return InferenceContext(tonwerk::ModelData{bytes.data(), bytes.size(), key});
    }

    static void watchModel()
    {
        watched = {fakeBackend().modelAddress, fakeBackend().modelBytes.size(), Freed::NotYet};
    }
};

} // namespace

void* operator new[](std::size_t size)
{
    if (void* block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

void operator delete[](void* block) noexcept
{
    release(block);
}

void operator delete[](void* block, std::size_t) noexcept
{
    release(block);
}

TEST_F(InferenceContextTest, PlainBytesGoToTheBackendUncopiedWithTheStemsInTheOrderOfTheResults)
{
    const std::string bytes("\x00plain\xFF", 7);
    const InferenceContext context = contextOf(bytes);
    const FakeBackend& asked = fakeBackend();
    EXPECT_EQ(asked.modelBytes, bytes);
    EXPECT_EQ(asked.modelAddress, bytes.data());
    EXPECT_TRUE(asked.inputNames.empty());
    EXPECT_EQ(asked.outputNames,
              (std::vector<std::string>{"vocals_output", "drum_output", "piano_output",
                                        "acoustic_guitar_output", "electric_guitar_output", "bass_output"}));
    EXPECT_EQ(asked.providerName, "");
}

TEST_F(InferenceContextTest, ScrambledBytesAreUnscrambledInAPrivateCopyThatIsWiped)
{
    std::string plain(600, '\0'); // every value
    for (std::size_t i = 0; i < plain.size(); ++i)
        plain[i] = static_cast<char>(i);
    for (const std::string& key :
         {std::string("k"), std::string("\x00\xFEkey", 5), std::string(1000, 'x') + "longer"})
    {
        std::string scrambled = plain;
        for (std::size_t i = 0; i < scrambled.size(); ++i)
            scrambled[i] = static_cast<char>(scrambled[i] ^ key[i % key.size()]);
        const std::string before = scrambled;
        fakeBackend().onMake = watchModel;
        const InferenceContext context = contextOf(scrambled, key);
        EXPECT_EQ(fakeBackend().modelBytes, plain);
        EXPECT_NE(fakeBackend().modelAddress, scrambled.data());
        EXPECT_EQ(scrambled, before) << "the host's bytes are left alone";
        EXPECT_EQ(watched.fate, Freed::Wiped);
    }
}

TEST_F(InferenceContextTest, WhatTheBackendThrowsPassesThroughAndLeavesNothingBehind)
{
    fakeBackend().onMake = []
    {
        watchModel();
        throw std::domain_error("no such model");
    };
    EXPECT_THROW(contextOf("secret", "key"), std::domain_error);
    EXPECT_EQ(watched.fate, Freed::Wiped);
    EXPECT_EQ(plog::get(), nullptr) << "the log went with the context";
}

TEST_F(InferenceContextTest, MoveAssignmentReleasesTheFormerModelButNotItsOwn)
{
    InferenceContext target = contextOf("first");
    const auto first = fakeBackend().lastMade;
    InferenceContext source = contextOf("second");
    const auto second = fakeBackend().lastMade;
    target = std::move(source);
    EXPECT_TRUE(first.expired());
    EXPECT_FALSE(second.expired());
    InferenceContext& same = target;
    EXPECT_EQ(&(target = std::move(same)), &target);
    EXPECT_FALSE(second.expired());
}

// The former model goes while the log still takes its lines, and then the log goes with its owner.
TEST_F(InferenceContextTest, MoveAssignmentOntoTheOwnerOfTheLogEndsTheLogUntilTheNextContext)
{
    int madeWithLog = 0;
    int destroyedWithLog = 0;
    fakeBackend().onMake = [&] { madeWithLog += plog::get() != nullptr ? 1 : 0; };
    fakeBackend().onDestroy = [&] { destroyedWithLog += plog::get() != nullptr ? 1 : 0; };
    InferenceContext owner = contextOf("first");
    InferenceContext other = contextOf("second");
    owner = std::move(other);
    EXPECT_EQ(destroyedWithLog, 1);
    EXPECT_EQ(plog::get(), nullptr);
    const InferenceContext next = contextOf("third");
    EXPECT_NE(plog::get(), nullptr);
    EXPECT_EQ(madeWithLog, 3);
}

// A processor's model is the one that it was built on, whatever becomes of the handle.
TEST_F(InferenceContextTest, ItsModelLivesAsLongAsItsProcessors)
{
    auto context = std::make_shared<InferenceContext>(contextOf("model"));
    const auto backend = fakeBackend().lastMade;
    const std::weak_ptr<InferenceContext> watch = context;
    auto stream = std::make_unique<Stream>(context);
    *context = contextOf("other"); // the context gives the model up
    context.reset();
    EXPECT_FALSE(watch.expired());
    ASSERT_FALSE(backend.expired());
    stream->feed(silence(100), true);
    EXPECT_FALSE(backend.lock()->lastInput.empty());
    stream.reset();
    EXPECT_TRUE(backend.expired());
    EXPECT_TRUE(watch.expired());
}

TEST_F(InferenceContextTest, TheLogOutlivesTheMakingAndTheDestructionOfTheBackend)
{
    bool whileMaking = false;
    bool whileDestroying = false;
    fakeBackend().onMake = [&] { whileMaking = plog::get() != nullptr; };
    fakeBackend().onDestroy = [&] { whileDestroying = plog::get() != nullptr; };
    contextOf("model");
    EXPECT_TRUE(whileMaking);
    EXPECT_TRUE(whileDestroying);

    // Also where a processor has the last share of both.
    whileDestroying = false;
    auto stream = std::make_unique<Stream>(std::make_shared<InferenceContext>(contextOf("model")));
    stream->feed(silence(100), true);
    stream.reset();
    EXPECT_TRUE(whileDestroying);
    EXPECT_EQ(plog::get(), nullptr);
}
