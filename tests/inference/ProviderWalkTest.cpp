#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "inference/BackendFixture.h"
#include "inference/DmlAdapterChoice.h"

namespace
{

using Lines = std::vector<std::string>;

const std::string cudaCall =
    "AppendCUDA device=0 search=exhaustive limit=none arena=0 copy=1 stream=0 config=none tunable=00";
const std::string rocmCall =
    "AppendROCM device=0 search=0 limit=none arena=0 copy=1 stream=0 config=none graph=0 tunable=00";

class ProviderWalk : public BackendFixture
{
protected:
    /// Offers the providers, and after them the CPU, as every runtime does.
    void offer(Lines providers)
    {
        providers.emplace_back("CPUExecutionProvider");
        standin.providers = std::move(providers);
    }

    /// The walk's lines that follow the list of available providers.
    Lines walkLog() const
    {
        Lines lines = constructorLog();
        std::erase_if(lines,
                      [](const std::string& line)
                      {
                          return line.find("Create Inference") != std::string::npos ||
                                 line.find("Available Provider") != std::string::npos;
                      });
        return lines;
    }

    /// Loads a model, which must fail, and returns the text of the runtime's exception.
    std::string loadFailure()
    {
        try
        {
            load("gains.onnx");
        }
        catch (const Ort::Exception& failure)
        {
            return failure.what();
        }
        return "no exception";
    }

    static std::string append(const std::string& provider)
    {
        return constructorLine("INFO", "Append execution provider: " + provider);
    }

    static std::string failed(const std::string& reason)
    {
        return constructorLine("ERROR", "Failed to init backend: " + reason);
    }
};

TEST_F(ProviderWalk, CpuAloneGetsOnePlainSessionAndNoAppendLine)
{
    const auto backend = load("gains.onnx");

    EXPECT_EQ(log.lines(), (Lines{constructorLine("INFO", "Create Inference ONNX"),
                                  constructorLine("INFO", "Available Provider: CPUExecutionProvider")}));
    EXPECT_EQ(sessionCalls(), (Lines{"CreateEnv 2 \"\"", "CreateSessionOptions", "CreateSession 1",
                                     "ReleaseSessionOptions"}));

    std::erase_if(standin.alive, [](const auto& entry) { return entry.second == 0; });
    EXPECT_EQ(standin.alive, (std::map<std::string, int>{{"environment", 1}, {"session", 1}}));
}

TEST_F(ProviderWalk, EveryWorkingProviderBuildsASessionAndTheLastOneStays)
{
    offer({"CUDAExecutionProvider", "DmlExecutionProvider"});
    const std::string device = std::to_string(selectDmlAdapterIndex());
    log.clear();
    const auto backend = load("gains.onnx");

    EXPECT_EQ(constructorLog(), (Lines{constructorLine("INFO", "Create Inference ONNX"),
                                       constructorLine("INFO", "Available Provider: CUDAExecutionProvider"),
                                       constructorLine("INFO", "Available Provider: DmlExecutionProvider"),
                                       constructorLine("INFO", "Available Provider: CPUExecutionProvider"),
                                       append("DmlExecutionProvider"), append("CUDAExecutionProvider")}));
    EXPECT_EQ(sessionCalls(),
              (Lines{"CreateEnv 2 \"\"", "CreateSessionOptions", "SetSessionExecutionMode 0",
                     "DisableMemPattern", "GetExecutionProviderApi DML 21", "AppendDML " + device,
                     "CreateSession 1", "ReleaseSessionOptions", "CreateSessionOptions", cudaCall,
                     "CreateSession 2", "ReleaseSession 1", "ReleaseSessionOptions"}));
    EXPECT_EQ(keptSession(), 2);
}

TEST_F(ProviderWalk, FailuresAfterASuccessLeaveTheSessionOfTheLastSuccess)
{
    offer({"DmlExecutionProvider", "CUDAExecutionProvider", "ROCMExecutionProvider"});
    standin.failingSessions = {3};
    const auto second = load("gains.onnx");
    EXPECT_EQ(keptSession(), 2);
    EXPECT_EQ(walkLog(), (Lines{append("DmlExecutionProvider"), append("CUDAExecutionProvider"),
                                append("ROCmExecutionProvider"), failed("stand-in: session 3 fails")}));

    standin.calls.clear();
    standin.failing = {"AppendCUDA", "AppendROCM"}; // the next session is the fourth
    log.clear();
    const auto fourth = load("gains.onnx");
    EXPECT_EQ(keptSession(), 4);
    EXPECT_EQ(walkLog(), (Lines{append("DmlExecutionProvider"), append("CUDAExecutionProvider"),
                                failed("stand-in: AppendCUDA fails"), append("ROCmExecutionProvider"),
                                failed("stand-in: AppendROCM fails")}));
}

// The runtime's own spelling of the one provider differs from ours in case.
TEST_F(ProviderWalk, RocmIsFoundUnderTheRuntimesSpellingAfterCudaFailed)
{
    offer({"ROCMExecutionProvider", "CUDAExecutionProvider"});
    standin.failingSessions = {1};
    const auto backend = load("gains.onnx");

    EXPECT_EQ(constructorLog(), (Lines{constructorLine("INFO", "Create Inference ONNX"),
                                       constructorLine("INFO", "Available Provider: ROCMExecutionProvider"),
                                       constructorLine("INFO", "Available Provider: CUDAExecutionProvider"),
                                       constructorLine("INFO", "Available Provider: CPUExecutionProvider"),
                                       append("CUDAExecutionProvider"), failed("stand-in: session 1 fails"),
                                       append("ROCmExecutionProvider")}));
    EXPECT_EQ(sessionCalls(), (Lines{"CreateEnv 2 \"\"", "CreateSessionOptions", cudaCall, "CreateSession 1",
                                     "ReleaseSessionOptions", "CreateSessionOptions", rocmCall,
                                     "CreateSession 2", "ReleaseSessionOptions"}));
}

TEST_F(ProviderWalk, CpuTakesOverOnlyWhenEveryProviderFailed)
{
    offer({"DmlExecutionProvider", "CUDAExecutionProvider"});
    standin.failingSessions = {1, 2};
    const auto backend = load("gains.onnx");

    EXPECT_EQ(walkLog(), (Lines{append("DmlExecutionProvider"), failed("stand-in: session 1 fails"),
                                append("CUDAExecutionProvider"), failed("stand-in: session 2 fails")}));
    const Lines calls = sessionCalls();
    EXPECT_EQ(Lines(calls.end() - 3, calls.end()),
              (Lines{"CreateSessionOptions", "CreateSession 3", "ReleaseSessionOptions"}));
    EXPECT_EQ(keptSession(), 3);
}

TEST_F(ProviderWalk, ProvidersWithoutAnAppendRuleAreNamedAndLeftOut)
{
    offer({"QNNExecutionProvider", "CoreMLExecutionProvider", "TensorrtExecutionProvider"});
    const auto backend = load("gains.onnx");

    EXPECT_EQ(walkLog(), (Lines{append("QNNExecutionProvider"),
                                constructorLine("WARN", "Unknown EP: QNNExecutionProvider"),
                                append("CoreMLExecutionProvider"),
                                constructorLine("WARN", "Unknown EP: CoreMLExecutionProvider")}));
    EXPECT_EQ(standin.sessionAttempts, 1);
}

/// What the runtime may answer when DirectML is asked for, and how many failing statuses that makes.
struct DirectMLRefusal
{
    const char* name;
    Standin::DirectMLTable table;
    std::set<std::string> failing;
    int statuses;
    bool appended;
};

class DirectMLRefused : public ProviderWalk, public ::testing::WithParamInterface<DirectMLRefusal>
{
};

TEST_P(DirectMLRefused, LeavesAPlainSessionWithoutAnErrorOrALeakedStatus)
{
    offer({"DmlExecutionProvider"});
    standin.directML = GetParam().table;
    standin.failing = GetParam().failing;
    const auto backend = load("gains.onnx");

    EXPECT_EQ(log.lines(plog::error), Lines{});
    EXPECT_EQ(keptSession(), 1);
    EXPECT_EQ(standin.created["status"], GetParam().statuses);
    EXPECT_EQ(standin.alive["status"], 0);
    Lines calls{"CreateEnv 2 \"\"", "CreateSessionOptions", "SetSessionExecutionMode 0", "DisableMemPattern",
                "GetExecutionProviderApi DML 21"};
    if (GetParam().appended)
        calls.push_back("AppendDML " + std::to_string(selectDmlAdapterIndex()));
    calls.insert(calls.end(), {"CreateSession 1", "ReleaseSessionOptions"});
    EXPECT_EQ(sessionCalls(), calls);
}

INSTANTIATE_TEST_SUITE_P(
    ProviderWalk, DirectMLRefused,
    ::testing::Values(
        DirectMLRefusal{"ByTheAppend", Standin::DirectMLTable::own, {"AppendDML"}, 1, true},
        DirectMLRefusal{
            "ByTheTableQuery", Standin::DirectMLTable::own, {"GetExecutionProviderApi"}, 1, false},
        DirectMLRefusal{"ByAMissingTable", Standin::DirectMLTable::missing, {}, 0, false}),
    [](const auto& test) { return std::string(test.param.name); });

TEST_F(ProviderWalk, RealDirectMLEndsInASessionWhateverTheAppendSays)
{
    offer({"DmlExecutionProvider"});
    standin.directML = Standin::DirectMLTable::real;
    const auto backend = load("gains.onnx");

    EXPECT_EQ(log.lines(plog::error), Lines{});
    EXPECT_EQ(keptSession(), 1);
    const auto asked = std::find_if(standin.calls.begin(), standin.calls.end(),
                                    [](const std::string& call) { return call.starts_with("AppendDML"); });
    ASSERT_NE(asked, standin.calls.end());
    RecordProperty("append", *asked); // refused where there is no Direct3D 12 device
}

TEST_F(ProviderWalk, TheOtherTwoDirectMLStatusesAreTested)
{
    offer({"DmlExecutionProvider"});
    for (const std::string call : {"SetSessionExecutionMode", "DisableMemPattern"})
    {
        standin = Standin{};
        offer({"DmlExecutionProvider"});
        standin.failing = {call};
        log.clear();
        const auto backend = load("gains.onnx");
        EXPECT_EQ(walkLog(), (Lines{append("DmlExecutionProvider"), failed("stand-in: " + call + " fails")}));
        EXPECT_EQ(standin.sessionAttempts, 1);
    }
}

TEST_F(ProviderWalk, APreferredProviderComesFirstAndOnlyOnce)
{
    offer({"DmlExecutionProvider", "CUDAExecutionProvider"});
    const auto listed = load("gains.onnx", "CUDAExecutionProvider");
    EXPECT_EQ(walkLog(), (Lines{append("CUDAExecutionProvider"), append("DmlExecutionProvider")}));
    EXPECT_EQ(keptSession(), 2) << "the last success stays, not the preferred one";

    offer({"DmlExecutionProvider", "OpenVINOExecutionProvider"});
    log.clear();
    const auto unlisted = load("gains.onnx", "OpenVINOExecutionProvider");
    EXPECT_EQ(walkLog(), (Lines{append("OpenVINOExecutionProvider"),
                                constructorLine("WARN", "Unknown EP: OpenVINOExecutionProvider"),
                                append("DmlExecutionProvider")}));

    log.clear();
    const auto notOffered = load("gains.onnx", "CUDAExecutionProvider");
    EXPECT_EQ(walkLog(), Lines{append("DmlExecutionProvider")});
}

TEST_F(ProviderWalk, PreferringTheCpuEndsTheWalkAtOnce)
{
    offer({"DmlExecutionProvider", "CUDAExecutionProvider"});
    const auto backend = load("gains.onnx", "CPUExecutionProvider");

    EXPECT_EQ(walkLog(), Lines{});
    EXPECT_EQ(sessionCalls(), (Lines{"CreateEnv 2 \"\"", "CreateSessionOptions", "CreateSession 1",
                                     "ReleaseSessionOptions"}));
}

TEST_F(ProviderWalk, AFailingProviderQueryOrCpuSessionIsLoggedAndReachesTheCaller)
{
    standin.failing = {"GetAvailableProviders"};
    EXPECT_EQ(loadFailure(), "stand-in: GetAvailableProviders fails");
    EXPECT_EQ(constructorLog(), (Lines{constructorLine("INFO", "Create Inference ONNX"),
                                       constructorLine("ERROR", "Failed to initialize ONNX session: "
                                                                "stand-in: GetAvailableProviders fails")}));

    standin.failing.clear();
    standin.failingSessions = {1, 2};
    offer({"CUDAExecutionProvider"});
    log.clear();
    EXPECT_EQ(loadFailure(), "stand-in: session 2 fails");
    EXPECT_EQ(
        walkLog(),
        (Lines{append("CUDAExecutionProvider"), failed("stand-in: session 1 fails"),
               constructorLine("ERROR", "Failed to initialize ONNX session: stand-in: session 2 fails")}));
}

TEST_F(ProviderWalk, FailuresBeforeAndAfterTheWalkReachTheCallerWithoutALine)
{
    for (const std::string call :
         {"SessionGetInputCount", "SessionGetInputTypeInfo", "SessionGetOutputTypeInfo"})
    {
        standin.failing = {call};
        EXPECT_EQ(loadFailure(), "stand-in: " + call + " fails");
    }
    EXPECT_EQ(log.lines(plog::error), Lines{});

    standin.failing = {"CreateEnv"};
    log.clear();
    EXPECT_EQ(loadFailure(), "stand-in: CreateEnv fails");
    EXPECT_EQ(log.lines(), Lines{});
}

} // namespace
