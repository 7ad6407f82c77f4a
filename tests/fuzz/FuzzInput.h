// SPDX-License-Identifier: MIT
/// \file FuzzInput.h
/// Decisions drawn from a fuzzer's bytes.
#ifndef TONWERK_TESTS_FUZZ_FUZZINPUT_H
#define TONWERK_TESTS_FUZZ_FUZZINPUT_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

/// Reads bytes one after another; when they run out every further one is 0.
class FuzzInput
{
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : rest(data, size) {}

    bool empty() const { return rest.empty(); }

    std::uint8_t byte()
    {
        if (rest.empty())
            return 0;
        const std::uint8_t value = rest.front();
        rest = rest.subspan(1);
        return value;
    }

    /// A number below `limit`, which is at most 65,536.
    std::size_t below(std::size_t limit)
    {
        const std::size_t value = limit > 256 ? byte() * std::size_t{256} + byte() : byte();
        return value % limit;
    }

    /// One of a table's entries.
    template <typename Table>
    auto oneOf(const Table& table)
    {
        return table[below(std::size(table))];
    }

    /// Everything that is left.
    std::string remaining()
    {
        std::string bytes(rest.begin(), rest.end());
        rest = {};
        return bytes;
    }

private:
    std::span<const std::uint8_t> rest;
};

/// Ends the process, so that the fuzzer keeps the input, unless the promise holds.
inline void promise(bool holds, const char* what)
{
    if (holds)
        return;
    std::fprintf(stderr, "broken promise: %s\n", what);
    std::abort();
}

#endif // TONWERK_TESTS_FUZZ_FUZZINPUT_H
