// SPDX-License-Identifier: MIT
// Receipts and stems from anywhere, as a later run finds them: the song counts as done or it does not.

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>

#include "batch/Receipt.h"
#include "fuzz/FuzzFolder.h"
#include "fuzz/FuzzInput.h"

// The first two bytes are the size of the stem, which follows, and the rest is the receipt.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace tonwerk::app;
    static const FuzzFolder folder;
    FuzzInput input(data, size);
    const std::size_t stemSize = input.below(65536);
    const std::string rest = input.remaining();
    const std::string stem = rest.substr(0, stemSize);
    const std::string receipt = rest.substr(stem.size());
    const auto write = [](const std::string& name, const std::string& text)
    { folder.write(name, reinterpret_cast<const std::uint8_t*>(text.data()), text.size()); };
    write("bass.wav", stem);
    write(receiptName, receipt);
    OutputSettings settings;
    settings.tracks = {{"bass", 5, {}}};
    settings.stems.set(5);
    isDone(folder.path(), {"", ""}, settings);
    for (const std::string& name : staleFiles(folder.path(), settings))
        promise(name.find_first_of("/\\") == name.npos && name != "bass.wav",
                "a file of ours in the folder itself");
    return 0;
}
