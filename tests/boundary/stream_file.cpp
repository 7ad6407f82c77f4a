// Streams raw samples through the library and writes its eight stems as raw files, for checks from other
// languages.
//
// usage: stream_file MODEL.onnx INPUT OUTDIR
//
// INPUT and the results (OUTDIR/vocals.f32 ... OUTDIR/mix.f32) are interleaved stereo, 32-bit floats of this
// machine.

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <tonwerk/TonwerkProc.h>

namespace
{

namespace fs = std::filesystem;

constexpr std::array<const char*, 8> stemNames{"vocals",          "drum", "piano",    "acoustic_guitar",
                                               "electric_guitar", "bass", "residual", "mix"};

std::ifstream openInput(const fs::path& path)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot open " + path.string());
    return file;
}

std::shared_ptr<tonwerk::InferenceContext> loadModel(const fs::path& path)
{
    auto file = openInput(path);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    return std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{bytes.data(), bytes.size(), ""});
}

std::vector<float> readBlock(std::ifstream& file, std::size_t floats)
{
    std::vector<float> block(floats);
    file.read(reinterpret_cast<char*>(block.data()), static_cast<std::streamsize>(floats * sizeof(float)));
    block.resize(static_cast<std::size_t>(file.gcount()) / sizeof(float));
    return block;
}

void append(std::ofstream& file, const std::vector<float>& samples)
{
    file.write(reinterpret_cast<const char*>(samples.data()),
               static_cast<std::streamsize>(samples.size() * sizeof(float)));
}

tonwerk::TonwerkProcConfig allStems()
{
    tonwerk::TonwerkProcConfig config{};
    config.vocals = config.drum = config.piano = 1;
    config.acousticGuitar = config.electricGuitar = config.bass = 1;
    config.channels = 2;
    config.interleaved = true;
    return config;
}

void streamFile(const fs::path& model, const fs::path& input, const fs::path& folder)
{
    tonwerk::TonwerkProc processor(loadModel(model), allStems());
    auto source = openInput(input);
    std::vector<std::ofstream> targets;
    for (const char* name : stemNames)
        targets.emplace_back(folder / (std::string(name) + ".f32"), std::ios::binary);

    bool eof = false;
    while (!eof)
    {
        const auto block = readBlock(source, 2 * static_cast<std::size_t>(processor.maxInputSize()));
        eof = source.peek() == std::ifstream::traits_type::eof();
        const auto stems = processor.process(block, eof);
        for (std::size_t stem = 0; stem < stems.size(); ++stem)
            append(targets.at(stem), stems[stem]);
    }
    for (auto& target : targets)
        if (!target.flush())
            throw std::runtime_error("cannot write to " + folder.string());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
    {
        std::cerr << "usage: stream_file MODEL.onnx INPUT OUTDIR\n";
        return 2;
    }
    try
    {
        streamFile(argv[1], argv[2], argv[3]);
    }
    catch (const std::exception& failure)
    {
        std::cerr << "stream_file: " << failure.what() << '\n';
        return 1;
    }
    return 0;
}
