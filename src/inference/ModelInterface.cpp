// SPDX-License-Identifier: MIT
#include "inference/ModelInterface.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <numeric>
#include <span>

#include "inference/ModelContract.h"

namespace
{

using Shape = std::vector<std::int64_t>;

/// One input or output as the network declares it.
struct Port
{
    std::string title; ///< such as: The input "vocals_flag"
    std::string name;
    bool isTensor;
    ONNXTensorElementDataType type;
    Shape shape; ///< -1 for an open dimension
};

Port makePort(const char* kind, const std::string& name, const Ort::TypeInfo& info)
{
    Port port{std::string("The ") + kind + " \"" + name + '"',
              name,
              info.GetONNXType() == ONNX_TYPE_TENSOR,
              ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED,
              {}};
    if (port.isTensor)
    {
        const auto tensor = info.GetTensorTypeAndShapeInfo();
        port.type = tensor.GetElementType();
        port.shape = tensor.GetShape();
    }
    return port;
}

std::vector<Port> inputsOf(const Ort::Session& session)
{
    const Ort::AllocatorWithDefaultOptions allocator;
    std::vector<Port> ports;
    for (std::size_t i = 0; i < session.GetInputCount(); ++i)
        ports.push_back(makePort("input", session.GetInputNameAllocated(i, allocator).get(),
                                 session.GetInputTypeInfo(i)));
    return ports;
}

std::vector<Port> outputsOf(const Ort::Session& session)
{
    const Ort::AllocatorWithDefaultOptions allocator;
    std::vector<Port> ports;
    for (std::size_t i = 0; i < session.GetOutputCount(); ++i)
        ports.push_back(makePort("output", session.GetOutputNameAllocated(i, allocator).get(),
                                 session.GetOutputTypeInfo(i)));
    return ports;
}

std::string typeText(ONNXTensorElementDataType type)
{
    // In the order of the runtime's numbers.
    constexpr std::array<const char*, 17> names{
        "undefined", "float32", "uint8",   "int8",   "uint16", "int16",     "int32",      "int64",   "string",
        "bool",      "float16", "float64", "uint32", "uint64", "complex64", "complex128", "bfloat16"};
    const auto number = static_cast<std::size_t>(type);
    return number < names.size() ? names.at(number) : "type " + std::to_string(number);
}

std::string shapeText(std::span<const std::int64_t> shape)
{
    std::string text;
    for (const std::int64_t extent : shape)
        text += (text.empty() ? "" : ", ") + (extent < 0 ? "?" : std::to_string(extent));
    return '(' + text + ')';
}

bool isOpen(const Shape& shape)
{
    return std::any_of(shape.begin(), shape.end(), [](std::int64_t extent) { return extent < 0; });
}

/// Whether a tensor of the wanted shape fits the declared one.
bool takes(const Shape& declared, std::span<const std::int64_t> wanted)
{
    return std::equal(declared.begin(), declared.end(), wanted.begin(), wanted.end(),
                      [](std::int64_t own, std::int64_t extent) { return own < 0 || own == extent; });
}

class InterfaceCheck
{
public:
    InterfaceFaults check(const std::vector<Port>& inputs, const std::vector<Port>& outputs)
    {
        const bool complete = checkNames("input", inputs, contractInputs);
        for (const Port& port : inputs)
            checkInput(port);
        if (complete)
            checkOrder(inputs);
        checkNames("output", outputs, contractOutputs);
        for (const Port& port : outputs)
            checkOutput(port, outputs.front());
        return faults;
    }

private:
    void violation(const std::string& sentence) { faults.violations.push_back(sentence); }
    void warning(const std::string& sentence) { faults.warnings.push_back(sentence); }

    /// \return whether nothing is missing
    bool checkNames(const std::string& kind, const std::vector<Port>& ports,
                    std::span<const char* const> wanted)
    {
        bool complete = true;
        for (const char* name : wanted)
            if (std::none_of(ports.begin(), ports.end(), [&](const Port& port) { return port.name == name; }))
            {
                violation("The " + kind + " \"" + name + "\" is missing.");
                complete = false;
            }
        return complete;
    }

    void checkInput(const Port& port)
    {
        if (std::find(contractInputs.begin(), contractInputs.end(), port.name) == contractInputs.end())
            return violation(port.title + " must not be there: the library has nothing to feed it with.");
        constexpr std::array<std::int64_t, 1> flagShape{1};
        if (port.name == contractInputs.front())
            checkFed(port, ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT, spectrogramShape);
        else
            checkFed(port, ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL, flagShape);
    }

    void checkFed(const Port& port, ONNXTensorElementDataType type, std::span<const std::int64_t> shape)
    {
        if (!checkType(port, type))
            return;
        if (!takes(port.shape, shape))
            violation(port.title + " has the shape " + shapeText(port.shape) + ", it must be " +
                      shapeText(shape) + '.');
        else if (isOpen(port.shape))
            warning(port.title + " has the shape " + shapeText(port.shape) + ": it works, but " +
                    shapeText(shape) + " lets the runtime plan ahead.");
    }

    bool checkType(const Port& port, ONNXTensorElementDataType type)
    {
        if (!port.isTensor)
            violation(port.title + " is no tensor.");
        else if (port.type != type)
            violation(port.title + " is of type " + typeText(port.type) + ", it must be " + typeText(type) +
                      '.');
        else
            return true;
        return false;
    }

    void checkOrder(const std::vector<Port>& inputs)
    {
        std::size_t next = 0;
        std::string order;
        for (const Port& port : inputs)
            if (next < contractInputs.size() && port.name == contractInputs.at(next))
                ++next;
        for (const char* name : contractInputs)
            order += (order.empty() ? "" : ", ") + std::string(name);
        if (next < contractInputs.size())
            violation("The inputs are not in their order, which is " + order + '.');
    }

    /// The library binds all outputs with the first one's shape, so that must have no open dimensions and the
    /// others must match it.
    void checkOutput(const Port& port, const Port& first)
    {
        if (std::find(contractOutputs.begin(), contractOutputs.end(), port.name) == contractOutputs.end())
            return warning(port.title + " is not used by the library.");
        if (!checkType(port, ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT))
            return;
        const std::int64_t count =
            std::accumulate(port.shape.begin(), port.shape.end(), std::int64_t{1}, std::multiplies<>());
        constexpr std::int64_t wanted =
            spectrogramShape[0] * spectrogramShape[1] * spectrogramShape[2] * spectrogramShape[3];
        const std::string declares = port.title + " has the shape " + shapeText(port.shape) +
                                     ", it must be " + shapeText(spectrogramShape);
        if (isOpen(port.shape))
            violation(declares + " without open dimensions.");
        else if (count != wanted)
            violation(declares + '.');
        else if (!takes(port.shape, spectrogramShape))
            warning(port.title + " has the shape " + shapeText(port.shape) + " instead of " +
                    shapeText(spectrogramShape) + ", which has as many elements.");
        if (first.isTensor && !isOpen(port.shape) && !isOpen(first.shape) && port.shape != first.shape)
            violation(port.title + " has another shape than " + '"' + first.name + "\", the first output.");
    }

    InterfaceFaults faults;
};

} // namespace

InterfaceFaults checkInterface(const Ort::Session& session)
{
    return InterfaceCheck().check(inputsOf(session), outputsOf(session));
}
