// SPDX-License-Identifier: MIT
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

constexpr StemFlags allStems{true, true, true, true, true, true};

/// Of the model gains.onnx, by output name.
const std::map<std::string, float> gains{
    {"vocals_output", 10.0F / 32},         {"drum_output", 8.0F / 32},
    {"piano_output", 4.0F / 32},           {"acoustic_guitar_output", 3.0F / 32},
    {"electric_guitar_output", 1.0F / 32}, {"bass_output", 6.0F / 32}};

class ModelRun : public BackendFixture
{
protected:
    static constexpr std::array<std::int64_t, 4> shape{1, 4, 256, 2048};
    static constexpr std::size_t count = std::size_t{4} * 256 * 2048;

    /// Input of small integers, so that products with the gains are exact.
    ModelRun() : input(count)
    {
        for (std::size_t i = 0; i < count; ++i)
            input[i] = static_cast<float>(i % 1021) - 500.0F;
    }

    /// Runs the backend on buffers filled with 7, which no result contains.
    std::vector<std::vector<float>> run(IInference& backend, std::size_t outputs)
    {
        std::vector<std::vector<float>> buffers(outputs, std::vector<float>(count, 7.0F));
        std::vector<float*> pointers;
        for (auto& buffer : buffers)
            pointers.push_back(buffer.data());
        EXPECT_TRUE(backend.run(input.data(), pointers, shape));
        return buffers;
    }

    /// Expects each buffer to hold the input times its output's gain where that is audible, and zeros
    /// elsewhere.
    void expectRun(IInference& backend, const Lines& names, const Lines& audible)
    {
        const auto buffers = run(backend, names.size());
        for (std::size_t i = 0; i < names.size(); ++i)
        {
            const bool heard = std::find(audible.begin(), audible.end(), names[i]) != audible.end();
            const float gain = heard ? gains.at(names[i]) : 0.0F;
            EXPECT_TRUE(std::equal(input.begin(), input.end(), buffers[i].begin(),
                                   [&](float in, float out) { return out == gain * in; }))
                << names[i] << (heard ? " audible" : " silent");
        }
    }

    std::vector<float> input;
};

TEST_F(ModelRun, TheModelGetsTheSpectrogramTheFlagsAndTheBuffersByName)
{
    const auto backend = load("gains.onnx");
    setSelectedStems(backend, allStems);
    expectRun(*backend, outputNames, outputNames);
    EXPECT_EQ(standin.calls.end()[-2], "CreateCpuMemoryInfo 0 -1");
    EXPECT_EQ(standin.calls.back(),
              "Run 1: unified_input[1x4x256x2048] vocals_flag=1 drum_flag=1 bass_flag=1 piano_flag=1 "
              "acoustic_guitar_flag=1 electric_guitar_flag=1 -> vocals_output[1x4x256x2048] "
              "drum_output[1x4x256x2048] piano_output[1x4x256x2048] acoustic_guitar_output[1x4x256x2048] "
              "electric_guitar_output[1x4x256x2048] bass_output[1x4x256x2048]");
}

TEST_F(ModelRun, EachFlagReachesTheModelAndSparesItsOwnStem)
{
    const auto backend = load("gains.onnx");
    expectRun(*backend, outputNames, {}); // nothing is selected until someone asks; the network still runs
    EXPECT_NE(standin.calls.back().find("vocals_flag=0 drum_flag=0 bass_flag=0 piano_flag=0 "
                                        "acoustic_guitar_flag=0 electric_guitar_flag=0"),
              std::string::npos);
    const std::vector<std::pair<StemFlags, std::string>> cases{
        {{true, false, false, false, false, false}, "vocals"},
        {{false, true, false, false, false, false}, "drum"},
        {{false, false, true, false, false, false}, "bass"},
        {{false, false, false, true, false, false}, "piano"},
        {{false, false, false, false, true, false}, "acoustic_guitar"},
        {{false, false, false, false, false, true}, "electric_guitar"}};
    for (const auto& [flags, stem] : cases)
    {
        setSelectedStems(backend, flags);
        expectRun(*backend, outputNames, {stem + "_output"});
        const std::string& call = standin.calls.back();
        EXPECT_NE(call.find(" " + stem + "_flag=1"), std::string::npos) << call;
        EXPECT_EQ(call.find("_flag=1"), call.rfind("_flag=1")) << call;
    }
}

TEST_F(ModelRun, OutputsFollowTheirNamesAndNotTheirPlaces)
{
    StemFlags flags = allStems;
    flags.bass = false;
    const Lines reversed(outputNames.rbegin(), outputNames.rend());
    const Lines withoutBass(outputNames.begin(), outputNames.end() - 1);
    std::vector<char> model = readModel("gains.onnx");
    const auto given = makeInferenceBackend(model.data(), model.size(), {}, reversed, "");
    setSelectedStems(given, flags);
    expectRun(*given, reversed, withoutBass);

    model = readModel("reordered.onnx");
    const auto own = makeInferenceBackend(model.data(), model.size(), {}, {}, ""); // the model's own names
    setSelectedStems(own, flags);
    expectRun(*own,
              {"vocals_output", "drum_output", "bass_output", "piano_output", "acoustic_guitar_output",
               "electric_guitar_output"},
              withoutBass);
}

TEST_F(ModelRun, AnOutputThatNoFlagSpeaksForIsAlwaysSilent)
{
    std::vector<char> model = readModel("gains.onnx");
    const std::string known = "drum_output";
    const std::string unknown = "horn_output"; // of the same length, so that the file stays well-formed
    for (auto at = model.begin();
         (at = std::search(at, model.end(), known.begin(), known.end())) != model.end();)
        std::copy(unknown.begin(), unknown.end(), at);

    const auto backend = makeInferenceBackend(model.data(), model.size(), {}, {unknown, "bass_output"}, "");
    setSelectedStems(backend, allStems);
    expectRun(*backend, {unknown, "bass_output"}, {"bass_output"});
    EXPECT_EQ(log.lines(plog::error), Lines{});
}

TEST_F(ModelRun, AFailedRunIsLoggedCountsAsDoneAndSilencesOnlyWhatIsNotSelected)
{
    const auto backend = load("gains.onnx");
    setSelectedStems(backend, {.drum = true, .bass = true});
    log.clear();
    standin.failing = {"Run"};
    const auto buffers = run(*backend, outputNames.size());
    for (std::size_t i = 0; i < outputNames.size(); ++i)
    {
        const float left = outputNames[i] == "drum_output" || outputNames[i] == "bass_output" ? 7.0F : 0.0F;
        EXPECT_EQ(buffers[i], std::vector<float>(count, left)) << outputNames[i];
    }
    EXPECT_EQ(log.lines(),
              Lines{"ERROR [InferenceONNXImplMultiStem::run] [INFERENCE_onnx] Exception during inference: "
                    "stand-in: Run fails"});
    standin.failing.clear();
    expectRun(*backend, outputNames, {"drum_output", "bass_output"}); // as if nothing had happened
}

TEST_F(ModelRun, OutputsThatCannotBeBoundAreTheCallersFailure)
{
    std::vector<float> buffer(count);
    const std::vector<float*> pointers(outputNames.size(), buffer.data());
    const auto freeDimension = load("wrong/dynamic_output_shape.onnx");
    EXPECT_THROW(freeDimension->run(input.data(), pointers, shape), Ort::Exception);

    const auto backend = load("gains.onnx");
    EXPECT_THROW(backend->run(input.data(), pointers, {1, 4, 128, 2048}), Ort::Exception);
    for (const std::string call : {"CreateCpuMemoryInfo", "CreateRunOptions"})
    {
        standin.failing = {call};
        EXPECT_THROW(backend->run(input.data(), pointers, shape), Ort::Exception) << call;
    }
    EXPECT_EQ(log.lines(plog::error), Lines{});
}

} // namespace
