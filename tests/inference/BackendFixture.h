// SPDX-License-Identifier: MIT
/// \file BackendFixture.h
/// What the tests on the stand-in runtime share.
#ifndef TONWERK_TESTS_INFERENCE_BACKENDFIXTURE_H
#define TONWERK_TESTS_INFERENCE_BACKENDFIXTURE_H

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "inference/InferenceBackend.h"
#include "standin/Standin.h"
#include "support/LogCapture.h"
#include "support/ModelFile.h"

/// Starts with a fresh script and record, and ends with the check that everything the runtime handed out was
/// given back.
class BackendFixture : public ::testing::Test
{
protected:
    BackendFixture();
    ~BackendFixture() override;

    /// Loads a model as the library does: the model's own input names and the six outputs in the host's
    /// order.
    std::shared_ptr<IInference> load(const std::string& model, const std::string& preferredProvider = "");

    /// The number of the attempt whose session was asked for its interface.
    int keptSession() const;

    /// The recorded calls up to the questions about the kept session's interface.
    std::vector<std::string> sessionCalls() const;

    static const std::vector<std::string> outputNames;

    Standin& standin;
    LogCapture log;
};

#endif // TONWERK_TESTS_INFERENCE_BACKENDFIXTURE_H
