// SPDX-License-Identifier: MIT
// What contexts and streams of the built library can be asked for.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tonwerk/tonwerk_c.h>

#include "support/ModelFile.h"
#include "support/Stream.h"

namespace
{

using Context = std::unique_ptr<tonwerk_context, decltype(&tonwerk_context_destroy)>;
using CStream = std::unique_ptr<tonwerk_stream, decltype(&tonwerk_stream_destroy)>;

tonwerk_status load(const std::string& model, const tonwerk_context_options& options, Context& context)
{
    const std::vector<char> bytes = readModel(model);
    tonwerk_context* made = nullptr;
    const tonwerk_status status = tonwerk_context_open(bytes.data(), bytes.size(), &options, &made);
    context.reset(made);
    return status;
}

Context loaded(const std::string& model, tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT)
{
    Context context{nullptr, tonwerk_context_destroy};
    EXPECT_EQ(load(model, options, context), TONWERK_OK);
    return context;
}

tonwerk_stream_options preset(const char* name, std::uint32_t stems = TONWERK_ALL_STEMS)
{
    tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
    options.stems = stems;
    EXPECT_EQ(tonwerk_preset(name, &options), TONWERK_OK);
    return options;
}

CStream opened(const Context& context, const tonwerk_stream_options& options)
{
    tonwerk_stream* stream = nullptr;
    EXPECT_EQ(tonwerk_stream_open(context.get(), &options, &stream), TONWERK_OK) << tonwerk_last_error();
    return {stream, tonwerk_stream_destroy};
}

/// A whole signal through a stream, channel by channel.
std::array<Stereo, stemCount> separated(const CStream& stream, const Stereo& signal, std::size_t block)
{
    for (std::size_t first = 0; first < signal.size(); first += block)
        EXPECT_EQ(tonwerk_stream_push_planar(stream.get(), &signal.left[first], &signal.right[first],
                                             std::min(block, signal.size() - first)),
                  TONWERK_OK);
    EXPECT_EQ(tonwerk_stream_flush(stream.get()), TONWERK_OK);
    std::array<Stereo, stemCount> stems;
    std::array<float*, TONWERK_CHANNEL_COUNT> channels{};
    for (std::size_t stem = 0; stem < stemCount; ++stem)
    {
        stems.at(stem) = silence(signal.size());
        channels.at(2 * stem) = stems.at(stem).left.data();
        channels.at(2 * stem + 1) = stems.at(stem).right.data();
    }
    std::size_t count = 0;
    EXPECT_EQ(tonwerk_stream_read_planar(stream.get(), channels.data(), signal.size(), &count), TONWERK_OK);
    EXPECT_EQ(count, signal.size());
    return stems;
}

TEST(StreamOptions, PlanarAndInterleavedAreTheSameSamples)
{
    const Context context = loaded("neighbours.onnx");
    const Stereo signal = noise(30000);
    const auto planar = separated(opened(context, preset("live")), signal, 441);
    const CStream stream = opened(context, preset("live"));
    ASSERT_EQ(tonwerk_stream_push(stream.get(), packed(signal, true).data(), signal.size()), TONWERK_OK);
    ASSERT_EQ(tonwerk_stream_flush(stream.get()), TONWERK_OK);
    std::vector<float> drumSamples(2 * signal.size());
    std::array<float*, stemCount> targets{};
    targets[TONWERK_DRUM] = drumSamples.data();
    std::size_t count = 0;
    ASSERT_EQ(tonwerk_stream_read(stream.get(), targets.data(), signal.size(), &count), TONWERK_OK);
    EXPECT_EQ(drumSamples, packed(planar[drum], true));
}

TEST(StreamOptions, StreamsOfOneContextHaveTheirOwnStemsAndMayRunOnDifferentThreads)
{
    const Context context = loaded("gains.onnx");
    const Stereo signal = noise(100000);
    const auto separate = [&](std::uint32_t stems)
    { return separated(opened(context, preset("live", stems)), signal, 1000); };
    auto first = std::async(std::launch::async, separate, 1U << TONWERK_VOCALS);
    auto second = std::async(std::launch::async, separate, 1U << TONWERK_BASS);
    const auto vocalsOnly = first.get();
    const auto bassOnly = second.get();
    for (std::size_t stem = 0; stem < modelGains.size(); ++stem)
    {
        const Stereo expected = scaled(signal, modelGains.at(stem));
        const Stereo nothing = silence(signal.size());
        // The ends of a stream are bent by half a part in 4,096 at most.
        EXPECT_LE(largestDifference(vocalsOnly.at(stem), stem == vocals ? expected : nothing), 2.5e-4F);
        EXPECT_LE(largestDifference(bassOnly.at(stem), stem == bass ? expected : nothing), 2.5e-4F);
    }
}

TEST(StreamOptions, PresetsAreListedByLatencyAndCanBeStreamed)
{
    const Context context = loaded("gains.onnx");
    std::vector<std::string> names;
    std::uint64_t latency = 0;
    while (const char* name = tonwerk_preset_name(static_cast<std::uint32_t>(names.size())))
    {
        const CStream stream = opened(context, preset(name));
        EXPECT_GE(tonwerk_stream_latency(stream.get()), latency) << name;
        latency = tonwerk_stream_latency(stream.get());
        names.emplace_back(name);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"instant", "live", "normal", "smooth", "best"}));
    EXPECT_LE(tonwerk_stream_latency(opened(context, preset("instant")).get()), 0.22 * 44100);
    EXPECT_LE(tonwerk_stream_latency(opened(context, preset("live")).get()), 0.32 * 44100);
    tonwerk_stream_options options = TONWERK_STREAM_OPTIONS_INIT;
    EXPECT_EQ(tonwerk_preset("none", &options), TONWERK_INVALID_ARGUMENT);
    EXPECT_STREQ(tonwerk_last_error(), "An argument is invalid. There is no preset of that name.");
}

TEST(StreamOptions, TellWhenTheModelRunsNext)
{
    const CStream stream = opened(loaded("gains.onnx"), preset("live"));
    const std::vector<float> block(std::size_t{2} * 20480, 0.1F);
    const std::uint64_t first = tonwerk_stream_frames_until_result(stream.get());
    ASSERT_LE(first, 20480U);
    ASSERT_EQ(tonwerk_stream_push(stream.get(), block.data(), first - 1), TONWERK_OK);
    EXPECT_EQ(tonwerk_stream_frames_until_result(stream.get()), 1U);
    EXPECT_EQ(tonwerk_stream_available(stream.get()), 0U);
    ASSERT_EQ(tonwerk_stream_push(stream.get(), block.data(), 1), TONWERK_OK);
    EXPECT_GT(tonwerk_stream_available(stream.get()), 0U);

    tonwerk_stream_info info{};
    info.size = sizeof info;
    ASSERT_EQ(tonwerk_stream_get_info(stream.get(), &info), TONWERK_OK);
    EXPECT_EQ(info.stems, TONWERK_ALL_STEMS);
    EXPECT_EQ(info.step, 10U);
    EXPECT_EQ(info.lookahead, 0U);
    EXPECT_EQ(info.blend, 0U);
    EXPECT_EQ(info.latency, tonwerk_stream_latency(stream.get()));
    EXPECT_EQ(info.available, tonwerk_stream_available(stream.get()));
    EXPECT_EQ(info.frames_until_result, std::uint64_t{10} * 1024);
    EXPECT_EQ(info.runs, 1U);
    EXPECT_EQ(info.failed_runs, 0U);
    EXPECT_GT(info.last_run_seconds, 0.0);
}

TEST(StreamOptions, ImpossibleOnesAreRefusedWithASentence)
{
    const Context context = loaded("gains.onnx");
    const auto refusal = [&](std::uint32_t step, std::uint32_t lookahead, std::uint32_t blend)
    {
        const tonwerk_stream_options options{sizeof options, TONWERK_ALL_STEMS, step, lookahead, blend};
        tonwerk_stream* stream = nullptr;
        EXPECT_EQ(tonwerk_stream_open(context.get(), &options, &stream), TONWERK_INVALID_ARGUMENT);
        EXPECT_EQ(stream, nullptr);
        return std::string(tonwerk_last_error());
    };
    const std::string head = "An argument is invalid. ";
    EXPECT_EQ(refusal(0, 1, 0), head + "The step must be at least 1 frame.");
    EXPECT_EQ(refusal(8, 0, 9),
              head + "The blend of 9 frames is longer than the step of 8: a frame would be faded twice.");
    EXPECT_EQ(refusal(200, 50, 20),
              head + "Step, lookahead and blend come to 270 frames, and the model has room for 253.");
    EXPECT_NE(refusal(UINT32_MAX, UINT32_MAX, 1), head);
}

/// A record of a protocol buffer: number of the field, length in groups of seven bits, content.
std::string record(unsigned field, const std::string& content)
{
    constexpr unsigned withLength = 2;
    std::string head{static_cast<char>(field << 3U | withLength)};
    std::size_t length = content.size();
    for (; length >= 128; length >>= 7U)
        head += static_cast<char>((length & 127U) | 128U);
    return head + static_cast<char>(length) + content;
}

/// A model with one more entry in its metadata: what is appended to a serialized message is merged into it.
std::vector<char> withMetadata(const std::string& model, const std::string& key, const std::string& value)
{
    constexpr unsigned metadataField = 14; // of onnx.proto
    const std::string entry = record(metadataField, record(1, key) + record(2, value));
    std::vector<char> bytes = readModel(model);
    bytes.insert(bytes.end(), entry.begin(), entry.end());
    return bytes;
}

TEST(ContextOptions, StemsAreThoseOfThePassportHoweverItIsSpaced)
{
    for (const char* list : {"vocals; bass", "vocals;bass", " vocals ;  bass ", "bass; vocals; strings"})
    {
        const std::vector<char> bytes = withMetadata("gains.onnx", "tonwerk.stems", list);
        tonwerk_context* made = nullptr;
        ASSERT_EQ(tonwerk_context_open(bytes.data(), bytes.size(), nullptr, &made), TONWERK_OK);
        const Context context{made, tonwerk_context_destroy};
        tonwerk_context_info info{};
        info.size = sizeof info;
        ASSERT_EQ(tonwerk_context_get_info(context.get(), &info), TONWERK_OK);
        EXPECT_EQ(info.stems, 1U << TONWERK_VOCALS | 1U << TONWERK_BASS) << list;
    }
}

TEST(ContextOptions, TellWhatIsInUse)
{
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.provider = TONWERK_PROVIDER_CPU;
    options.threads = 1;
    const Context context = loaded("gains.onnx", options);
    tonwerk_context_info info{};
    info.size = sizeof info;
    ASSERT_EQ(tonwerk_context_get_info(context.get(), &info), TONWERK_OK);
    EXPECT_EQ(info.provider, TONWERK_PROVIDER_CPU);
    EXPECT_EQ(info.threads, 1U);
    EXPECT_EQ(info.sample_rate, 44100U);
    EXPECT_EQ(info.stems, TONWERK_ALL_STEMS);
    EXPECT_EQ(info.rows, 256U);
    EXPECT_EQ(info.model_size, readModel("gains.onnx").size());
    EXPECT_EQ(tonwerk_context_metadata(context.get(), "tonwerk.name"), nullptr);

    tonwerk_context_info older{};
    older.size = 8;
    older.threads = 99;
    ASSERT_EQ(tonwerk_context_get_info(context.get(), &older), TONWERK_OK);
    EXPECT_EQ(older.provider, TONWERK_PROVIDER_CPU);
    EXPECT_EQ(older.threads, 99U) << "no byte is written that the caller does not know";
}

TEST(ContextOptions, MemoryIsWhatTheProcessGrowsBy)
{
    constexpr std::size_t much = std::size_t{64} << 20U;
    const std::vector<char> bytes = withMetadata("gains.onnx", "weight", std::string(much, 'x'));
    tonwerk_context* made = nullptr;
    ASSERT_EQ(tonwerk_context_open(bytes.data(), bytes.size(), nullptr, &made), TONWERK_OK);
    const Context heavy{made, tonwerk_context_destroy};
    tonwerk_context_info info{};
    info.size = sizeof info;
    ASSERT_EQ(tonwerk_context_get_info(heavy.get(), &info), TONWERK_OK);
    EXPECT_GE(info.memory, much);
    EXPECT_LT(info.memory, 8 * much) << "in bytes";
}

TEST(ContextOptions, ImpossibleOnesAreRefusedWithASentence)
{
    Context context{nullptr, tonwerk_context_destroy};
    const auto refusal = [&](auto change)
    {
        tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
        change(options);
        EXPECT_EQ(load("gains.onnx", options, context), TONWERK_INVALID_ARGUMENT);
        return std::string(tonwerk_last_error()).substr(std::string("An argument is invalid. ").size());
    };
    EXPECT_EQ(refusal([](auto& options) { options.size = 8; }), "The size field of the record is too small.");
    EXPECT_EQ(refusal([](auto& options) { options.flags = 4; }),
              "The options ask for something that this version does not know.");
    EXPECT_EQ(refusal([](auto& options) { options.threads = 1025; }),
              "The options ask for more than 1,024 threads.");
    EXPECT_EQ(refusal([](auto& options) { options.provider = 5; }),
              "The options ask for an execution provider that does not exist.");
    EXPECT_EQ(refusal([](auto& options) { options.log_level = 6; }),
              "The options ask for a log level that does not exist.");
    EXPECT_EQ(refusal([](auto& options) { options.key_size = 1; }), "The key is null.");
}

TEST(ContextOptions, AModelThatBreaksTheContractIsRefusedWithASentence)
{
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.log_level = TONWERK_LOG_NONE;
    Context context{nullptr, tonwerk_context_destroy};
    EXPECT_EQ(load("wrong/missing_output.onnx", options, context), TONWERK_MODEL_REFUSED);
    EXPECT_STREQ(tonwerk_last_error(), "The model cannot be loaded. The output \"bass_output\" is missing.");
}

TEST(ContextOptions, WithACallbackNothingIsPrinted)
{
    struct Lines
    {
        static void keep(void* own, std::int32_t level, const char* text)
        {
            static_cast<Lines*>(own)->all.push_back(std::to_string(level) + ' ' + text);
        }

        std::vector<std::string> all;
    };
    Lines lines;
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.log = &Lines::keep;
    options.log_user = &lines;
    options.log_level = TONWERK_LOG_INFO;
    options.provider = TONWERK_PROVIDER_CPU;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        const Context context = loaded("fail_on_request.onnx", options);
        const CStream stream = opened(context, preset("live"));
        const std::vector<float> loud(std::size_t{2} * 11264, 1e5F);
        EXPECT_EQ(tonwerk_stream_push(stream.get(), loud.data(), 11264), TONWERK_OK);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const auto has = [&](const std::string& head)
    {
        return std::any_of(lines.all.begin(), lines.all.end(),
                           [&](const std::string& line) { return line.compare(0, head.size(), head) == 0; });
    };
    EXPECT_TRUE(has("4 [INFERENCE_onnx] Create Inference ONNX"));
    EXPECT_TRUE(has("2 A run of the model has failed; its stems are silent: "));
    EXPECT_TRUE(has("2 Non-zero status code")) << "the runtime's own line";
}

} // namespace
