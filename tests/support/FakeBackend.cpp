// SPDX-License-Identifier: MIT
#include "support/FakeBackend.h"

#include <algorithm>
#include <array>
#include <utility>

#include "inference/InferenceBackend.h"

namespace
{

/// In the order of the outputs that the library asks for.
class SelectingInference : public FakeInference
{
public:
    using FakeInference::FakeInference;

    /// Takes no memory, so that tests can refuse the library's alone.
    bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override
    {
        const tonwerk::StemSelection selection = selectionOf(selected);
        std::array<float*, tonwerk::modelStemCount> silenced{};
        for (std::size_t stem = 0; stem < outputs.size(); ++stem)
            if (!selection.at(stem))
                silenced.at(stem) = outputs[stem];
        const bool done = FakeInference::run(input, std::move(outputs), shape);
        for (float* output : silenced)
            if (output != nullptr)
                std::fill_n(output, shape[0] * shape[1] * shape[2] * shape[3], 0.0F);
        return done;
    }

    StemFlags selected{};
};

} // namespace

FakeBackend& fakeBackend()
{
    static FakeBackend record;
    return record;
}

std::shared_ptr<IInference> makeInferenceBackend(const void* model, std::size_t size,
                                                 const std::vector<std::string>& inputNames,
                                                 const std::vector<std::string>& outputNames,
                                                 const std::string& providerName)
{
    FakeBackend& record = fakeBackend();
    record.modelAddress = model;
    record.modelBytes.assign(static_cast<const char*>(model), size);
    record.inputNames = inputNames;
    record.outputNames = outputNames;
    record.providerName = providerName;
    record.onMake();
    if (record.makesNothing)
        return nullptr;
    const auto destroy = [done = record.onDestroy](SelectingInference* backend)
    {
        done();
        delete backend;
    };
    const std::shared_ptr<FakeInference> backend(new SelectingInference(record.model), destroy);
    record.lastMade = backend;
    return backend;
}

void setSelectedStems(const std::shared_ptr<IInference>& backend, StemFlags flags)
{
    dynamic_cast<SelectingInference&>(*backend).selected = flags;
}

StemFlags selectedStems(const std::shared_ptr<IInference>& backend)
{
    return dynamic_cast<const SelectingInference&>(*backend).selected;
}
