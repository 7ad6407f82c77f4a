// SPDX-License-Identifier: MIT
#include "support/FakeBackend.h"

#include "inference/InferenceBackend.h"

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
    const auto destroy = [done = record.onDestroy](FakeInference* backend)
    {
        done();
        delete backend;
    };
    const std::shared_ptr<FakeInference> backend(new FakeInference(record.model), destroy);
    record.lastMade = backend;
    return backend;
}

void setSelectedStems(const std::shared_ptr<IInference>& /*backend*/, StemFlags /*flags*/) {}

StemFlags selectedStems(const std::shared_ptr<IInference>& /*backend*/)
{
    return {true, true, true, true, true, true};
}
