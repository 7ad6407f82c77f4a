// SPDX-License-Identifier: MIT
// Runs a fuzz target over the files of its seed folder, as an ordinary test for every compiler and system.
//
//   replay_TARGET FOLDER

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int argc, char** argv)
try
{
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argc == 2 ? argv[1] : "no folder given"))
    {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        std::fprintf(stderr, "%s\n", entry.path().filename().string().c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++count;
    }
    std::printf("%zu inputs\n", count);
    return count > 0 ? 0 : 1;
}
catch (const std::exception& failure)
{
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
}
