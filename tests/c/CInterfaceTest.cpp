// SPDX-License-Identifier: MIT
// The flat C interface against the C++ one, and what it says when it is misused.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <tonwerk/tonwerk_c.h>

#include "support/ModelFile.h"
#include "support/Stream.h"

namespace
{

using Context = std::unique_ptr<tonwerk_context, decltype(&tonwerk_context_destroy)>;
using CStream = std::unique_ptr<tonwerk_stream, decltype(&tonwerk_stream_destroy)>;
using Samples = std::vector<float>;

Context loadForC(const std::string& model)
{
    const std::vector<char> bytes = readModel(model);
    tonwerk_context* context = nullptr;
    EXPECT_EQ(tonwerk_context_create(bytes.data(), bytes.size(), nullptr, 0, &context), TONWERK_OK);
    return {context, tonwerk_context_destroy};
}

CStream open(const Context& context, const tonwerk_config* config = nullptr)
{
    tonwerk_stream* stream = nullptr;
    EXPECT_EQ(tonwerk_stream_create(context.get(), config, &stream), TONWERK_OK);
    return {stream, tonwerk_stream_destroy};
}

/// Collects what comes out of a stream, read in pieces of one size.
class Reader
{
public:
    explicit Reader(std::size_t pieceFrames) : frames(pieceFrames)
    {
        for (std::size_t i = 0; i < stemCount; ++i)
        {
            buffers[i].resize(2 * frames);
            pointers[i] = buffers[i].data();
        }
    }

    /// Until nothing is left.
    void readAll(tonwerk_stream* stream)
    {
        while (const std::uint64_t available = tonwerk_stream_available(stream))
            read(stream, static_cast<std::size_t>(std::min<std::uint64_t>(available, frames)));
        read(stream, 0);
    }

    std::array<Samples, stemCount> stems;

private:
    void read(tonwerk_stream* stream, std::size_t expected)
    {
        std::size_t count = 99;
        EXPECT_EQ(tonwerk_stream_read(stream, pointers.data(), frames, &count), TONWERK_OK);
        EXPECT_EQ(count, expected);
        for (std::size_t i = 0; i < stemCount; ++i)
            stems[i].insert(stems[i].end(), pointers[i],
                            pointers[i] + static_cast<std::ptrdiff_t>(2 * count));
    }

    std::size_t frames;
    std::array<Samples, stemCount> buffers;
    std::array<float*, stemCount> pointers{};
};

TEST(CInterface, GivesTheStemsOfTheCppInterfaceWhateverTheBlocks)
{
    constexpr std::size_t length = 600000;
    const Stereo signal = noise(length);
    const Samples input = packed(signal, true);
    const StreamResult expected = separate(loadContext("neighbours.onnx"), signal);
    const Context context = loadForC("neighbours.onnx");
    // Pushed at a time, read at a time.
    for (const auto& [block, piece] : std::vector<std::pair<std::size_t, std::size_t>>{{1, 70000},
                                                                                       {441, 480},
                                                                                       {480, 480},
                                                                                       {1000, 1},
                                                                                       {257024, 254977},
                                                                                       {length, 1000},
                                                                                       {length, length}})
    {
        const CStream stream = open(context);
        Reader reader(piece);
        for (std::size_t position = 0; position < length; position += block)
        {
            const std::size_t count = std::min(block, length - position);
            ASSERT_EQ(tonwerk_stream_push(stream.get(), &input[2 * position], count), TONWERK_OK);
            reader.readAll(stream.get());
            EXPECT_LE(position + count, reader.stems[0].size() / 2 + tonwerk_stream_latency(stream.get()));
        }
        EXPECT_EQ(tonwerk_stream_flush(stream.get()), TONWERK_OK);
        reader.readAll(stream.get());
        for (std::size_t i = 0; i < stemCount; ++i)
            EXPECT_TRUE(reader.stems[i] == packed(expected.stems[i], true)) << block << ", stem " << i;
    }
}

TEST(CInterface, StreamsOutliveTheirContextAndUnwantedStemsAreSilentOrPassedOver)
{
    Context context = loadForC("gains.onnx");
    const tonwerk_config config{sizeof config, 1U << TONWERK_DRUM | 1U << TONWERK_BASS};
    const CStream stream = open(context, &config);
    context.reset();
    const Stereo signal = noise(5000);
    ASSERT_EQ(tonwerk_stream_push(stream.get(), packed(signal, true).data(), signal.size()), TONWERK_OK);
    ASSERT_EQ(tonwerk_stream_flush(stream.get()), TONWERK_OK);

    Samples drumSamples(2 * signal.size());
    Samples vocalSamples(2 * signal.size(), 1.0F);
    std::array<float*, stemCount> pointers{};
    pointers[TONWERK_DRUM] = drumSamples.data();
    pointers[TONWERK_VOCALS] = vocalSamples.data();
    std::size_t count = 0;
    ASSERT_EQ(tonwerk_stream_read(stream.get(), pointers.data(), signal.size() + 1, &count), TONWERK_OK);
    EXPECT_EQ(count, signal.size());
    EXPECT_EQ(vocalSamples, Samples(2 * signal.size()));
    // The ends of a stream are bent by half a part in 4,096 at most.
    EXPECT_LE(largestDifference(unpacked(drumSamples, true), scaled(signal, modelGains[drum])), 2.5e-4F);
}

TEST(CInterface, LoadsScrambledModels)
{
    const std::string key = "a key";
    std::vector<char> bytes = readModel("gains.onnx");
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(bytes[i] ^ key[i % key.size()]);
    tonwerk_context* context = nullptr;
    EXPECT_EQ(tonwerk_context_create(bytes.data(), bytes.size(), key.data(), key.size(), &context),
              TONWERK_OK);
    tonwerk_context_destroy(context);
}

/// The call was refused and the reason is this sentence.
void expectRefused(tonwerk_status status, const std::string& reason)
{
    EXPECT_EQ(status, TONWERK_INVALID_ARGUMENT);
    EXPECT_EQ(tonwerk_last_error(), "An argument is invalid. " + reason);
}

TEST(CInterface, RefusesNullPointersAndImpossibleSizes)
{
    const Context context = loadForC("gains.onnx");
    const CStream stream = open(context);
    const float sample[2] = {};
    float* const stems[TONWERK_STEM_COUNT] = {};
    std::size_t count = 1;
    tonwerk_context* noContext = context.get();
    tonwerk_stream* noStream = stream.get();

    expectRefused(tonwerk_context_create(sample, 1, nullptr, 0, nullptr),
                  "The place for the context is null.");
    expectRefused(tonwerk_context_create(nullptr, 1, nullptr, 0, &noContext), "The model is null.");
    EXPECT_EQ(noContext, nullptr);
    expectRefused(tonwerk_context_create(sample, 0, nullptr, 0, &noContext), "The model has no bytes.");
    expectRefused(tonwerk_context_create(sample, 1, nullptr, 1, &noContext), "The key is null.");
    expectRefused(tonwerk_stream_create(context.get(), nullptr, nullptr),
                  "The place for the stream is null.");
    expectRefused(tonwerk_stream_create(nullptr, nullptr, &noStream), "The context is null.");
    EXPECT_EQ(noStream, nullptr);
    expectRefused(tonwerk_stream_push(nullptr, sample, 1), "The stream is null.");
    expectRefused(tonwerk_stream_push(stream.get(), nullptr, 1), "The block is null.");
    expectRefused(tonwerk_stream_push(stream.get(), sample, SIZE_MAX / 2),
                  "The block has more frames than memory can hold.");
    expectRefused(tonwerk_stream_flush(nullptr), "The stream is null.");
    expectRefused(tonwerk_stream_read(stream.get(), stems, 1, nullptr),
                  "The place for the number of frames is null.");
    expectRefused(tonwerk_stream_read(nullptr, stems, 1, &count), "The stream is null.");
    EXPECT_EQ(count, 0U);
    expectRefused(tonwerk_stream_read(stream.get(), nullptr, 1, &count), "The array of buffers is null.");
    expectRefused(tonwerk_stream_push_planar(stream.get(), sample, nullptr, 1),
                  "A channel of the block is null.");
    expectRefused(tonwerk_stream_reset(nullptr), "The stream is null.");
    expectRefused(tonwerk_context_get_info(context.get(), nullptr), "The place for the information is null.");
    expectRefused(tonwerk_stream_get_info(nullptr, nullptr), "The stream is null.");
    EXPECT_EQ(tonwerk_context_metadata(context.get(), nullptr), nullptr);
    EXPECT_EQ(tonwerk_stream_frames_until_result(nullptr), 0U);
    tonwerk_stream_cancel(nullptr);
    EXPECT_EQ(tonwerk_stream_available(nullptr), 0U);
    EXPECT_EQ(tonwerk_stream_latency(nullptr), 0U);
    tonwerk_stream_destroy(nullptr);
    tonwerk_context_destroy(nullptr);

    EXPECT_EQ(tonwerk_stream_push(stream.get(), nullptr, 0), TONWERK_OK) << "the stream is unchanged";
    EXPECT_EQ(tonwerk_stream_flush(stream.get()), TONWERK_OK);
    EXPECT_EQ(tonwerk_stream_available(stream.get()), 0U);
}

TEST(CInterface, TellsOlderAndNewerCallersRecordsApart)
{
    struct Newer
    {
        tonwerk_stream_options known;
        std::uint32_t unknown;
    };
    const Context context = loadForC("gains.onnx");
    tonwerk_stream* stream = nullptr;
    const auto create = [&](std::uint32_t size, std::uint32_t stems, std::uint32_t unknown)
    {
        const Newer options{{size, stems, 0, 0, 0}, unknown};
        return tonwerk_stream_open(context.get(), &options.known, &stream);
    };
    for (const std::size_t size : {sizeof(tonwerk_config), sizeof(tonwerk_stream_options), sizeof(Newer)})
    {
        EXPECT_EQ(create(static_cast<std::uint32_t>(size), 1, 0), TONWERK_OK) << size;
        tonwerk_stream_destroy(stream);
    }
    expectRefused(create(sizeof(Newer), 1, 1),
                  "The record asks for something that this version does not know.");
    for (const std::size_t size : {sizeof(tonwerk_config) - 1, sizeof(tonwerk_stream_options) - 1})
        expectRefused(create(static_cast<std::uint32_t>(size), 1, 0),
                      "The size field of the record is too small.");
    expectRefused(create(0xCDCDCDCDU, 1, 0), "The size field of the record is too large.");
    expectRefused(create(sizeof(tonwerk_stream_options), 1U << TONWERK_RESIDUAL, 0),
                  "The options ask for a stem that does not exist.");
    EXPECT_EQ(stream, nullptr);
}

TEST(CInterface, PassesOnWhyAModelIsRefused)
{
    const std::string text = "no model";
    std::string reason;
    try
    {
        const tonwerk::InferenceContext context(tonwerk::ModelData{text.data(), text.size(), ""});
    }
    catch (const std::exception& failure)
    {
        reason = failure.what();
    }
    tonwerk_context* context = nullptr;
    EXPECT_EQ(tonwerk_context_create(text.data(), text.size(), nullptr, 0, &context), TONWERK_MODEL_REFUSED);
    EXPECT_EQ(context, nullptr);
    EXPECT_EQ(tonwerk_last_error(), "The model cannot be loaded. " + reason);
    std::thread([] { EXPECT_STREQ(tonwerk_last_error(), "") << "another thread's business"; }).join();
}

TEST(CInterface, AStreamThatEndedTakesNoMoreUntilItIsReset)
{
    const CStream stream = open(loadForC("gains.onnx"));
    const Samples block(2 * 257024, 0.25F);
    ASSERT_EQ(tonwerk_stream_push(stream.get(), block.data(), 1000), TONWERK_OK);
    ASSERT_EQ(tonwerk_stream_flush(stream.get()), TONWERK_OK);
    EXPECT_EQ(tonwerk_stream_push(stream.get(), block.data(), 1), TONWERK_STREAM_ENDED);
    EXPECT_EQ(tonwerk_stream_flush(stream.get()), TONWERK_STREAM_ENDED);
    EXPECT_EQ(tonwerk_stream_frames_until_result(stream.get()), 0U);
    EXPECT_EQ(tonwerk_stream_available(stream.get()), 1000U) << "but can be read";
    EXPECT_EQ(tonwerk_stream_reset(stream.get()), TONWERK_OK);
    EXPECT_EQ(tonwerk_stream_available(stream.get()), 0U);
    EXPECT_EQ(tonwerk_stream_frames_until_result(stream.get()), 257024U);
    EXPECT_EQ(tonwerk_stream_push(stream.get(), block.data(), 257024), TONWERK_OK);
    EXPECT_EQ(tonwerk_stream_available(stream.get()), 252928U);
}

} // namespace
