// SPDX-License-Identifier: MIT
#include "inference/ExternalData.h"

#include <array>
#include <cstdint>
#include <string_view>

#include "common/MessageReader.h"

namespace
{

/// The messages of onnx.proto in which tensors can lie.
enum class Part : std::uint8_t
{
    Model,
    Graph,
    Node,
    Attribute,
    Function,
    Training,
    SparseTensor,
    Tensor
};

/// The field of a message that holds another one.
struct Link
{
    Part owner;
    std::uint32_t field;
    Part content;
};

constexpr std::array<Link, 17> links{{{Part::Model, 7, Part::Graph},
                                      {Part::Model, 20, Part::Training},
                                      {Part::Model, 25, Part::Function},
                                      {Part::Training, 1, Part::Graph},
                                      {Part::Training, 2, Part::Graph},
                                      {Part::Function, 7, Part::Node},
                                      {Part::Function, 11, Part::Attribute},
                                      {Part::Graph, 1, Part::Node},
                                      {Part::Graph, 5, Part::Tensor},
                                      {Part::Graph, 15, Part::SparseTensor},
                                      {Part::Node, 5, Part::Attribute},
                                      {Part::Attribute, 5, Part::Tensor},
                                      {Part::Attribute, 6, Part::Graph},
                                      {Part::Attribute, 10, Part::Tensor},
                                      {Part::Attribute, 11, Part::Graph},
                                      {Part::Attribute, 22, Part::SparseTensor},
                                      {Part::Attribute, 23, Part::SparseTensor}}};

constexpr std::uint32_t dataLocationField = 14;
constexpr std::int32_t externalLocation = 1;
/// The runtime's reader goes no deeper than 100 messages.
constexpr unsigned deepest = 200;

bool isExternal(std::string_view tensor)
{
    // A later value of a field replaces an earlier one, but the tensor may be cut into several messages, of
    // which this is one: a place outside anywhere is enough.
    for (MessageReader fields(tensor); fields.next();)
        if (fields.field() == dataLocationField && fields.kind() == MessageReader::Kind::Number &&
            static_cast<std::int32_t>(fields.value()) == externalLocation)
            return true;
    return false;
}

bool hasExternalData(Part part, std::string_view message, unsigned depth)
{
    if (part == Part::Tensor)
        return isExternal(message);
    for (MessageReader fields(message); depth < deepest && fields.next();)
    {
        if (fields.kind() != MessageReader::Kind::Bytes)
            continue;
        // Values and indices are tensors.
        if (part == Part::SparseTensor && fields.field() <= 2 && isExternal(fields.bytes()))
            return true;
        for (const Link& link : links)
            if (link.owner == part && link.field == fields.field() &&
                hasExternalData(link.content, fields.bytes(), depth + 1))
                return true;
    }
    return false;
}

} // namespace

void refuseExternalData(const void* model, std::size_t size)
{
    if (hasExternalData(Part::Model, {static_cast<const char*>(model), size}, 0))
        throw ExternalDataRefused();
}
