// SPDX-License-Identifier: MIT
// An audio callback as a sound card would make it, at real speed, on the live object: how long its calls
// take, what comes late, and whether every frame that comes is in its place.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <tonwerk/tonwerk_live.h>

namespace
{

using Clock = std::chrono::steady_clock;
using Context = std::unique_ptr<tonwerk_context, decltype(&tonwerk_context_destroy)>;
using CLive = std::unique_ptr<tonwerk_live, decltype(&tonwerk_live_destroy)>;

constexpr double sampleRate = 44100.0;

void check(tonwerk_status status)
{
    if (status != TONWERK_OK)
        throw std::runtime_error(tonwerk_last_error());
}

Context load(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> model{std::istreambuf_iterator<char>(file), {}};
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.log_level = TONWERK_LOG_NONE;
    tonwerk_context* context = nullptr;
    check(tonwerk_context_open(model.data(), model.size(), &options, &context));
    return {context, tonwerk_context_destroy};
}

CLive open(const Context& context, std::uint32_t block)
{
    tonwerk_live_options options = TONWERK_LIVE_OPTIONS_INIT;
    options.block = block;
    tonwerk_live* live = nullptr;
    check(tonwerk_live_open(context.get(), &options, &live));
    return {live, tonwerk_live_destroy};
}

/// Threads that compute all the time.
class Competitors
{
public:
    explicit Competitors(std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            threads.emplace_back(
                [this]
                {
                    while (!ended)
                        std::atomic_signal_fence(std::memory_order_seq_cst);
                });
    }
    Competitors(const Competitors&) = delete;
    Competitors& operator=(const Competitors&) = delete;
    ~Competitors()
    {
        ended = true;
        for (std::thread& thread : threads)
            thread.join();
    }

private:
    std::atomic<bool> ended{false};
    std::vector<std::thread> threads;
};

/// The callback, what it heard, and how long it took.
class Callback
{
public:
    Callback(const CLive& live, std::size_t block, std::size_t calls)
        : live(live), block(block), latency(tonwerk_live_latency(live.get())), input(2 * cycle),
          output(TONWERK_STEM_COUNT, std::vector<float>(2 * block))
    {
        seconds.reserve(calls);
        std::mt19937 generator(1);
        std::uniform_real_distribution<float> uniform(-0.3F, 0.3F);
        float last = 0.0F;
        for (float& sample : input) // without content near half the sample rate, which does not come back
            sample = last = 0.7F * last + 0.3F * uniform(generator);
        for (std::size_t stem = 0; stem < stems.size(); ++stem)
            stems.at(stem) = output[stem].data();
    }

    void call()
    {
        blockSamples.resize(2 * block);
        for (std::size_t i = 0; i < 2 * block; ++i)
            blockSamples[i] = input[(2 * given + i) % input.size()];
        const Clock::time_point start = Clock::now();
        const std::size_t late = tonwerk_live_process(live.get(), blockSamples.data(), stems.data(), block);
        seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
        given += block;
        std::size_t silent = 0;
        for (std::size_t i = 0; i < block; ++i)
            silent += static_cast<std::size_t>(hear(i));
        reportedLate += late;
        silentFrames += silent;
    }

    /// \return whether nothing is wrong but for what is late
    bool report()
    {
        std::sort(seconds.begin(), seconds.end());
        const double budget = static_cast<double>(block) / sampleRate;
        const auto share = [&](double quantile)
        {
            return 100 *
                   seconds[static_cast<std::size_t>(quantile * static_cast<double>(seconds.size() - 1))] /
                   budget;
        };
        const auto over = seconds.end() - std::upper_bound(seconds.begin(), seconds.end(), budget / 3);
        std::printf(
            "%zu calls of %zu frames; of the time of a block they took: median %.2f %%, 99.9 %% of them "
            "at most %.2f %%, the longest %.2f %%; more than a third: %td\n",
            seconds.size(), block, share(0.5), share(0.999), share(1.0), over);
        std::printf("frames late: %zu, silent where there should be sound: %zu, out of place: %zu\n",
                    reportedLate, silentFrames, misplaced);
        return misplaced == 0 && silentFrames <= reportedLate;
    }

    bool inTime() const { return reportedLate == 0; }

private:
    static constexpr std::size_t cycle = 44100 * 7 + 13; // of the signal, in frames

    /// Checks a frame: the six stems and the rest add up to what went in a latency ago.
    /// \return whether it is silent though it should not be
    bool hear(std::size_t i)
    {
        const std::uint64_t now = given - block + i;
        for (std::size_t channel = 0; channel < 2; ++channel)
        {
            const float sum =
                output[TONWERK_RESIDUAL][2 * i + channel] + output[TONWERK_MIX][2 * i + channel];
            const float expected =
                now < latency ? 0.0F : input[(2 * (now - latency) + channel) % input.size()];
            if (std::abs(sum - expected) <= 1e-4F)
                continue;
            if (sum == 0.0F)
                return true;
            ++misplaced;
            return false;
        }
        return false;
    }

    const CLive& live;
    std::size_t block;
    std::uint64_t latency;
    std::vector<float> input;
    std::vector<float> blockSamples;
    std::vector<std::vector<float>> output;
    std::array<float*, TONWERK_STEM_COUNT> stems{};
    std::vector<double> seconds;
    std::uint64_t given = 0;
    std::size_t reportedLate = 0;
    std::size_t silentFrames = 0;
    std::size_t misplaced = 0;
};

void report(const CLive& live)
{
    tonwerk_live_info info{};
    info.size = sizeof info;
    check(tonwerk_live_get_info(live.get(), &info));
    std::printf(
        "latency %.3f s; %llu runs, the last took %.1f ms, the longest %.1f ms, failed %llu; load %.2f; "
        "underruns %llu, restarts %llu\n",
        static_cast<double>(info.latency) / sampleRate, static_cast<unsigned long long>(info.runs),
        1e3 * info.last_run_seconds, 1e3 * info.worst_run_seconds,
        static_cast<unsigned long long>(info.failed_runs), info.load,
        static_cast<unsigned long long>(info.underruns), static_cast<unsigned long long>(info.restarts));
}

} // namespace

int main(int argc, char** argv)
try
{
    if (argc < 4)
    {
        std::fprintf(stderr, "live_callback MODEL.onnx FRAMES SECONDS [COMPETING_THREADS]\n");
        return 2;
    }
    const auto block = static_cast<std::uint32_t>(std::strtoul(argv[2], nullptr, 10));
    const auto calls = static_cast<std::size_t>(std::strtod(argv[3], nullptr) * sampleRate / block);
    const std::size_t competing = argc > 4 ? std::strtoul(argv[4], nullptr, 10) : 0;
    const CLive live = open(load(argv[1]), block);
    Callback callback(live, block, calls);
    {
        const Competitors competitors(competing);
        const Clock::time_point start = Clock::now();
        for (std::size_t i = 0; i < calls; ++i)
        {
            const std::chrono::duration<double> due(static_cast<double>(i * block) / sampleRate);
            std::this_thread::sleep_until(start + std::chrono::duration_cast<Clock::duration>(due));
            callback.call();
        }
    }
    report(live);
    const bool right = callback.report();
    return right && (competing > 0 || callback.inTime()) ? 0 : 1;
}
catch (const std::exception& failure)
{
    std::fprintf(stderr, "live_callback: %s\n", failure.what());
    return 1;
}
