// SPDX-License-Identifier: MIT
#include "api/InferenceContextImpl.h"

#include <cstddef>
#include <string>
#include <vector>

#include "api/ModelScrambling.h"
#include "common/Stems.h"
#include "inference/InferenceBackend.h"

namespace tonwerk
{

namespace
{

/// The order of these names is the order of the stems in every result.
std::vector<std::string> outputNames()
{
    std::vector<std::string> names;
    names.reserve(modelStems.size());
    for (const ModelStem& stem : modelStems)
        names.emplace_back(stem.output);
    return names;
}

std::shared_ptr<IInference> loadModel(const ModelData& model)
{
    const auto size = static_cast<std::size_t>(model.size);
    if (model.key.empty())
        return makeInferenceBackend(model.data, size, {}, outputNames(), "");
    const ScrambledCopy plain(model.data, size, model.key);
    return makeInferenceBackend(plain.data(), plain.size(), {}, outputNames(), "");
}

} // namespace

InferenceContextImpl::InferenceContextImpl(const ModelData& model)
{
    backend = loadModel(model);
}

InferenceContextImpl::~InferenceContextImpl()
{
    backend.reset();
}

} // namespace tonwerk
