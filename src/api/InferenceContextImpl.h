// SPDX-License-Identifier: MIT
#ifndef TONWERK_API_INFERENCECONTEXTIMPL_H
#define TONWERK_API_INFERENCECONTEXTIMPL_H

#include <memory>

#include "api/LogSetup.h"
#include "inference/IInference.h"
#include "tonwerk/TonwerkProc.h"

namespace tonwerk
{

/// What an InferenceContext handle points to: the loaded model, and the log if this context set it up.
class InferenceContextImpl
{
public:
    /// Sets up the log if there is none, unscrambles the model and loads it.
    /// \throws what makeInferenceBackend throws
    explicit InferenceContextImpl(const ModelData& model);
    InferenceContextImpl(const InferenceContextImpl&) = delete;
    InferenceContextImpl& operator=(const InferenceContextImpl&) = delete;

    /// Releases the backend first, so that it can still log.
    ~InferenceContextImpl();

    /// The loaded model, shared with every processor of the context.
    const std::shared_ptr<IInference>& sharedBackend() const { return backend; }

private:
    std::shared_ptr<IInference> backend;
    LogOwnership log;
};

} // namespace tonwerk

#endif // TONWERK_API_INFERENCECONTEXTIMPL_H
