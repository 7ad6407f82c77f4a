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

std::shared_ptr<IInference> loadModel(const ModelData& model)
{
    const auto size = static_cast<std::size_t>(model.size);
    if (model.key.empty())
        return makeInferenceBackend(model.data, size, {}, modelOutputs(), "");
    const ScrambledCopy plain(model.data, size, model.key);
    return makeInferenceBackend(plain.data(), plain.size(), {}, modelOutputs(), "");
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
