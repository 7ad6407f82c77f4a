#include "support/FakeBackend.h"

#include <algorithm>
#include <stdexcept>

#include "inference/InferenceBackend.h"

namespace
{

/// A FakeInference that silences the outputs of stems not selected, as the real backend does.
class SelectingInference : public FakeInference
{
public:
    SelectingInference(Model model, std::vector<std::string> outputNames, std::function<void()> onDestroy)
        : FakeInference(std::move(model)), outputNames(std::move(outputNames)),
          onDestroy(std::move(onDestroy))
    {
    }

    ~SelectingInference() override
    {
        if (onDestroy)
            onDestroy();
    }

    bool run(const float* input, std::vector<float*> outputs, const Shape& shape) override
    {
        const bool done = FakeInference::run(input, outputs, shape);
        for (std::size_t i = 0; i < outputs.size(); ++i)
            if (!isSelected(outputNames.at(i)))
                std::fill_n(outputs[i], lastInput.size(), 0.0F);
        return done;
    }

    StemFlags flags;

private:
    bool isSelected(const std::string& name) const
    {
        return (name == "vocals_output" && flags.vocals) || (name == "drum_output" && flags.drum) ||
               (name == "bass_output" && flags.bass) || (name == "piano_output" && flags.piano) ||
               (name == "acoustic_guitar_output" && flags.acousticGuitar) ||
               (name == "electric_guitar_output" && flags.electricGuitar);
    }

    std::vector<std::string> outputNames;
    std::function<void()> onDestroy;
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
    ++record.made;
    record.modelAddress = model;
    record.modelBytes.assign(static_cast<const char*>(model), size);
    record.inputNames = inputNames;
    record.outputNames = outputNames;
    record.providerName = providerName;
    if (record.onMake)
        record.onMake();
    if (record.makesNothing)
        return nullptr;
    auto backend = std::make_shared<SelectingInference>(record.model, outputNames, record.onDestroy);
    record.lastMade = backend;
    return backend;
}

void setSelectedStems(const std::shared_ptr<IInference>& backend, StemFlags flags)
{
    FakeBackend& record = fakeBackend();
    record.flags = flags;
    ++record.selections;
    auto* selecting = dynamic_cast<SelectingInference*>(backend.get());
    if (selecting == nullptr)
        throw std::logic_error("setSelectedStems was given a backend that the factory did not make");
    selecting->flags = flags;
}
