// SPDX-License-Identifier: MIT
#ifndef TONWERK_COMMON_MESSAGEREADER_H
#define TONWERK_COMMON_MESSAGEREADER_H

#include <cstdint>
#include <optional>
#include <string_view>

/// Walks over the fields of one serialized message (protobuf.dev, "Encoding"). It reads whatever other
/// readers of the format do: where it stops early, they refuse the message.
class MessageReader
{
public:
    /// How a field is stored. Fields of fixed size and groups, which ONNX does not use, are skipped.
    enum class Kind : std::uint8_t
    {
        Number = 0,
        Bytes = 2
    };

    explicit MessageReader(std::string_view bytes) : rest(bytes) {}

    /// Goes to the next field.
    /// \return false at the end, or where the message is damaged
    bool next();

    std::uint32_t field() const { return number; }
    Kind kind() const { return fieldKind; }

    /// A text or a message, valid as long as the message that it lies in; empty if the field is a number.
    std::string_view bytes() const { return content; }

    /// The field's value if it is a number.
    std::uint64_t value() const { return integer; }

private:
    std::optional<std::uint64_t> readVarint();
    bool skip(std::uint64_t size);
    bool readField(std::uint32_t wireType);

    std::string_view rest;
    std::string_view content;
    std::uint64_t integer = 0;
    std::uint32_t number = 0;
    Kind fieldKind = Kind::Number;
    unsigned openGroups = 0;
};

#endif // TONWERK_COMMON_MESSAGEREADER_H
