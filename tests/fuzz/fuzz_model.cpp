// SPDX-License-Identifier: MIT
// Model bytes and keys from anywhere, through the real runtime: an exception or a working context, and a
// context that works streams or says why not.

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/FuzzInput.h"
#include "tonwerk/TonwerkProc.h"

// The first byte is the length of the key, which follows, and the rest is the model.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzInput input(data, size);
    std::string key(input.below(17), '\0');
    for (char& character : key)
        character = static_cast<char>(input.byte());
    const std::string model = input.remaining();
    try
    {
        const auto context = std::make_shared<tonwerk::InferenceContext>(
            tonwerk::ModelData{model.empty() ? nullptr : model.data(), model.size(), key});
        tonwerk::TonwerkProcConfig config{};
        config.vocals = config.bass = 1;
        config.channels = 2;
        tonwerk::TonwerkProc processor(context, config);
        const auto stems = processor.process(std::vector<float>(200, 0.25F), true);
        promise(stems.size() == 8, "eight stems");
        for (const auto& stem : stems)
            promise(stem.size() == 200, "as long as the input");
    }
    catch (const std::exception&)
    {
        // The runtime refused the model, or the model has no fixed interface.
    }
    return 0;
}
