// SPDX-License-Identifier: MIT
// Songs from anywhere, through the decoders of every format: samples, or a sentence.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "audio/SongReader.h"
#include "fuzz/FuzzFolder.h"
#include "fuzz/FuzzInput.h"
#include "system/Failure.h"

// The input is the file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const FuzzFolder folder;
    const auto file = folder.write("song", data, size);
    try
    {
        tonwerk::app::SongReader song(file);
        promise(song.channels() == 1 || song.channels() == 2, "mono or stereo");
        constexpr std::uint64_t enough = 1'000'000; // a small file may state hours of silence
        std::vector<float> block;
        do
        {
            const std::uint64_t before = song.framesRead();
            song.read(40'000, block);
            promise(song.framesRead() - before == block.size() / 2, "as many frames as it says");
            promise(song.fractionRead() >= 0.0 && song.fractionRead() <= 1.0, "a fraction");
        } while (!block.empty() && song.framesRead() < enough);
        promise(song.sha256().size() == 64, "a hash");
    }
    catch (const tonwerk::app::Failure&)
    {
        // One sentence for the user.
    }
    return 0;
}
