// How much memory a stream needs: streams a given number of minutes through the built library and prints the
// peak above what the process held when the model had been loaded.
//
//   stream_memory MODEL.onnx [MINUTES]
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tonwerk/TonwerkProc.h"

namespace
{

constexpr double sampleRate = 44100.0;

/// A memory figure of this process in MB (10^6 bytes), by its name in the kernel's table.
double statusMegabytes(const std::string& name)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(name + ":", 0) == 0)
            return std::strtod(line.c_str() + name.size() + 1, nullptr) * 1024.0 / 1e6;
    return 0.0;
}

std::vector<float> noise(std::size_t count)
{
    std::mt19937 generator(1);
    std::uniform_real_distribution<float> amplitude(-0.5F, 0.5F);
    std::vector<float> samples(count);
    for (float& sample : samples)
        sample = amplitude(generator);
    return samples;
}

void stream(tonwerk::TonwerkProc& processor, double minutes, double baseline)
{
    const double total = minutes * 60.0 * sampleRate;
    double frames = 0.0;
    double nextReport = 1.0;
    while (frames < total)
    {
        const auto block = noise(2 * static_cast<std::size_t>(processor.maxInputSize()));
        processor.process(block, false);
        frames += static_cast<double>(block.size()) / 2.0;
        if (frames >= nextReport * 60.0 * sampleRate)
        {
            std::printf("after %4.0f min: peak %6.1f MB, now %6.1f MB above the loaded model\n", nextReport,
                        statusMegabytes("VmHWM") - baseline, statusMegabytes("VmRSS") - baseline);
            nextReport = nextReport < 10.0 ? nextReport + 9.0 : nextReport + 10.0;
        }
    }
    processor.process({}, true);
    std::printf("at the end:     peak %6.1f MB above the loaded model\n",
                statusMegabytes("VmHWM") - baseline);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 3)
    {
        std::fprintf(stderr, "stream_memory MODEL.onnx [MINUTES]\n");
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    const std::vector<char> model((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    auto context =
        std::make_shared<tonwerk::InferenceContext>(tonwerk::ModelData{model.data(), model.size(), ""});
    const double baseline = statusMegabytes("VmRSS");
    std::printf("loaded runtime and model: %.1f MB\n", baseline);

    tonwerk::TonwerkProcConfig config{};
    config.vocals = config.drum = config.piano = config.acousticGuitar = config.electricGuitar = config.bass =
        1;
    config.interleaved = true;
    tonwerk::TonwerkProc processor(context, config);
    stream(processor, argc == 3 ? std::strtod(argv[2], nullptr) : 60.0, baseline);
    return 0;
}
