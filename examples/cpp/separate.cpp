// SPDX-License-Identifier: MIT
// Separates a piece of sound through the C++ interface and prints how loud each stem is.
//
//   example_cpp MODEL.onnx [SONG.raw]
//
// SONG.raw holds stereo samples as 32-bit floats, interleaved and without a header, as `sox song.wav -e float
// -b 32 -c 2 song.raw` writes them. Without it ten seconds of two tones are separated.

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <tonwerk/StreamFeeder.h>
#include <tonwerk/TonwerkProc.h>

namespace
{

constexpr std::size_t blockFrames = 480; // any number will do: what a sound card delivers in 10 ms at 48 kHz

constexpr std::array<const char*, 8> stemNames{"vocals",          "drum", "piano",    "acoustic_guitar",
                                               "electric_guitar", "bass", "residual", "mix"};

std::ifstream opened(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error(path + " cannot be read.");
    return file;
}

std::shared_ptr<tonwerk::InferenceContext> loadModel(const std::string& path)
{
    std::ifstream file = opened(path);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    return std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{bytes.data(), bytes.size(), ""});
}

/// Delivers sound block by block; an empty block is its end.
class Source
{
public:
    explicit Source(const std::string& path) : file(path.empty() ? std::ifstream() : opened(path)) {}

    std::vector<float> nextBlock()
    {
        std::vector<float> block;
        if (file.is_open())
        {
            block.resize(2 * blockFrames);
            file.read(reinterpret_cast<char*>(block.data()),
                      static_cast<std::streamsize>(block.size() * sizeof(float)));
            block.resize(static_cast<std::size_t>(file.gcount()) / (2 * sizeof(float)) * 2);
            return block;
        }
        constexpr std::size_t toneFrames = 441000;
        for (; block.size() < 2 * blockFrames && position < toneFrames; ++position)
        {
            const double turns = 2.0 * 3.14159265358979323846 * static_cast<double>(position) / 44100.0;
            block.push_back(static_cast<float>(0.5 * std::sin(440.0 * turns)));
            block.push_back(static_cast<float>(0.25 * std::sin(660.0 * turns)));
        }
        return block;
    }

private:
    std::ifstream file;
    std::size_t position = 0;
};

/// Adds up what a host would play or write to disk.
class Loudness
{
public:
    void add(const tonwerk::StreamFeeder::Stems& stems)
    {
        for (std::size_t i = 0; i < stems.size(); ++i)
            for (const float sample : stems[i])
                energies.at(i) += static_cast<double>(sample) * static_cast<double>(sample);
        frames += stems.empty() ? 0 : stems[0].size() / 2;
    }

    void print() const
    {
        std::printf("%zu frames\n", frames);
        for (std::size_t i = 0; i < energies.size(); ++i)
            std::printf("%-16s %.6f RMS\n", stemNames[i],
                        frames > 0 ? std::sqrt(energies[i] / (2.0 * static_cast<double>(frames))) : 0.0);
    }

private:
    std::array<double, stemNames.size()> energies{};
    std::size_t frames = 0;
};

void separate(const std::string& model, const std::string& song)
{
    tonwerk::TonwerkProcConfig config{}; // the braces matter: they clear the stem switches
    config.vocals = config.drum = config.piano = 1;
    config.acousticGuitar = config.electricGuitar = config.bass = 1;
    config.channels = 2;
    config.interleaved = true;
    Source source(song);
    tonwerk::StreamFeeder feeder(loadModel(model), config);
    Loudness loudness;
    for (auto block = source.nextBlock(); !block.empty(); block = source.nextBlock())
        loudness.add(feeder.feed(block));
    loudness.add(feeder.finish());
    loudness.print();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2 && argc != 3)
    {
        std::fprintf(stderr, "usage: %s MODEL.onnx [SONG.raw]\n", argv[0]);
        return 2;
    }
    try
    {
        separate(argv[1], argc == 3 ? argv[2] : "");
        return 0;
    }
    catch (const std::exception& failure)
    {
        std::fprintf(stderr, "%s\n", failure.what());
        return 1;
    }
}
