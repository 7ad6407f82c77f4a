// SPDX-License-Identifier: MIT
/// \file InferenceBackend.h
/// Making and steering the inference backend without knowing what it is built on.
#ifndef TONWERK_INFERENCE_INFERENCEBACKEND_H
#define TONWERK_INFERENCE_INFERENCEBACKEND_H

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "inference/IInference.h"
#include "inference/ISharedModel.h"
#include "inference/SessionChoices.h"
#include "inference/StemFlags.h"

/// Loads the inference runtime if that has not happened yet, and the model on the best execution provider.
///
/// \param model, size  the plain serialized network; read only during the call
/// \param inputNames   names of the network's inputs; empty: the model's own
/// \param outputNames  names of its outputs, likewise; in this order IInference::run takes the buffers
/// \param providerName execution provider to try first; empty: the fixed order
/// \throws std::runtime_error if the runtime cannot be loaded or is too old
/// \throws ExternalDataRefused if the model keeps values outside of its bytes
/// \throws Ort::Exception if the runtime refuses the model
std::shared_ptr<IInference> makeInferenceBackend(const void* model, std::size_t size,
                                                 const std::vector<std::string>& inputNames,
                                                 const std::vector<std::string>& outputNames,
                                                 const std::string& providerName);

/// The same as a model whose users say run by run what they want, and are told how a run ended. A network
/// that breaks the contract is refused. While only models made here exist, the runtime's own lines go to our
/// log.
///
/// \param outputNames names of the network's outputs; in this order ISharedModel::evaluate takes the buffers
/// \throws std::runtime_error if the runtime cannot be loaded or is too old, or the network's interface is
///         not the contract's: a sentence
/// \throws ExternalDataRefused if the model keeps values outside of its bytes
/// \throws ProviderRefused if the only provider that will do cannot be had
/// \throws Ort::Exception if the runtime refuses the model
std::shared_ptr<ISharedModel> makeSharedModel(const void* model, std::size_t size,
                                              const std::vector<std::string>& outputNames,
                                              const SessionChoices& choices);

/// Selects the stems of every following run of a backend made by makeInferenceBackend. The last call holds
/// for all users of the backend. Other implementations of IInference are left alone.
void setSelectedStems(const std::shared_ptr<IInference>& backend, StemFlags flags);

/// The stems that the next run of a backend will give; the outputs of all others will be zero. Of other
/// implementations of IInference nothing is known: all stems.
StemFlags selectedStems(const std::shared_ptr<IInference>& backend);

#endif // TONWERK_INFERENCE_INFERENCEBACKEND_H
