// SPDX-License-Identifier: MIT
#ifndef TONWERK_API_MODELSCRAMBLING_H
#define TONWERK_API_MODELSCRAMBLING_H

#include <cstddef>
#include <memory>
#include <string>

/// A private copy of model bytes with the host's key applied: byte i is XORed with byte (i modulo key length)
/// of the key, which scrambles plain bytes and unscrambles scrambled ones. The copy is overwritten before it
/// is freed.
class ScrambledCopy
{
public:
    /// \param key not empty
    /// \throws std::bad_alloc
    ScrambledCopy(const void* data, std::size_t size, const std::string& key);
    ScrambledCopy(const ScrambledCopy&) = delete;
    ScrambledCopy& operator=(const ScrambledCopy&) = delete;
    ~ScrambledCopy();

    const void* data() const { return bytes.get(); }
    std::size_t size() const { return count; }

private:
    // Not a vector, which might leave a copy behind.
    std::unique_ptr<unsigned char[]> bytes; // NOLINT(modernize-avoid-c-arrays)
    std::size_t count;
};

#endif // TONWERK_API_MODELSCRAMBLING_H
