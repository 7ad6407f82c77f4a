// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "inference/BackendFixture.h"
#include "inference/ExecutionProviders.h"

namespace
{

using Lines = std::vector<std::string>;

const std::string cudaCall =
    "AppendCUDA device=0 search=0 limit=none arena=0 copy=1 stream=0 config=none tunable=00";
const std::string rocmCall =
    "AppendROCM device=0 search=0 limit=none arena=0 copy=1 stream=0 config=none tunable=00";

std::string append(const std::string& provider)
{
    return "INFO Append execution provider: " + provider + "ExecutionProvider";
}

std::string failed(const std::string& reason)
{
    return "ERROR Failed to init backend: stand-in: " + reason + " fails";
}

Lines words(const std::string& text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

class ProviderWalk : public BackendFixture
{
protected:
    /// Offers the providers, and after them the CPU, as every runtime does.
    void offer(const std::string& providers)
    {
        standin.providers.clear();
        for (const std::string& provider : words(providers))
            standin.providers.push_back(provider + "ExecutionProvider");
        standin.providers.emplace_back("CPUExecutionProvider");
    }

    /// The constructor's lines without what all of them have in common. The adapter choice's are left out.
    Lines constructorLog() const
    {
        const std::string origin =
            " [InferenceONNXImplMultiStem::InferenceONNXImplMultiStem] [INFERENCE_onnx] ";
        Lines lines;
        for (std::string line : log.lines())
            if (const auto at = line.find(origin); at != std::string::npos)
                lines.push_back(line.erase(at + 1, origin.size() - 1));
        return lines;
    }

    /// What follows the list of available providers.
    Lines walkLog() const
    {
        Lines lines = constructorLog();
        const auto listed = static_cast<std::ptrdiff_t>(1 + standin.providers.size());
        lines.erase(lines.begin(), lines.begin() + std::min(listed, std::ssize(lines)));
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
};

TEST_F(ProviderWalk, CpuAloneGetsOnePlainSessionAndNoAppendLine)
{
    auto backend = load("gains.onnx");
    EXPECT_EQ(constructorLog(),
              (Lines{"INFO Create Inference ONNX", "INFO Available Provider: CPUExecutionProvider"}));
    EXPECT_EQ(sessionCalls(), (Lines{"CreateEnv 2 \"\"", "CreateSessionOptions", "CreateSession 1"}));
    backend.reset();
    EXPECT_EQ(standin.calls.back(), "ReleaseSession 1");
}

// The runtime's own spelling of one provider differs from ours in case.
TEST_F(ProviderWalk, EveryWorkingProviderBuildsASessionAndTheLastOneStays)
{
    offer("CUDA ROCM Dml");
    const std::string device = std::to_string(selectDmlAdapterIndex());
    const auto backend = load("gains.onnx");

    EXPECT_EQ(constructorLog(),
              (Lines{"INFO Create Inference ONNX", "INFO Available Provider: CUDAExecutionProvider",
                     "INFO Available Provider: ROCMExecutionProvider",
                     "INFO Available Provider: DmlExecutionProvider",
                     "INFO Available Provider: CPUExecutionProvider", append("Dml"), append("CUDA"),
                     append("ROCm")}));
    EXPECT_EQ(sessionCalls(), (Lines{"CreateEnv 2 \"\"", "CreateSessionOptions", "SetSessionExecutionMode 0",
                                     "DisableMemPattern", "GetExecutionProviderApi DML 21",
                                     "AppendDML " + device, "CreateSession 1", "CreateSessionOptions",
                                     cudaCall, "CreateSession 2", "ReleaseSession 1", "CreateSessionOptions",
                                     rocmCall, "CreateSession 3", "ReleaseSession 2"}));
    EXPECT_EQ(keptSession(), 3);
}

struct Walk
{
    const char* name;
    std::string offered;
    std::string failing; ///< functions, and sessions by their number
    std::string preferred;
    std::string log; ///< a provider that is appended, !one that fails or ?one without append rule
    int attempts;
    int kept;
};

class ProviderWalkOutcome : public ProviderWalk, public ::testing::WithParamInterface<Walk>
{
};

TEST_P(ProviderWalkOutcome, IsTheLastSessionThatCouldBeBuilt)
{
    const Walk& walk = GetParam();
    offer(walk.offered);
    for (const std::string& failing : words(walk.failing))
        standin.failing.insert(failing);
    const auto backend =
        load("gains.onnx", walk.preferred.empty() ? "" : walk.preferred + "ExecutionProvider");
    Lines expected;
    for (const std::string& word : words(walk.log))
        if (word[0] == '!')
            expected.push_back(failed(word.substr(1)));
        else if (word[0] == '?')
            expected.push_back("WARN Unknown EP: " + word.substr(1) + "ExecutionProvider");
        else
            expected.push_back(append(word));
    EXPECT_EQ(walkLog(), expected);
    EXPECT_EQ(standin.sessionAttempts, walk.attempts);
    EXPECT_EQ(keptSession(), walk.kept);
}

INSTANTIATE_TEST_SUITE_P(
    ProviderWalk, ProviderWalkOutcome,
    ::testing::Values(
        Walk{"SecondWhereTheThirdFails", "Dml CUDA ROCM", "session3", "", "Dml CUDA ROCm !session3", 3, 2},
        Walk{"FirstWhereTheOtherAppendsFail", "Dml CUDA ROCM", "AppendCUDA AppendROCM", "",
             "Dml CUDA !AppendCUDA ROCm !AppendROCM", 1, 1},
        Walk{"SecondWhereTheFirstHasNoOptions", "Dml CUDA", "options1", "", "!options1 CUDA", 1, 1},
        Walk{"RocmWhereCudaFails", "ROCM CUDA", "session1", "", "CUDA !session1 ROCm", 2, 2},
        Walk{"CpuWhereAllFail", "Dml CUDA", "session1 session2", "", "Dml !session1 CUDA !session2", 3, 3},
        Walk{"CpuWithoutAppendRules", "QNN CoreML Tensorrt", "", "", "QNN ?QNN CoreML ?CoreML", 1, 1},
        Walk{"CpuWhereDirectMLTakesNoExecutionMode", "Dml", "SetSessionExecutionMode", "",
             "Dml !SetSessionExecutionMode", 1, 1},
        Walk{"CpuWhereDirectMLKeepsItsMemoryPattern", "Dml", "DisableMemPattern", "",
             "Dml !DisableMemPattern", 1, 1},
        Walk{"NotThePreferredOneWhichComesFirstAndOnce", "Dml CUDA", "", "CUDA", "CUDA Dml", 2, 2},
        Walk{"NotAPreferredOneBeyondTheList", "Dml OpenVINO", "", "OpenVINO", "OpenVINO ?OpenVINO Dml", 1, 1},
        Walk{"NotAPreferredOneThatIsNotOffered", "Dml", "", "CUDA", "Dml", 1, 1},
        Walk{"ThePreferredCpuAtOnce", "Dml CUDA", "", "CPU", "", 1, 1}),
    [](const auto& test) { return std::string(test.param.name); });

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
    offer("Dml");
    standin.directML = GetParam().table;
    standin.failing = GetParam().failing;
    const auto backend = load("gains.onnx");

    EXPECT_EQ(walkLog(), Lines{append("Dml")});
    EXPECT_EQ(keptSession(), 1);
    EXPECT_EQ(standin.created["status"], GetParam().statuses);
    EXPECT_EQ(standin.alive["status"], 0);
    Lines calls{"CreateEnv 2 \"\"", "CreateSessionOptions", "SetSessionExecutionMode 0", "DisableMemPattern",
                "GetExecutionProviderApi DML 21"};
    if (GetParam().appended)
        calls.push_back("AppendDML " + std::to_string(selectDmlAdapterIndex()));
    calls.emplace_back("CreateSession 1");
    EXPECT_EQ(sessionCalls(), calls);
}

INSTANTIATE_TEST_SUITE_P(
    ProviderWalk, DirectMLRefused,
    ::testing::Values(
        DirectMLRefusal{"ByTheAppend", Standin::DirectMLTable::Own, {"AppendDML"}, 1, true},
        DirectMLRefusal{
            "ByTheTableQuery", Standin::DirectMLTable::Own, {"GetExecutionProviderApi"}, 1, false},
        DirectMLRefusal{"ByAMissingTable", Standin::DirectMLTable::Missing, {}, 0, false}),
    [](const auto& test) { return std::string(test.param.name); });

/// The adapter in the middle is one that DirectML should have.
class ThreeAdapters : public IAdapterList
{
public:
    std::uint32_t open() override { return 0; }
    std::uint32_t select(std::uint32_t index) override
    {
        current = index;
        return index < 3 ? 0 : 0x887A0002; // DXGI_ERROR_NOT_FOUND
    }
    std::uint32_t describe(AdapterDescription& description) override
    {
        description = {u"GeForce", current == 1 ? 0x10DEU : 0x8086U, 0};
        return 0;
    }

private:
    std::uint32_t current = 0;
};

TEST_F(ProviderWalk, DirectMLGetsTheAdapterThatIsPreferred)
{
    ThreeAdapters adapters;
    Ort::SessionOptions options;
    EXPECT_TRUE(appendProvider(options, "DmlExecutionProvider", adapters));
    EXPECT_EQ(standin.calls.back(), "AppendDML 1");
}

TEST_F(ProviderWalk, RealDirectMLEndsInASessionWhateverTheAppendSays)
{
    offer("Dml");
    standin.directML = Standin::DirectMLTable::Real;
    const auto backend = load("gains.onnx");

    EXPECT_EQ(log.lines(plog::error), Lines{});
    EXPECT_EQ(keptSession(), 1);
    const auto asked = std::find_if(standin.calls.begin(), standin.calls.end(),
                                    [](const std::string& call) { return call.starts_with("AppendDML"); });
    ASSERT_NE(asked, standin.calls.end());
    RecordProperty("append", *asked); // refused where there is no Direct3D 12 device
}

TEST_F(ProviderWalk, AFailingProviderQueryOrCpuSessionIsLoggedAndReachesTheCaller)
{
    const std::string unusable = "ERROR Failed to initialize ONNX session: stand-in: ";
    standin.failing = {"GetAvailableProviders"};
    EXPECT_EQ(loadFailure(), "stand-in: GetAvailableProviders fails");
    EXPECT_EQ(constructorLog(),
              (Lines{"INFO Create Inference ONNX", unusable + "GetAvailableProviders fails"}));

    standin.failing = {"options1"};
    EXPECT_EQ(loadFailure(), "stand-in: options1 fails");
    EXPECT_EQ(log.lines(plog::error).size(), 2U);

    standin.optionsAttempts = standin.sessionAttempts = 0;
    standin.failing = {"session1", "session2"};
    offer("CUDA");
    log.clear();
    EXPECT_EQ(loadFailure(), "stand-in: session2 fails");
    EXPECT_EQ(walkLog(), (Lines{append("CUDA"), failed("session1"), unusable + "session2 fails"}));
}

TEST_F(ProviderWalk, FailuresBeforeAndAfterTheWalkReachTheCallerWithoutALine)
{
    for (const std::string call :
         {"CreateEnv", "SessionGetInputCount", "SessionGetInputTypeInfo", "SessionGetOutputTypeInfo"})
    {
        standin.failing = {call};
        EXPECT_EQ(loadFailure(), "stand-in: " + call + " fails");
    }
    EXPECT_EQ(log.lines(plog::error), Lines{});
}

} // namespace
