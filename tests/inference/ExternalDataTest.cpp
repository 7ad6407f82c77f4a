// SPDX-License-Identifier: MIT
#include "inference/ExternalData.h"

#include <cstddef>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/ModelFile.h"

namespace
{

std::string varint(std::size_t number)
{
    std::string bytes;
    for (; number > 127; number >>= 7U)
        bytes.push_back(static_cast<char>(number % 128 + 128));
    bytes.push_back(static_cast<char>(number));
    return bytes;
}

std::string field(std::size_t number, const std::string& content)
{
    std::string text = varint(number * 8 + 2);
    text.append(varint(content.size()));
    return text.append(content);
}

bool isRefused(const std::string& model)
{
    try
    {
        refuseExternalData(model.data(), model.size());
        return false;
    }
    catch (const ExternalDataRefused&)
    {
        return true;
    }
}

bool isRefused(const std::vector<char>& model)
{
    return isRefused(std::string(model.begin(), model.end()));
}

/// A model whose graph has this tensor.
std::string modelWith(const std::string& tensor)
{
    return field(7, field(5, tensor));
}

TEST(ExternalData, IsFoundInEveryPartOfANetwork)
{
    for (const char* part : {"initializer", "sparse", "attribute", "function", "subgraph", "memory"})
        EXPECT_TRUE(isRefused(readModel("hostile/external_" + std::string(part) + ".onnx"))) << part;
    const std::string outside("\x70\x01");
    const std::string attribute = field(5, outside);
    EXPECT_TRUE(isRefused(field(20, field(1, field(5, outside)))));
    EXPECT_TRUE(isRefused(field(20, field(2, field(5, outside)))));
    EXPECT_TRUE(isRefused(field(25, field(11, attribute))));
    for (const unsigned tensors : {5U, 10U})
        EXPECT_TRUE(isRefused(field(7, field(1, field(5, field(tensors, outside))))));
    for (const unsigned sparse : {22U, 23U})
        EXPECT_TRUE(isRefused(field(7, field(1, field(5, field(sparse, field(2, outside)))))));
    std::string nested = field(5, outside);
    for (int depth = 0; depth < 25; ++depth)
        nested = field(1, field(5, field(depth % 2 == 0 ? 6 : 11, nested)));
    EXPECT_TRUE(isRefused(field(7, nested)));
}

TEST(ExternalData, IsFoundHoweverItIsEncoded)
{
    const std::string location("\xF0\x80\x80\x80\x00", 5); // the tag in five bytes
    for (const std::string& tensor :
         {std::string("\x70\x81\x80\x80\x80\x10"),                       // bits beyond the 32 that count
          std::string("\x70\x81\x80\x80\x80\x80\x80\x80\x80\x80\x01"),   // ten bytes
          location + '\x01', std::string("\x0B\x70\x00\x0C\x70\x01", 6), // behind a group
          std::string("\x08\x05\x15....\x19........\x70\x01"), std::string("\x70\x01\x70\x00", 4)})
        EXPECT_TRUE(isRefused(modelWith(tensor))) << ::testing::PrintToString(tensor);
    EXPECT_TRUE(isRefused(field(7, "") + modelWith("\x70\x01") + field(7, "")));
}

TEST(ExternalData, OrdinaryNetworksAndWhatIsNoneHaveNone)
{
    for (const char* model : {"gains.onnx", "band_split.onnx", "wrong/mono.onnx", "hostile/endless.onnx"})
        EXPECT_FALSE(isRefused(readModel(model))) << model;
    EXPECT_FALSE(isRefused(modelWith(std::string("\x70\x00", 2))));
    EXPECT_FALSE(isRefused(modelWith(field(9, "\x70\x01")))) << "a tensor's own bytes";
    EXPECT_FALSE(isRefused(field(8, field(5, "\x70\x01")))) << "no graph";
    for (const char* damaged :
         {"", "\x70\x01", "\x3A", "\x3A\x7F", "\x0C", "\x0F", "\x3A\x05\x2A\x7F\x70\x01\x00",
          "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})
        EXPECT_FALSE(isRefused(std::string(damaged)));
}

} // namespace
