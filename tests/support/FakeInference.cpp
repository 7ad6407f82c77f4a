#include "support/FakeInference.h"

#include <algorithm>
#include <stdexcept>

namespace
{

void applyRecipe(const StemRecipe& recipe, std::span<const float> input, float* output,
                 const FakeInference::Shape& shape)
{
    const auto planes = static_cast<std::size_t>(shape[1]);
    const auto frames = static_cast<std::size_t>(shape[2]);
    const auto bins = static_cast<std::size_t>(shape[3]);
    for (std::size_t plane = 0; plane < planes; ++plane)
        for (std::size_t frame = 0; frame < frames; ++frame)
            for (std::size_t bin = 0; bin < bins; ++bin)
            {
                const std::size_t index = (plane * frames + frame) * bins + bin;
                double value = recipe.current * static_cast<double>(input[index]);
                if (frame > 0)
                    value += recipe.previous * static_cast<double>(input[index - bins]);
                if (frame + 1 < frames)
                    value += recipe.next * static_cast<double>(input[index + bins]);
                if (recipe.tilted)
                    value *= StemRecipe::tilt(bin, bins);
                output[index] = static_cast<float>(value);
            }
}

} // namespace

bool FakeInference::run(const float* input, std::vector<float*> outputs, const Shape& shape)
{
    ++runs;
    lastShape = shape;
    lastOutputCount = outputs.size();
    const auto count = static_cast<std::size_t>(shape[0] * shape[1] * shape[2] * shape[3]);
    lastInput.assign(input, input + count);
    return model({input, count}, outputs, shape);
}

FakeInference::Model gainModel(const std::vector<float>& gains)
{
    return
        [gains](std::span<const float> input, const std::vector<float*>& outputs, const FakeInference::Shape&)
    {
        for (std::size_t stem = 0; stem < outputs.size(); ++stem)
        {
            const float gain = stem < gains.size() ? gains[stem] : 0.0F;
            std::transform(input.begin(), input.end(), outputs[stem],
                           [gain](float value) { return gain * value; });
        }
        return true;
    };
}

FakeInference::Model identityModel()
{
    return gainModel({1.0F});
}

FakeInference::Model recipeModel(const std::vector<StemRecipe>& recipes)
{
    return [recipes](std::span<const float> input, const std::vector<float*>& outputs,
                     const FakeInference::Shape& shape)
    {
        for (std::size_t stem = 0; stem < outputs.size(); ++stem)
            applyRecipe(stem < recipes.size() ? recipes[stem] : StemRecipe{}, input, outputs[stem], shape);
        return true;
    };
}

FakeInference::Model failingModel()
{
    return [](std::span<const float>, const std::vector<float*>&, const FakeInference::Shape&)
    { return false; };
}

FakeInference::Model idleModel()
{
    return [](std::span<const float>, const std::vector<float*>&, const FakeInference::Shape&)
    { return true; };
}

FakeInference::Model throwingModel()
{
    return [](std::span<const float>, const std::vector<float*>&, const FakeInference::Shape&) -> bool
    { throw std::runtime_error("the model broke"); };
}
