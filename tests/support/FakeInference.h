// SPDX-License-Identifier: MIT
/// \file FakeInference.h
/// Models without a network, for everything between the host and IInference.
#ifndef TONWERK_TESTS_SUPPORT_FAKEINFERENCE_H
#define TONWERK_TESTS_SUPPORT_FAKEINFERENCE_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "inference/IInference.h"

/// How one stem follows from the model input: the weights of the frame before, the frame itself and the frame
/// after (frames outside the segment are silent), times 1 or, if tilted, times tilt(bin, bins).
struct StemRecipe
{
    double previous = 0.0;
    double current = 0.0;
    double next = 0.0;
    bool tilted = false;

    /// Rises from 1/8 at DC to nearly 1.
    static double tilt(std::size_t bin, std::size_t bins)
    {
        return 0.125 + 0.875 * static_cast<double>(bin) / static_cast<double>(bins);
    }
};

/// An IInference that does what a function says, and remembers its last input.
class FakeInference : public IInference
{
public:
    using Shape = std::array<std::int64_t, 4>;

    /// Same contract as IInference::run.
    using Model = std::function<bool(std::span<const float> input, const std::vector<float*>& outputs,
                                     const Shape& shape)>;

    explicit FakeInference(Model model) : model(std::move(model)) {}

    bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override
    {
        const auto count = static_cast<std::size_t>(shape[0] * shape[1] * shape[2] * shape[3]);
        lastShape = shape;
        lastInput.assign(input, input + count);
        return model({input, count}, outputs, shape);
    }

    /// Can be exchanged between runs.
    Model model;

    Shape lastShape{};
    std::vector<float> lastInput;
};

/// Every stem follows its recipe; stems without one are silent.
FakeInference::Model recipeModel(const std::vector<StemRecipe>& recipes);

/// The first stem is the input, the others are silent.
inline FakeInference::Model identityModel()
{
    return recipeModel({{0.0, 1.0, 0.0}});
}

/// Reports failure and leaves the outputs alone.
inline FakeInference::Model failingModel()
{
    return [](auto&&...) { return false; };
}

/// Throws std::runtime_error.
inline FakeInference::Model throwingModel()
{
    return [](auto&&...) -> bool { throw std::runtime_error("the model broke"); };
}

#endif // TONWERK_TESTS_SUPPORT_FAKEINFERENCE_H
