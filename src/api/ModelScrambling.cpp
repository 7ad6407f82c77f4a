// SPDX-License-Identifier: MIT
#include "api/ModelScrambling.h"

#include <algorithm>
#include <utility>

ScrambledCopy::ScrambledCopy(const void* data, std::size_t size, const std::string& key)
    : bytes(new unsigned char[size]), count(size)
{
    const auto* source = static_cast<const unsigned char*>(data);
    std::size_t keyIndex = 0;
    for (std::size_t i = 0; i < size; ++i)
    {
        bytes[i] = static_cast<unsigned char>(source[i] ^ static_cast<unsigned char>(key[keyIndex]));
        if (++keyIndex == key.size())
            keyIndex = 0;
    }
}

ScrambledCopy::~ScrambledCopy()
{
    // Volatile, so that the compiler does not drop stores to memory that is about to be freed.
    volatile unsigned char* target = bytes.get();
    for (std::size_t i = 0; i < count; ++i)
        target[i] = 0;
}
