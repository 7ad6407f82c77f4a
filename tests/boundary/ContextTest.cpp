// Contexts and handles: who owns what, what is thrown across the boundary, and when something is logged.

#include <array>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "boundary/Streaming.h"
#include "support/ModelFile.h"

namespace
{

using tonwerk::InferenceContext;
using tonwerk::ModelData;
using tonwerk::TonwerkProc;

std::string constructionFailure(std::shared_ptr<InferenceContext> context)
{
    try
    {
        const TonwerkProc processor(std::move(context), allStems());
    }
    catch (const std::runtime_error& failure)
    {
        return failure.what();
    }
    return "no exception";
}

/// What is printed to standard output meanwhile.
template <typename Action>
std::string printedBy(Action action)
{
    ::testing::internal::CaptureStdout();
    action();
    return ::testing::internal::GetCapturedStdout();
}

/// Every digit as 0, and from `first` on every run of digits as one 0.
std::string masked(const std::string& text, std::size_t first)
{
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i)
    {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (!digit || i <= first || result.back() != '0')
            result += digit ? '0' : text[i];
    }
    return result;
}

/// The line that a missing context makes, whole but for time, thread and source line.
bool isMissingContextLine(std::string text)
{
    const std::string time = "0000-00-00 00:00:00.000 ";
    std::erase(text, '\r');
    return masked(text, time.size()) == time + "ERROR [0] [tonwerk::TonwerkProcImpl::TonwerkProcImpl@0] "
                                               "Inference context is not provided\n";
}

TEST(Context, MissingOrMovedFromIsRefusedByTheProcessor)
{
    EXPECT_EQ(constructionFailure(nullptr), "Inference context is not provided");

    const auto source = loadContext("gains.onnx");
    const auto target = std::make_shared<InferenceContext>(std::move(*source));
    EXPECT_EQ(constructionFailure(source), "Inference context is not provided");
    EXPECT_EQ(constructionFailure(target), "no exception");
}

TEST(Context, MovesItsModelAndLeavesAnEmptyOneToAssignTo)
{
    const auto one = loadContext("gains.onnx");
    const auto two = loadContext("gains.onnx");
    *one = std::move(*two); // the first model goes
    EXPECT_EQ(constructionFailure(one), "no exception");
    EXPECT_EQ(constructionFailure(two), "Inference context is not provided");
    *two = std::move(*one);
    EXPECT_EQ(constructionFailure(two), "no exception");
    EXPECT_EQ(constructionFailure(one), "Inference context is not provided");
    InferenceContext& same = *two;
    *two = std::move(same);
    EXPECT_EQ(constructionFailure(two), "no exception");
}

TEST(Context, LivesAsLongAsItsProcessors)
{
    auto context = loadContext("gains.onnx");
    const std::weak_ptr<InferenceContext> watch = context;
    auto stream = std::make_unique<Stream>(std::move(context));
    EXPECT_FALSE(watch.expired());
    const Stereo input = noise(5000);
    stream->feedAll(input);
    EXPECT_LE(largestDifference(stream->stem(mix), input), 2.5e-4F); // as in the identity tests
    stream.reset();
    EXPECT_TRUE(watch.expired());
}

// A processor's model is the one that it was built on, whatever becomes of the handle.
TEST(Context, MovedAwayUnderAProcessorLeavesItsModelToIt)
{
    const auto context = loadContext("gains.onnx");
    Stream stream(context);
    *context = std::move(*loadContext("wrong/mono.onnx"));
    const Stereo input = noise(5000);
    stream.feedAll(input);
    EXPECT_LE(largestDifference(stream.stem(mix), input), 2.5e-4F);
}

struct Bytes
{
    const char* name;
    std::vector<char> bytes;
    std::string key;
};

TEST(Context, BytesThatAreNoModelAreRefusedAcrossTheBoundary)
{
    const std::vector<char> model = readModel("gains.onnx");
    const std::vector<char> half(model.begin(),
                                 model.begin() + static_cast<std::ptrdiff_t>(model.size() / 2));
    for (const Bytes& wrong :
         {Bytes{"text", {'n', 'o', ' ', 'm', 'o', 'd', 'e', 'l'}, ""}, Bytes{"nothing", {}, ""},
          Bytes{"nothing, with a key", {}, "key"}, Bytes{"zeros", std::vector<char>(1000), ""},
          Bytes{"half a model", half, ""}, Bytes{"a wrong key", model, "wrong"}})
        try
        {
            const InferenceContext context(ModelData{wrong.bytes.data(), wrong.bytes.size(), wrong.key});
            ADD_FAILURE() << wrong.name << " was taken for a model";
        }
        catch (const std::exception& failure)
        {
            EXPECT_STRNE(failure.what(), "") << wrong.name;
        }
    EXPECT_THROW(InferenceContext(ModelData{nullptr, 0, ""}), std::exception);
    EXPECT_EQ(constructionFailure(loadContext("gains.onnx")), "no exception") << "the process is well";
}

// Both handles then point to one processor and the former one is leaked. Here the test keeps the former
// pointer, a handle's only content, and puts it back, so that everything is destroyed exactly once.
TEST(Handle, CopyAssignmentIsShallow)
{
    using Pointer = std::array<unsigned char, sizeof(void*)>;
    static_assert(sizeof(TonwerkProc) == sizeof(Pointer));
    const auto context = loadContext("gains.onnx");
    TonwerkProc one(context, allStems());
    TonwerkProc two(context, allStems());
    Pointer former;
    std::memcpy(former.data(), &two, former.size());

    EXPECT_EQ(&(two = one), &two);
    EXPECT_TRUE(one.process(std::vector<float>(400000, 0.1F), false).empty());
    EXPECT_EQ(two.process(std::vector<float>(114048, 0.1F), false).size(), stemCount)
        << "both feed one stream";
    EXPECT_EQ(one.maxInputSize(), 254976U);
    EXPECT_EQ(two.maxInputSize(), 254976U);

    std::memcpy(static_cast<void*>(&two), former.data(), former.size());
    EXPECT_EQ(two.maxInputSize(), 257024U) << "the former processor is untouched";
}

TEST(Log, SpeaksOnlyWhileTheContextLivesThatSetItUp)
{
    const auto provoke = [] { constructionFailure(nullptr); };
    EXPECT_EQ(printedBy(provoke), "") << "before any context";

    // Captured from before the log is set up: it asks then whether standard output is a terminal.
    std::shared_ptr<InferenceContext> owner;
    std::shared_ptr<InferenceContext> second;
    printedBy([&] { owner = loadContext("gains.onnx"); });
    printedBy([&] { second = loadContext("gains.onnx"); });
    EXPECT_TRUE(isMissingContextLine(printedBy(provoke)));
    second.reset();
    EXPECT_TRUE(isMissingContextLine(printedBy(provoke))) << "the second one did not own the log";

    printedBy([&] { second = loadContext("gains.onnx"); });
    owner.reset();
    EXPECT_EQ(printedBy(provoke), "") << "the owner is gone, though another context lives";

    std::shared_ptr<InferenceContext> third;
    printedBy([&] { third = loadContext("gains.onnx"); });
    EXPECT_TRUE(isMissingContextLine(printedBy(provoke))) << "the next context sets the log up again";
    second.reset();
    EXPECT_TRUE(isMissingContextLine(printedBy(provoke)));
    third.reset();
    EXPECT_EQ(printedBy(provoke), "");
}

TEST(Log, GoesWithTheModelAndNotWithTheHandle)
{
    std::unique_ptr<InferenceContext> handle;
    printedBy([&] { handle = std::make_unique<InferenceContext>(std::move(*loadContext("gains.onnx"))); });
    EXPECT_TRUE(isMissingContextLine(printedBy([] { constructionFailure(nullptr); })));
    handle.reset();
    EXPECT_EQ(printedBy([] { constructionFailure(nullptr); }), "");
}

// A context that could not be built owns nothing.
TEST(Log, IsSetUpForAFailingContextAndEndsWithIt)
{
    const std::string printed = printedBy(
        [] {
            EXPECT_THROW(InferenceContext(ModelData{"garbage", 7, ""}), std::exception);
        });
    EXPECT_NE(printed.find("[INFERENCE_onnx] Failed to initialize ONNX session: "), std::string::npos)
        << printed;
    EXPECT_EQ(printedBy([] { constructionFailure(nullptr); }), "");
}

// Debug and info lines stay below the threshold, the one about a loud first chunk among them.
TEST(Log, SaysNothingWhileAllIsWell)
{
    std::shared_ptr<InferenceContext> context;
    printedBy([&] { context = loadContext("gains.onnx"); }); // providers that cannot be had are worth a line
    Stereo input = noise(300000);
    input.left[1000] = 5.0F;
    EXPECT_EQ(printedBy([&] { separate(context, input); }), "");
}

} // namespace
