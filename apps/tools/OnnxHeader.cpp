// SPDX-License-Identifier: MIT
#include "tools/OnnxHeader.h"

#include <algorithm>
#include <cstddef>

namespace tonwerk::app
{

namespace
{

/// Walks over the fields of one serialized protocol-buffers message (protobuf.dev, "Encoding").
class MessageReader
{
public:
    explicit MessageReader(std::string_view bytes) : rest(bytes) {}

    /// Goes to the next field.
    /// \return false at the end, or where the message is damaged
    bool next()
    {
        std::uint64_t tag = 0;
        if (!readVarint(tag))
            return false;
        fieldNumber = tag >> 3;
        switch (tag & 7)
        {
        case 0:
            return readVarint(number);
        case 1:
            return take(8);
        case 2:
            return readVarint(number) && take(number);
        case 5:
            return take(4);
        default:
            return false;
        }
    }

    std::uint64_t field() const { return fieldNumber; }
    std::uint64_t value() const { return number; }
    std::string_view bytes() const { return content; }

private:
    bool readVarint(std::uint64_t& result)
    {
        result = 0;
        for (unsigned shift = 0; shift < 64 && !rest.empty(); shift += 7)
        {
            const auto byte = static_cast<unsigned char>(rest.front());
            rest.remove_prefix(1);
            result |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
            if (byte < 0x80)
                return true;
        }
        return false;
    }

    bool take(std::uint64_t size)
    {
        if (size > rest.size())
            return false;
        content = rest.substr(0, static_cast<std::size_t>(size));
        rest.remove_prefix(content.size());
        return true;
    }

    std::string_view rest;
    std::string_view content;
    std::uint64_t fieldNumber = 0;
    std::uint64_t number = 0;
};

/// On one line, whatever the file says.
std::string printable(std::string_view text)
{
    constexpr std::size_t longest = 80;
    std::string line(text.substr(0, longest));
    std::replace_if(
        line.begin(), line.end(), [](char character) { return character < ' ' || character > '~'; }, '?');
    return line;
}

std::string operatorSet(std::string_view message)
{
    std::string domain;
    std::uint64_t version = 0;
    for (MessageReader reader(message); reader.next();)
    {
        if (reader.field() == 1)
            domain = printable(reader.bytes());
        else if (reader.field() == 2)
            version = reader.value();
    }
    return (domain.empty() || domain == "ai.onnx" ? "opset" : domain) + ' ' + std::to_string(version);
}

} // namespace

OnnxHeader readOnnxHeader(std::string_view model)
{
    OnnxHeader header;
    for (MessageReader reader(model); reader.next();)
    {
        if (reader.field() == 1)
            header.irVersion = reader.value();
        else if (reader.field() == 2)
            header.producer = printable(reader.bytes());
        else if (reader.field() == 3 && !reader.bytes().empty())
            header.producer += ' ' + printable(reader.bytes());
        else if (reader.field() == 8)
            header.operatorSets += (header.operatorSets.empty() ? "" : ", ") + operatorSet(reader.bytes());
    }
    return header;
}

} // namespace tonwerk::app
