// SPDX-License-Identifier: MIT
#include "system/Sha256.h"

#include <vector>

#include <boost/hash2/sha2.hpp>

#include "system/BinaryFile.h"

namespace tonwerk::app
{

struct Sha256::State
{
    boost::hash2::sha2_256 hash;
};

Sha256::Sha256() : state(std::make_unique<State>()) {}

Sha256::~Sha256() = default;

void Sha256::feed(const void* bytes, std::size_t size)
{
    state->hash.update(bytes, size);
}

std::string Sha256::hexadecimal()
{
    return to_string(state->hash.result());
}

std::string sha256OfFile(const std::filesystem::path& path)
{
    BinaryFile file(path, FileMode::Read);
    Sha256 hash;
    std::vector<char> bytes(1 << 20);
    while (const std::size_t count = file.read(bytes.data(), bytes.size()))
        hash.feed(bytes.data(), count);
    file.requireGood();
    return hash.hexadecimal();
}

} // namespace tonwerk::app
