#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "inference/BackendFixture.h"

namespace
{

using Lines = std::vector<std::string>;
using Shape = std::array<std::int64_t, 4>;

constexpr StemFlags allStems{true, true, true, true, true, true};

/// Of the model gains.onnx, by output name.
const std::map<std::string, float> gains{
    {"vocals_output", 10.0F / 32},         {"drum_output", 8.0F / 32},
    {"piano_output", 4.0F / 32},           {"acoustic_guitar_output", 3.0F / 32},
    {"electric_guitar_output", 1.0F / 32}, {"bass_output", 6.0F / 32}};

/// Small integers, so that products with the gains are exact.
std::vector<float> testInput(std::size_t count)
{
    std::vector<float> samples(count);
    for (std::size_t i = 0; i < count; ++i)
        samples[i] = static_cast<float>(i % 1021) - 500.0F;
    return samples;
}

class ModelRun : public BackendFixture
{
protected:
    static constexpr Shape shape{1, 4, 256, 2048};
    static constexpr std::size_t count = std::size_t{4} * 256 * 2048;

    /// Runs the backend on buffers filled with 7, which no result contains, and keeps the outputs by name.
    bool run(IInference& backend, const Lines& names = outputNames)
    {
        buffers.assign(names.size(), std::vector<float>(count, 7.0F));
        std::vector<float*> pointers;
        for (auto& buffer : buffers)
            pointers.push_back(buffer.data());
        return backend.run(input.data(), pointers, shape);
    }

    bool isScaled(std::size_t output, float gain) const
    {
        return std::equal(input.begin(), input.end(), buffers[output].begin(),
                          [&](float in, float out) { return out == gain * in; });
    }

    bool isSilent(std::size_t output) const
    {
        return std::all_of(buffers[output].begin(), buffers[output].end(),
                           [](float value) { return value == 0.0F; });
    }

    bool allSilent() const
    {
        for (std::size_t i = 0; i < buffers.size(); ++i)
            if (!isSilent(i))
                return false;
        return !buffers.empty();
    }

    std::string lastCall() const { return standin.calls.back(); }

    std::vector<float> input = testInput(count);
    std::vector<std::vector<float>> buffers;
};

TEST_F(ModelRun, EveryStemIsWrittenStraightIntoItsBuffer)
{
    const auto backend = load("gains.onnx");
    setSelectedStems(backend, allStems);
    EXPECT_TRUE(run(*backend));

    for (std::size_t i = 0; i < outputNames.size(); ++i)
        EXPECT_TRUE(isScaled(i, gains.at(outputNames[i]))) << outputNames[i];
    EXPECT_NE(std::find(standin.calls.begin(), standin.calls.end(), "CreateCpuMemoryInfo 0 -1"),
              standin.calls.end());
    EXPECT_EQ(lastCall(),
              "Run 1: unified_input[1x4x256x2048] vocals_flag=1 drum_flag=1 bass_flag=1 piano_flag=1 "
              "acoustic_guitar_flag=1 electric_guitar_flag=1 -> vocals_output[1x4x256x2048] "
              "drum_output[1x4x256x2048] piano_output[1x4x256x2048] acoustic_guitar_output[1x4x256x2048] "
              "electric_guitar_output[1x4x256x2048] bass_output[1x4x256x2048]");
    EXPECT_EQ(standin.created["value"], 13);
    EXPECT_EQ(standin.alive["value"], 0);
    EXPECT_EQ(standin.alive["run options"], 0);
}

// One stem at a time: its flag reaches the model under its own name, and every other buffer is silence.
TEST_F(ModelRun, EachFlagReachesTheModelAndSparesItsOwnStem)
{
    const std::array<std::pair<StemFlags, const char*>, 6> cases{
        {{{true, false, false, false, false, false}, "vocals"},
         {{false, true, false, false, false, false}, "drum"},
         {{false, false, true, false, false, false}, "bass"},
         {{false, false, false, true, false, false}, "piano"},
         {{false, false, false, false, true, false}, "acoustic_guitar"},
         {{false, false, false, false, false, true}, "electric_guitar"}}};
    const auto backend = load("gains.onnx");
    for (const auto& [flags, stem] : cases)
    {
        setSelectedStems(backend, flags);
        EXPECT_TRUE(run(*backend));
        const std::string call = lastCall();
        EXPECT_EQ(call.find("_flag=1"),
                  call.find(" " + std::string(stem) + "_flag=1") + 1 + std::string(stem).size());
        EXPECT_EQ(call.find("_flag=1"), call.rfind("_flag=1"));
        for (std::size_t i = 0; i < outputNames.size(); ++i)
        {
            const bool own = outputNames[i] == std::string(stem) + "_output";
            EXPECT_TRUE(own ? isScaled(i, gains.at(outputNames[i])) : isSilent(i))
                << outputNames[i] << " of " << stem;
        }
    }
}

TEST_F(ModelRun, WithNoStemSelectedTheNetworkRunsAndEverythingIsSilent)
{
    const auto backend = load("gains.onnx"); // nothing is selected until someone asks
    EXPECT_TRUE(run(*backend));
    EXPECT_TRUE(lastCall().starts_with("Run 1:"));
    EXPECT_TRUE(allSilent());
}

TEST_F(ModelRun, OutputsFollowTheirNamesAndNotTheirPlaces)
{
    Lines reversed(outputNames.rbegin(), outputNames.rend());
    const std::vector<char> model = readModel("gains.onnx");
    const auto backend = makeInferenceBackend(model.data(), model.size(), {}, reversed, "");
    StemFlags flags = allStems;
    flags.bass = false;
    setSelectedStems(backend, flags);
    EXPECT_TRUE(run(*backend, reversed));
    EXPECT_TRUE(isSilent(0)) << "bass";
    for (std::size_t i = 1; i < reversed.size(); ++i)
        EXPECT_TRUE(isScaled(i, gains.at(reversed[i]))) << reversed[i];

    const auto otherModelOrder = load("reordered.onnx");
    setSelectedStems(otherModelOrder, flags);
    EXPECT_TRUE(run(*otherModelOrder));
    for (std::size_t i = 0; i + 1 < outputNames.size(); ++i)
        EXPECT_TRUE(isScaled(i, gains.at(outputNames[i]))) << outputNames[i];
    EXPECT_TRUE(isSilent(5)) << "bass";
}

TEST_F(ModelRun, WithoutGivenNamesTheModelsOwnOnesAreUsed)
{
    const std::vector<char> model = readModel("reordered.onnx");
    const auto backend = makeInferenceBackend(model.data(), model.size(), {}, {}, "");
    setSelectedStems(backend, allStems);
    const Lines flagOrder{"vocals_output",          "drum_output",           "bass_output", "piano_output",
                          "acoustic_guitar_output", "electric_guitar_output"};
    EXPECT_TRUE(run(*backend, flagOrder));
    for (std::size_t i = 0; i < flagOrder.size(); ++i)
        EXPECT_TRUE(isScaled(i, gains.at(flagOrder[i]))) << flagOrder[i];
}

TEST_F(ModelRun, AnOutputThatNoFlagSpeaksForIsAlwaysSilent)
{
    std::vector<char> model = readModel("gains.onnx");
    const std::string known = "drum_output";
    const std::string unknown = "horn_output"; // of the same length, so that the file stays well-formed
    int renamed = 0;
    for (auto at = model.begin();
         (at = std::search(at, model.end(), known.begin(), known.end())) != model.end(); ++renamed)
        std::copy(unknown.begin(), unknown.end(), at);
    ASSERT_GT(renamed, 1);

    const auto backend = makeInferenceBackend(model.data(), model.size(), {}, {unknown, "bass_output"}, "");
    setSelectedStems(backend, allStems);
    EXPECT_TRUE(run(*backend, {unknown, "bass_output"}));
    EXPECT_EQ(log.lines(plog::error), Lines{});
    EXPECT_TRUE(isSilent(0));
    EXPECT_TRUE(isScaled(1, gains.at("bass_output")));
}

TEST_F(ModelRun, AFailedRunIsLoggedCountsAsDoneAndLeavesSilence)
{
    const auto backend = load("gains.onnx");
    setSelectedStems(backend, allStems);
    log.clear();
    standin.failing = {"Run"};
    EXPECT_TRUE(run(*backend));
    EXPECT_EQ(log.lines(),
              Lines{"ERROR [InferenceONNXImplMultiStem::run] [INFERENCE_onnx] Exception during inference: "
                    "stand-in: Run fails"});
    EXPECT_TRUE(allSilent());
    EXPECT_EQ(standin.created["status"], 1);

    standin.failing.clear();
    EXPECT_TRUE(run(*backend));
    EXPECT_TRUE(isScaled(0, gains.at("vocals_output"))) << "the next run is as if nothing had happened";
}

TEST_F(ModelRun, ARunThatFailsInsideTheNetworkLeavesSilence)
{
    const auto backend = load("fail_on_request.onnx");
    setSelectedStems(backend, allStems);
    input[12345] = 2e5F; // louder than the model bears
    EXPECT_TRUE(run(*backend));
    EXPECT_EQ(log.lines(plog::error).size(), 1U);
    EXPECT_TRUE(allSilent());

    input[12345] = 0.0F;
    EXPECT_TRUE(run(*backend));
    EXPECT_TRUE(isScaled(0, gains.at("vocals_output")));
}

// The runtime finds out during the run; nothing distinguishes that from other failing runs.
TEST_F(ModelRun, ModelsWithAWrongInterfaceGiveSilenceAndALine)
{
    for (const std::string model : {"missing_output", "missing_flag", "extra_input", "wrong_type",
                                    "small_segment", "mono", "sequence_output"})
    {
        const auto backend = load("wrong/" + model + ".onnx");
        setSelectedStems(backend, allStems);
        log.clear();
        EXPECT_TRUE(run(*backend)) << model;
        const Lines lines = log.lines();
        ASSERT_EQ(lines.size(), 1U) << model;
        EXPECT_TRUE(
            lines[0].starts_with("ERROR [InferenceONNXImplMultiStem::run] [INFERENCE_onnx] Exception during "
                                 "inference: "))
            << lines[0];
        EXPECT_TRUE(allSilent()) << model;
    }
}

TEST_F(ModelRun, OutputsThatCannotBeBoundAreTheCallersFailure)
{
    const auto freeDimension = load("wrong/dynamic_output_shape.onnx");
    EXPECT_THROW(run(*freeDimension), Ort::Exception);

    const auto backend = load("gains.onnx");
    std::vector<float> small(count / 2);
    EXPECT_THROW(backend->run(input.data(), std::vector<float*>(6, small.data()), {1, 4, 128, 2048}),
                 Ort::Exception);

    for (const std::string call : {"CreateCpuMemoryInfo", "CreateRunOptions"})
    {
        standin.failing = {call};
        EXPECT_THROW(run(*backend), Ort::Exception) << call;
    }
    EXPECT_EQ(log.lines(plog::error), Lines{});
    for (const std::string kind : {"value", "memory info", "run options", "status"})
        EXPECT_EQ(standin.alive[kind], 0) << kind;
}

TEST_F(ModelRun, SelectingStemsOfAnotherBackendIsNoAccident)
{
    class Other : public IInference
    {
    public:
        bool run(const float*, std::vector<float*>, const Shape&) override { return true; }
    };
    setSelectedStems(std::make_shared<Other>(), allStems);
    setSelectedStems(nullptr, allStems);
}

} // namespace
