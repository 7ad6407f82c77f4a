// SPDX-License-Identifier: MIT
#include "c/Records.h"

namespace tonwerk::c
{

namespace
{

// Far beyond any later version's record, so that a size that was never set leads nowhere.
constexpr std::size_t longestRecord = 4096;

constexpr const char* tooSmall = "The size field of the record is too small.";
constexpr const char* tooLarge = "The size field of the record is too large.";

std::uint32_t sizeOf(const void* record)
{
    std::uint32_t size = 0;
    std::memcpy(&size, record, sizeof size);
    return size;
}

} // namespace

const char* takeRecord(const void* given, void* known, std::size_t knownSize,
                       std::initializer_list<std::size_t> olderSizes) noexcept
{
    const std::size_t size = sizeOf(given);
    if (size > longestRecord)
        return tooLarge;
    if (size < knownSize && std::find(olderSizes.begin(), olderSizes.end(), size) == olderSizes.end())
        return tooSmall;
    const auto* bytes = static_cast<const unsigned char*>(given);
    if (size > knownSize &&
        std::any_of(bytes + knownSize, bytes + size, [](unsigned char byte) { return byte != 0; }))
        return "The record asks for something that this version does not know.";
    std::memcpy(known, given, std::min(size, knownSize));
    return nullptr;
}

const char* giveRecord(const void* known, std::size_t knownSize, void* target) noexcept
{
    const std::size_t size = sizeOf(target);
    if (size > longestRecord)
        return tooLarge;
    constexpr std::size_t head = sizeof(std::uint32_t);
    if (size < head)
        return tooSmall;
    auto* bytes = static_cast<unsigned char*>(target);
    const std::size_t shared = std::min(size, knownSize);
    std::memcpy(bytes + head, static_cast<const unsigned char*>(known) + head, shared - head);
    std::fill(bytes + shared, bytes + size, static_cast<unsigned char>(0));
    return nullptr;
}

} // namespace tonwerk::c
