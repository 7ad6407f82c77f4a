// SPDX-License-Identifier: MIT
// Contexts and handles: what is thrown across the boundary, and when something is logged.

#include <array>
#include <cstring>
#include <exception>
#include <memory>
#include <regex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/ModelFile.h"
#include "support/Stream.h"

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

/// What the library prints about a missing context.
std::string printedByProvoking()
{
    return printedBy([] { constructionFailure(nullptr); });
}

/// The line that a missing context makes, whole but for time, thread and source line.
bool isMissingContextLine(const std::string& text)
{
    static const std::regex line("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} ERROR \\[\\d+\\] "
                                 "\\[tonwerk::TonwerkProcImpl::TonwerkProcImpl@\\d+\\] "
                                 "Inference context is not provided\r?\n");
    return std::regex_match(text, line);
}

TEST(Context, MissingOrMovedFromIsRefusedByTheProcessor)
{
    EXPECT_EQ(constructionFailure(nullptr), "Inference context is not provided");
    const auto source = loadContext("gains.onnx");
    const auto target = std::make_shared<InferenceContext>(std::move(*source));
    EXPECT_EQ(constructionFailure(source), "Inference context is not provided");
    EXPECT_EQ(constructionFailure(target), "no exception");
    *source = std::move(*target); // into the empty one
    EXPECT_EQ(constructionFailure(source), "no exception");
    EXPECT_EQ(constructionFailure(target), "Inference context is not provided");
}

struct Bytes
{
    const char* name;
    std::vector<char> bytes;
    std::string key;
};

TEST(Context, AModelThatWouldReadOtherFilesIsRefusedLikeOneThatCannotBeLoaded)
{
    for (const char* part : {"initializer", "attribute", "function", "memory"})
    {
        std::string thrown;
        const std::string printed = printedBy(
            [&]
            {
                try
                {
                    loadContext("hostile/external_" + std::string(part) + ".onnx");
                }
                catch (const std::runtime_error& refusal)
                {
                    thrown = refusal.what();
                }
            });
        EXPECT_TRUE(thrown.starts_with("The model has external data")) << part << ": " << thrown;
        EXPECT_NE(printed.find("[INFERENCE_onnx] Failed to initialize ONNX session: " + thrown),
                  printed.npos);
    }
}

TEST(Context, BytesThatAreNoModelAreRefusedAcrossTheBoundary)
{
    const std::vector<char> model = readModel("gains.onnx");
    const auto half = model.begin() + static_cast<std::ptrdiff_t>(model.size() / 2);
    for (const Bytes& wrong :
         {Bytes{"text", {'n', 'o', ' ', 'm', 'o', 'd', 'e', 'l'}, ""}, Bytes{"nothing", {}, ""},
          Bytes{"nothing, with a key", {}, "key"}, Bytes{"zeros", std::vector<char>(4096), ""},
          Bytes{"half a model", {model.begin(), half}, ""},
          Bytes{"all but one byte", {model.begin(), model.end() - 1}, ""},
          Bytes{"a wrong key", model, "wrong"}})
    {
        std::string reason;
        const auto load = [&]
        {
            try
            {
                const InferenceContext context(ModelData{wrong.bytes.data(), wrong.bytes.size(), wrong.key});
                ADD_FAILURE() << wrong.name << " was taken for a model";
            }
            catch (const std::exception& failure)
            {
                reason = failure.what();
            }
        };
        const std::string printed = printedBy(load);
        EXPECT_FALSE(reason.empty()) << wrong.name;
        EXPECT_NE(printed.find("[INFERENCE_onnx] Failed to initialize ONNX session: " + reason),
                  std::string::npos)
            << wrong.name << ": " << printed;
        EXPECT_EQ(printedByProvoking(), "") << "a context that could not be built owns nothing";
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
    // Captured from before the log is set up: it asks then whether standard output is a terminal. Providers
    // that cannot be had are worth a line.
    const auto load = []
    {
        std::shared_ptr<InferenceContext> context;
        printedBy([&] { context = loadContext("gains.onnx"); });
        return context;
    };
    EXPECT_EQ(printedByProvoking(), "") << "before any context";
    auto owner = load();
    auto second = load();
    EXPECT_TRUE(isMissingContextLine(printedByProvoking()));
    second.reset();
    EXPECT_TRUE(isMissingContextLine(printedByProvoking())) << "the second one did not own the log";

    second = load();
    owner.reset();
    EXPECT_EQ(printedByProvoking(), "") << "the owner is gone, though another context lives";

    auto third = load();
    EXPECT_TRUE(isMissingContextLine(printedByProvoking())) << "the next context sets the log up again";
    second.reset();
    EXPECT_TRUE(isMissingContextLine(printedByProvoking()));
    auto handle = std::make_unique<InferenceContext>(std::move(*third));
    third.reset();
    EXPECT_TRUE(isMissingContextLine(printedByProvoking())) << "it goes with the model";
    handle.reset();
    EXPECT_EQ(printedByProvoking(), "");
}

// Debug and info lines stay below the threshold, the one about a loud first chunk among them.
TEST(Log, SaysNothingWhileAllIsWell)
{
    std::shared_ptr<InferenceContext> context;
    printedBy([&] { context = loadContext("gains.onnx"); });
    Stereo input = noise(300000);
    input.left[1000] = 5.0F;
    EXPECT_EQ(printedBy([&] { separate(context, input); }), "");
}

} // namespace
