// SPDX-License-Identifier: MIT
#include "support/FakeBackend.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <stdexcept>
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

/// Does what the record says, and writes down what was asked.
std::shared_ptr<FakeInference> make(const void* model, std::size_t size,
                                    const std::vector<std::string>& outputNames,
                                    const std::string& providerName)
{
    FakeBackend& record = fakeBackend();
    record.modelAddress = model;
    record.modelBytes.assign(static_cast<const char*>(model), size);
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

class FakeSwitch : public IRunSwitch
{
public:
    void stop() override { stopped = true; }
    void allow() override { stopped = false; }

    std::atomic<bool> stopped{false};
};

class FakeModel : public ISharedModel
{
public:
    explicit FakeModel(std::shared_ptr<FakeInference> network) : network(std::move(network)) {}

    void evaluate(const float* input, const std::vector<float*>& outputs,
                  const std::array<std::int64_t, 4>& shape, StemFlags flags,
                  const IRunSwitch& runSwitch) override
    {
        dynamic_cast<SelectingInference&>(*network).selected = flags;
        const auto& own = dynamic_cast<const FakeSwitch&>(runSwitch);
        if (own.stopped || !network->run(input, outputs, shape) || own.stopped)
            throw std::runtime_error("the fake network failed");
    }

    std::unique_ptr<IRunSwitch> makeRunSwitch() const override { return std::make_unique<FakeSwitch>(); }
    const ModelFacts& facts() const override { return modelFacts; }

private:
    std::shared_ptr<FakeInference> network;
    ModelFacts modelFacts{"CPUExecutionProvider", {}};
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
    fakeBackend().inputNames = inputNames;
    return make(model, size, outputNames, providerName);
}

std::shared_ptr<ISharedModel> makeSharedModel(const void* model, std::size_t size,
                                              const std::vector<std::string>& outputNames,
                                              const SessionChoices& choices)
{
    fakeBackend().choices = choices;
    return std::make_shared<FakeModel>(make(model, size, outputNames, choices.provider));
}

void setSelectedStems(const std::shared_ptr<IInference>& backend, StemFlags flags)
{
    dynamic_cast<SelectingInference&>(*backend).selected = flags;
}

StemFlags selectedStems(const std::shared_ptr<IInference>& backend)
{
    return dynamic_cast<const SelectingInference&>(*backend).selected;
}
