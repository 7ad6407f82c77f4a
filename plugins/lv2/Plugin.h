// SPDX-License-Identifier: MIT
#ifndef TONWERK_PLUGINS_LV2_PLUGIN_H
#define TONWERK_PLUGINS_LV2_PLUGIN_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <tonwerk/tonwerk_live.h>

namespace tonwerk::lv2
{

/// Indices of the ports, as tonwerk.ttl numbers them.
namespace ports
{
inline constexpr std::uint32_t input = 0; ///< left and right
inline constexpr std::uint32_t stems = 2; ///< left and right of every stem
inline constexpr std::uint32_t switches = stems + 2 * TONWERK_STEM_COUNT;
inline constexpr std::uint32_t switchCount = TONWERK_RESIDUAL;   ///< of the model's six stems
inline constexpr std::uint32_t offline = switches + switchCount; ///< over 0: the host waits for what is late
inline constexpr std::uint32_t latency = offline + 1;            ///< out, in frames
inline constexpr std::uint32_t late = latency + 1;               ///< out: frames that were late so far
inline constexpr std::uint32_t count = late + 1;
} // namespace ports

/// One instance of the plug-in: a live object between the ports of its host.
///
/// A stem that is switched off is silent, and the residual has it: so residual and stems always add up to the
/// input. Loading is for the host's main thread, run() for its audio thread, where it waits for nothing
/// unless the host computes offline.
class Plugin
{
public:
    /// \param sampleRate the host's, in Hz
    /// \param block      the most frames of a run(), as far as the host says; 0: unknown
    Plugin(double sampleRate, std::uint32_t block);

    /// Takes another model; the former one is kept if that fails.
    /// \throws std::runtime_error with a sentence
    void load(const std::filesystem::path& model);

    /// The model in use.
    const std::filesystem::path& model() const { return modelFile; }

    void connect(std::uint32_t port, float* data) { connected.at(port) = data; }

    /// Forgets the sound before.
    void activate();

    void run(std::uint32_t frames);

private:
    using Live = std::unique_ptr<tonwerk_live, decltype(&tonwerk_live_destroy)>;

    void runPiece(std::size_t at, std::size_t frames);
    float* output(std::size_t row, std::size_t at);
    void switchStem(std::size_t stem, std::size_t at, std::size_t frames);
    void report();

    double sampleRate;
    std::uint32_t block;
    std::filesystem::path modelFile;
    Live live{nullptr, tonwerk_live_destroy};
    std::array<float*, ports::count> connected{};
    std::array<std::vector<float>, 2 * TONWERK_STEM_COUNT>
        unconnected;                                ///< where a row goes that nobody wants
    std::array<float, ports::switchCount> levels{}; ///< of the stems, on their way to 0 or 1
    std::size_t lateFrames = 0;
};

/// The model for a plug-in whose bundle is this folder: the environment's choice (TONWERK_MODEL), or one in
/// the bundle or in the package around it.
/// \throws std::runtime_error with a sentence if there is none
std::filesystem::path defaultModel(const std::filesystem::path& bundle);

} // namespace tonwerk::lv2

#endif // TONWERK_PLUGINS_LV2_PLUGIN_H
