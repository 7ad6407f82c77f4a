// SPDX-License-Identifier: MIT
#include "support/FakeInference.h"

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
