// SPDX-License-Identifier: MIT
// Sequences of calls at the public boundary, on a fake network: whatever a host does, the promises of the
// public header hold. Several streams, contexts that are empty or gone, blocks and samples of all kinds.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/FuzzInput.h"
#include "support/FakeBackend.h"
#include "tonwerk/TonwerkProc.h"

namespace
{

constexpr std::size_t stemCount = 8;
constexpr std::size_t residual = 6;
constexpr std::size_t mix = 7;
constexpr std::size_t hop = 1024;
constexpr std::size_t overlap = 4096;
constexpr std::size_t capacity = 514048;
constexpr std::size_t mostCalls = 24;
constexpr std::size_t mostRuns = 8; // of the model, for a fuzzer's input to end in reasonable time

enum class Network
{
    Gains, // linear, the stems add up to less than the input
    Silent,
    Throws,  // every other run
    Refuses, // reports failure
    NotANumber,
    Stale // what the real backend gives after a failed run: the outputs stay as they were
};

std::size_t runs = 0;

FakeInference::Model modelOf(Network network)
{
    return [network](std::span<const float> input, const std::vector<float*>& outputs, const auto&)
    {
        ++runs;
        if (network == Network::Throws && runs % 2 == 0)
            throw std::runtime_error("the model broke");
        if (network == Network::Stale && runs % 2 == 0)
            return true;
        float gain = 0.0F;
        for (float* output : outputs)
        {
            gain += 0.03125F;
            const float factor = network == Network::NotANumber ? std::numeric_limits<float>::quiet_NaN()
                                 : network == Network::Silent   ? 0.0F
                                                                : gain;
            for (std::size_t i = 0; i < input.size(); ++i)
                output[i] = factor * input[i];
        }
        return network != Network::Refuses;
    };
}

/// One processor and what its host remembers.
struct Stream
{
    std::unique_ptr<tonwerk::TonwerkProc> processor;
    Network network;
    bool interleaved;
    std::shared_ptr<std::uint8_t> everSelected; // on its context, by any processor: a bit for each stem

    bool predictable = true; // within the block-size rule and before the end: what goes in comes back
    bool tracked = true;     // `held` is what the buffer holds
    bool started = false;    // a chunk has been taken
    std::size_t held = 0;
    std::deque<std::array<float, 2>> pending{}; // frames that went in and have not come back
};

class Session
{
public:
    explicit Session(FuzzInput input) : input(input) {}

    void play()
    {
        runs = 0;
        for (std::size_t call = 0; call < mostCalls && runs < mostRuns && !input.empty(); ++call)
            switch (input.below(8))
            {
            case 0:
                openContext();
                break;
            case 1:
                closeSomething();
                break;
            case 2:
            case 3:
                openStream();
                break;
            default:
                if (!streams.empty())
                    feed(streams[input.below(streams.size())]);
            }
    }

private:
    void openContext()
    {
        network = static_cast<Network>(input.below(6));
        fakeBackend() = {};
        fakeBackend().model = modelOf(network);
        everSelected = std::make_shared<std::uint8_t>(std::uint8_t{0});
        const std::string bytes(input.below(9), 'm');
        const std::string key(input.below(4), 'k');
        context = std::make_shared<tonwerk::InferenceContext>(
            tonwerk::ModelData{bytes.empty() ? nullptr : bytes.data(), bytes.size(), key});
        if (input.below(8) == 0)
            keeper = std::make_unique<tonwerk::InferenceContext>(std::move(*context));
    }

    void closeSomething()
    {
        if (input.below(2) == 0)
            context.reset();
        else if (!streams.empty())
            streams.erase(streams.begin() + static_cast<std::ptrdiff_t>(input.below(streams.size())));
    }

    void openStream()
    {
        // Not the largest counts: the sanitizers end the process where the allocator would throw.
        constexpr std::array<std::int32_t, 16> channelCounts{2, 2, 2, 2, 2, 2, 2, 2, 2, 2, 1, 0, 3, -1, 4, 5};
        tonwerk::TonwerkProcConfig config{};
        const std::uint8_t switches = input.byte();
        config.vocals = switches & 1U;
        config.drum = (switches >> 1U) & 1U;
        config.piano = (switches >> 2U) & 1U;
        config.acousticGuitar = (switches >> 3U) & 1U;
        config.electricGuitar = (switches >> 4U) & 1U;
        config.bass = (switches >> 5U) & 1U;
        config.interleaved = (switches & 64U) != 0;
        *everSelected = static_cast<std::uint8_t>(*everSelected | (switches & 63U));
        config.channels = input.oneOf(channelCounts);
        try
        {
            Stream stream{std::make_unique<tonwerk::TonwerkProc>(context, config), network,
                          config.interleaved, everSelected};
            stream.tracked = stream.predictable = config.channels == 2;
            promise(stream.processor->maxInputSize() == 257024, "a new processor takes 257,024 frames");
            if (streams.size() < 3)
                streams.push_back(std::move(stream));
        }
        catch (const std::exception&)
        {
            // Without a context, or with channel counts that no array can have.
        }
    }

    std::vector<float> block(std::size_t floats)
    {
        constexpr std::array<float, 8> odd{0.0F,
                                           1e-41F,
                                           1e28F,
                                           -1e28F,
                                           1.0F,
                                           std::numeric_limits<float>::quiet_NaN(),
                                           std::numeric_limits<float>::infinity(),
                                           -std::numeric_limits<float>::infinity()};
        constexpr std::array<float, 6> levels{0.5F, 0.0F, 1e-39F, 8.0F, 1e6F, 1e28F};
        const float level = input.oneOf(levels);
        std::uint32_t noise = 1U + input.byte();
        std::vector<float> samples(floats);
        for (float& sample : samples)
        {
            noise = noise * 1664525U + 1013904223U; // Knuth & Lewis
            sample = level * (static_cast<float>(noise >> 8U) * 0x1p-23F - 1.0F);
        }
        for (std::size_t count = floats == 0 ? 0 : input.below(4); count > 0; --count)
        {
            const float value = input.oneOf(odd);
            samples[input.below(65536) * (floats / 65536 + 1) % floats] = value;
        }
        return samples;
    }

    void feed(Stream& stream)
    {
        constexpr std::array<std::size_t, 16> sizes{0,      1,      480,    1000,   1024,   4096,
                                                    44100,  250880, 254976, 257024, 257025, 261120,
                                                    263168, 400000, 514048, 514049};
        const std::uint8_t choice = input.byte();
        const std::size_t frames = choice < 192 ? sizes[choice % sizes.size()] : input.below(65536);
        const bool oddLength = input.below(16) == 0;
        const bool eof = input.below(6) == 0;
        const std::vector<float> samples = block(2 * frames + (oddLength ? 1 : 0));
        try
        {
            check(stream, samples, eof, stream.processor->process(samples, eof));
        }
        catch (const std::exception& failure)
        {
            refused(stream, frames, failure.what());
        }
    }

    static void refused(Stream& stream, std::size_t frames, const std::string& why)
    {
        if (!stream.tracked)
            return; // channel counts other than 2: whatever the array library says
        if (why == "Buffer overflow: cannot accept chunk of size " + std::to_string(frames))
        {
            promise(stream.held + frames > capacity, "a block that fits is taken");
            return;
        }
        promise(stream.network == Network::Throws && why == "the model broke", "only known exceptions");
        stream.predictable = stream.tracked = false;
    }

    static void check(Stream& stream, const std::vector<float>& samples, bool eof,
                      const std::vector<std::vector<float>>& stems)
    {
        promise(stems.empty() || stems.size() == stemCount, "no vectors or eight");
        for (const auto& stem : stems)
            promise(stem.size() == stems.front().size() && stem.size() % 2 == 0, "eight equal lengths");
        if (!stream.tracked)
            return;
        remember(stream, samples, samples.size() / 2);
        account(stream, samples.size() / 2, eof, !stems.empty());
        if (!stream.predictable)
            return;
        if (!stems.empty())
            compare(stream, stems);
        promise(!eof || stream.pending.empty(), "at the end of the stream as much has come back as went in");
        stream.predictable = !eof; // what follows the end is a stream without a lead-in
    }

    static void remember(Stream& stream, const std::vector<float>& samples, std::size_t frames)
    {
        if (!stream.predictable)
            return;
        for (std::size_t i = 0; i < frames; ++i)
        {
            const std::size_t left = stream.interleaved ? 2 * i : i;
            const std::size_t right = stream.interleaved ? 2 * i + 1 : frames + i;
            stream.pending.push_back({samples[left], samples[right]});
        }
    }

    /// Follows what the buffer holds, and whether the stream is still within the block-size rule.
    static void account(Stream& stream, std::size_t frames, bool eof, bool returned)
    {
        stream.held += frames;
        promise(returned == (eof ? stream.held > 0 : stream.held >= (stream.started ? 254976U : 257024U)),
                "results come when enough is held, and at the end");
        if (!returned)
            return;
        const std::size_t taken = std::min<std::size_t>(stream.held, stream.started ? 263168 : 261120);
        stream.held = eof ? 0 : stream.held - (taken - overlap);
        stream.started = true;
        if (!eof && taken % hop != 0)
            stream.predictable = false;
        if (stream.network == Network::Refuses) // the processor goes on as if it had never run
            stream.predictable = stream.tracked = false;
    }

    static void compare(Stream& stream, const std::vector<std::vector<float>>& stems)
    {
        const std::size_t frames = stems.front().size() / 2;
        promise(frames <= stream.pending.size(), "nothing comes back that did not go in");
        for (std::size_t i = 0; i < frames; ++i)
        {
            for (std::size_t channel = 0; channel < 2; ++channel)
            {
                const std::size_t at = stream.interleaved ? 2 * i + channel : channel * frames + i;
                checkSample(stream, stems, at, stream.pending.front()[channel]);
            }
            stream.pending.pop_front();
        }
    }

    static void checkSample(const Stream& stream, const std::vector<std::vector<float>>& stems,
                            std::size_t at, float sample)
    {
        if (stream.network == Network::NotANumber)
            return;
        for (std::size_t stem = 0; stem < residual; ++stem)
        {
            promise(std::isfinite(stems[stem][at]), "stems are finite");
            promise(stems[stem][at] == 0.0F || (*stream.everSelected & (1U << stem)) != 0,
                    "a stem that nobody has selected is silent");
        }
        promise(std::isfinite(stems[mix][at]), "the mix is finite");
        promise(std::isfinite(stems[residual][at]) == std::isfinite(sample),
                "the residual is finite where the input is");
        if (!std::isfinite(sample))
            return;
        const float sum = stems[residual][at] + stems[mix][at];
        const float size = std::max(std::abs(sample), std::abs(stems[mix][at]));
        promise(std::abs(sum - sample) <= 1e-6F * size + 1e-37F,
                "residual and mix add up to the input, sample by sample");
    }

    FuzzInput input;
    Network network = Network::Gains;
    std::shared_ptr<tonwerk::InferenceContext> context;
    std::unique_ptr<tonwerk::InferenceContext> keeper; // of what was moved out of `context`
    std::shared_ptr<std::uint8_t> everSelected = std::make_shared<std::uint8_t>(std::uint8_t{0});
    std::vector<Stream> streams;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Session(FuzzInput(data, size)).play();
    return 0;
}
