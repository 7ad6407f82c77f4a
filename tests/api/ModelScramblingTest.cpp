#include "api/ModelScrambling.h"

#include <cstring>
#include <memory>

#include <gtest/gtest.h>

#include "support/FreedBlockWatch.h"

namespace
{

std::string scrambled(const std::string& bytes, const std::string& key)
{
    const ScrambledCopy copy(bytes.data(), bytes.size(), key);
    return {static_cast<const char*>(copy.data()), copy.size()};
}

} // namespace

TEST(ModelScrambling, TheKeyRepeatsAlongTheBytes)
{
    EXPECT_EQ(scrambled("abcdef", std::string("\x01\x02\x04", 3)),
              std::string("\x60\x60\x67\x65\x67\x62", 6));
    EXPECT_EQ(scrambled("abc", std::string("\x20", 1)), "ABC");
    EXPECT_EQ(scrambled("ab", "  and the rest of a longer key"), "AB");
    EXPECT_EQ(scrambled("", "key"), "");
}

TEST(ModelScrambling, KeysAndBytesMayHoldAnyValue)
{
    std::string bytes(600, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i);
    const std::string key("\x00\xFF\x80", 3);
    const std::string result = scrambled(bytes, key);
    ASSERT_EQ(result.size(), bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i)
        EXPECT_EQ(static_cast<unsigned char>(result[i]),
                  static_cast<unsigned char>(bytes[i]) ^ static_cast<unsigned char>(key[i % 3]))
            << i;
    EXPECT_EQ(scrambled(result, key), bytes) << "scrambling undoes itself";
}

TEST(ModelScrambling, TheCopyIsWipedBeforeItIsFreed)
{
    const std::string bytes(5000, 'm');
    auto copy = std::make_unique<ScrambledCopy>(bytes.data(), bytes.size(), "key");
    watchBlock(copy->data(), copy->size());
    EXPECT_EQ(watchedBlock(), FreedBlock::NotFreed);
    copy.reset();
    EXPECT_EQ(watchedBlock(), FreedBlock::FreedWiped);
}

TEST(ModelScrambling, TheWatchWouldNoticeACopyThatIsNotWiped)
{
    auto block =
        std::make_unique<char[]>(100); // NOLINT(modernize-avoid-c-arrays): it is new[] that is watched
    block[99] = 'm';
    watchBlock(block.get(), 100);
    block.reset();
    EXPECT_EQ(watchedBlock(), FreedBlock::FreedWithContent);
}
