// SPDX-License-Identifier: MIT
#include "Plugin.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

namespace tonwerk::lv2
{

namespace
{

using Context = std::unique_ptr<tonwerk_context, decltype(&tonwerk_context_destroy)>;

constexpr std::uint32_t ordinaryBlock = 1024;
constexpr std::uint32_t longestBlock = 8192;
constexpr double fadeSeconds = 0.01;

std::vector<char> read(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::vector<char> bytes{std::istreambuf_iterator<char>(stream), {}};
    if (bytes.empty())
        throw std::runtime_error("The model " + file.string() + " cannot be read.");
    return bytes;
}

void check(tonwerk_status status)
{
    if (status != TONWERK_OK)
        throw std::runtime_error(tonwerk_last_error());
}

Context contextOf(const std::filesystem::path& model, double sampleRate)
{
    const std::vector<char> bytes = read(model);
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.log_level = TONWERK_LOG_NONE;
    tonwerk_context* made = nullptr;
    check(tonwerk_context_open(bytes.data(), bytes.size(), &options, &made));
    Context context{made, tonwerk_context_destroy};
    tonwerk_context_info info{};
    info.size = sizeof info;
    check(tonwerk_context_get_info(made, &info));
    if (std::abs(sampleRate - info.sample_rate) > 0.5)
        throw std::runtime_error("The model is for a sample rate of " + std::to_string(info.sample_rate) +
                                 " Hz, and the host has another one.");
    return context;
}

} // namespace

Plugin::Plugin(double sampleRate, std::uint32_t block)
    : sampleRate(sampleRate), block(block == 0 ? ordinaryBlock : std::min(block, longestBlock))
{
    for (std::vector<float>& row : unconnected)
        row.resize(this->block);
    levels.fill(1.0F);
}

void Plugin::load(const std::filesystem::path& model)
{
    const Context context = contextOf(model, sampleRate);
    tonwerk_live_options options = TONWERK_LIVE_OPTIONS_INIT;
    options.block = block;
    tonwerk_live* made = nullptr;
    check(tonwerk_live_open(context.get(), &options, &made));
    live.reset(made);
    modelFile = model;
}

void Plugin::activate()
{
    tonwerk_live_reset(live.get(), 0);
    lateFrames = 0;
}

void Plugin::run(std::uint32_t frames)
{
    const float* offline = connected[ports::offline];
    tonwerk_live_set_offline(live.get(), offline != nullptr && *offline > 0.0F ? 1 : 0);
    for (std::size_t at = 0; at < frames; at += block)
        runPiece(at, std::min<std::size_t>(block, frames - at));
    report();
}

void Plugin::runPiece(std::size_t at, std::size_t frames)
{
    std::array<float*, std::size_t{2} * TONWERK_STEM_COUNT> rows{};
    for (std::size_t row = 0; row < rows.size(); ++row)
        rows.at(row) = output(row, at);
    const float* left = connected[ports::input];
    const float* right = connected[ports::input + 1];
    if (left == nullptr || right == nullptr)
        left = right = nullptr;
    else
    {
        left += at;
        right += at;
    }
    lateFrames += tonwerk_live_process_planar(live.get(), left, right, rows.data(), frames);
    for (std::size_t stem = 0; stem < levels.size(); ++stem)
        switchStem(stem, at, frames);
}

float* Plugin::output(std::size_t row, std::size_t at)
{
    float* port = connected.at(ports::stems + row);
    return port != nullptr ? port + at : unconnected.at(row).data();
}

/// What a stem's level takes from it goes from the mix of the stems to the residual.
void Plugin::switchStem(std::size_t stem, std::size_t at, std::size_t frames)
{
    const float* port = connected.at(ports::switches + stem);
    const float target = port == nullptr || *port > 0.0F ? 1.0F : 0.0F;
    const float before = levels.at(stem);
    if (before == 1.0F && target == 1.0F)
        return;
    const auto step = static_cast<float>(1.0 / (fadeSeconds * sampleRate));
    for (std::size_t channel = 0; channel < 2; ++channel)
    {
        float level = before;
        float* own = output(2 * stem + channel, at);
        float* residual = output(std::size_t{2} * TONWERK_RESIDUAL + channel, at);
        float* mix = output(std::size_t{2} * TONWERK_MIX + channel, at);
        for (std::size_t i = 0; i < frames; ++i)
        {
            level = target > level ? std::min(target, level + step) : std::max(target, level - step);
            const float taken = (1.0F - level) * own[i];
            own[i] -= taken;
            residual[i] += taken;
            mix[i] -= taken;
        }
        levels.at(stem) = level;
    }
}

void Plugin::report()
{
    if (float* latency = connected[ports::latency])
        *latency = static_cast<float>(tonwerk_live_latency(live.get()));
    if (float* late = connected[ports::late])
        *late = static_cast<float>(lateFrames);
}

std::filesystem::path defaultModel(const std::filesystem::path& bundle)
{
    if (const char* chosen = std::getenv("TONWERK_MODEL"); chosen != nullptr && *chosen != '\0')
        return chosen;
    std::error_code unreadable; // counts as missing
    for (const char* name : {"tonwerk-live.onnx", "tonwerk-small.onnx"})
        for (const std::filesystem::path& folder :
             {bundle, bundle / "../../../models", bundle / "../../../../models"})
            if (std::filesystem::exists(folder / name, unreadable))
                return folder / name;
    throw std::runtime_error("There is no model: put tonwerk-live.onnx into " + bundle.string() +
                             ", or name one by the environment variable TONWERK_MODEL.");
}

} // namespace tonwerk::lv2
