// SPDX-License-Identifier: MIT
// A network that users share, on the real runtime.

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "inference/InferenceBackend.h"
#include "support/ModelFile.h"

namespace
{

constexpr std::array<std::int64_t, 4> shape{1, 4, 256, 2048};
constexpr std::size_t count = std::size_t{4} * 256 * 2048;

const std::vector<std::string> names{"vocals_output",          "drum_output",
                                     "piano_output",           "acoustic_guitar_output",
                                     "electric_guitar_output", "bass_output"};

SessionChoices onProcessor()
{
    SessionChoices choices;
    choices.provider = "CPUExecutionProvider";
    choices.onlyProvider = true;
    return choices;
}

std::shared_ptr<ISharedModel> load(const std::string& model, const SessionChoices& choices = onProcessor())
{
    const std::vector<char> bytes = readModel(model);
    return makeSharedModel(bytes.data(), bytes.size(), names, choices);
}

/// What a network makes of an input of ones: the first value of each stem.
class Buffers
{
public:
    std::vector<float*> pointers()
    {
        std::vector<float*> places;
        for (std::vector<float>& output : outputs)
            places.push_back(output.data());
        return places;
    }

    std::array<float, 6> firstValues() const
    {
        std::array<float, 6> values{};
        for (std::size_t stem = 0; stem < values.size(); ++stem)
            values.at(stem) = outputs.at(stem).front();
        return values;
    }

    std::vector<float> input = std::vector<float>(count, 1.0F);
    std::vector<std::vector<float>> outputs{6, std::vector<float>(count, 9.0F)};
};

TEST(SharedModel, EveryRunHasItsOwnChoiceOfStems)
{
    const auto model = load("gains.onnx");
    const auto runSwitch = model->makeRunSwitch();
    Buffers buffers;
    model->evaluate(buffers.input.data(), buffers.pointers(), shape, {.vocals = true, .bass = true},
                    *runSwitch);
    EXPECT_EQ(buffers.firstValues(), (std::array<float, 6>{10.0F / 32, 0, 0, 0, 0, 6.0F / 32}));
    model->evaluate(buffers.input.data(), buffers.pointers(), shape, {.drum = true}, *runSwitch);
    EXPECT_EQ(buffers.firstValues(), (std::array<float, 6>{0, 8.0F / 32, 0, 0, 0, 0}));
}

TEST(SharedModel, RunsEndWhereTheirUsersSwitchSaysSoAndNoOthers)
{
    const auto model = load("gains.onnx");
    const auto stopped = model->makeRunSwitch();
    const auto other = model->makeRunSwitch();
    Buffers buffers;
    const auto run = [&](const IRunSwitch& runSwitch)
    { model->evaluate(buffers.input.data(), buffers.pointers(), shape, {.vocals = true}, runSwitch); };
    stopped->stop();
    EXPECT_THROW(run(*stopped), std::exception);
    EXPECT_NO_THROW(run(*other));
    stopped->allow();
    EXPECT_NO_THROW(run(*stopped));
}

TEST(SharedModel, AFailedRunIsReported)
{
    const auto model = load("fail_on_request.onnx");
    const auto runSwitch = model->makeRunSwitch();
    Buffers buffers;
    std::fill(buffers.input.begin(), buffers.input.end(), 1e6F);
    EXPECT_THROW(
        model->evaluate(buffers.input.data(), buffers.pointers(), shape, {.vocals = true}, *runSwitch),
        std::exception);
}

std::string refusal(const std::string& model, const SessionChoices& choices = onProcessor())
{
    try
    {
        load(model, choices);
    }
    catch (const std::exception& failure)
    {
        return failure.what();
    }
    return {};
}

TEST(SharedModel, ANetworkThatBreaksTheContractIsRefusedWithASentence)
{
    EXPECT_EQ(refusal("wrong/missing_output.onnx"), "The output \"bass_output\" is missing.");
    EXPECT_EQ(refusal("wrong/missing_flag.onnx"), "The input \"piano_flag\" is missing.");
    EXPECT_EQ(refusal("wrong/extra_input.onnx"),
              "The input \"temperature\" must not be there: the library has nothing to feed it with.");
    EXPECT_EQ(refusal("wrong/wrong_type.onnx"),
              "The input \"unified_input\" is of type float64, it must be float32.");
    EXPECT_EQ(refusal("wrong/mono.onnx"),
              "The input \"unified_input\" has the shape (1, 2, 256, 2048), it must be (1, 4, 256, 2048).");
    for (const char* model :
         {"wrong/dynamic_output_shape.onnx", "wrong/small_segment.onnx", "wrong/sequence_output.onnx"})
        EXPECT_NE(refusal(model), "") << model;
    EXPECT_EQ(refusal("reordered.onnx"), "") << "outputs are found by name";
}

TEST(SharedModel, AProviderThatIsAskedForByNameIsUsedOrRefused)
{
    EXPECT_EQ(load("gains.onnx")->facts().provider, "CPUExecutionProvider");
    SessionChoices choices = onProcessor();
    choices.provider = "NoSuchExecutionProvider";
    EXPECT_THROW(load("gains.onnx", choices), ProviderRefused);
    choices.onlyProvider = false;
    EXPECT_FALSE(load("gains.onnx", choices)->facts().provider.empty());
}

TEST(SharedModel, ThreadsDoNotChangeTheResult)
{
    for (const unsigned threads : {0U, 1U, 2U})
        for (const bool free : {false, true})
        {
            SessionChoices choices = onProcessor();
            choices.threads = threads;
            choices.pinThreads = choices.spinThreads = !free;
            const auto model = load("gains.onnx", choices);
            Buffers buffers;
            model->evaluate(buffers.input.data(), buffers.pointers(), shape, {.piano = true},
                            *model->makeRunSwitch());
            EXPECT_EQ(buffers.firstValues(), (std::array<float, 6>{0, 0, 4.0F / 32, 0, 0, 0}))
                << threads << " threads";
        }
}

} // namespace
