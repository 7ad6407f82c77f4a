// SPDX-License-Identifier: MIT
/// \file FakeBackend.h
/// Stands in for the inference backend at link time: the functions of InferenceBackend.h over FakeInference,
/// so that the whole public interface runs without a network.
#ifndef TONWERK_TESTS_SUPPORT_FAKEBACKEND_H
#define TONWERK_TESTS_SUPPORT_FAKEBACKEND_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "inference/SessionChoices.h"
#include "support/FakeInference.h"

/// What the fake backend shall do and what was asked of it. As the real one it silences the stems that are
/// not selected.
struct FakeBackend
{
    /// Model of the backends made from now on: stems that are fractions of the input, and a rest.
    FakeInference::Model model =
        recipeModel({{0.0, 0.3}, {0.0, 0.25}, {0.0, 0.2}, {0.0, 0.1}, {0.0, 0.1}, {0.0, 0.03}});
    /// Called by the factory when it has recorded its arguments; may throw.
    std::function<void()> onMake = [] {};
    /// Called when a backend is destroyed.
    std::function<void()> onDestroy = [] {};
    /// The factory returns null.
    bool makesNothing = false;

    std::weak_ptr<FakeInference> lastMade;
    const void* modelAddress = nullptr;
    std::string modelBytes;
    std::vector<std::string> inputNames;
    std::vector<std::string> outputNames;
    std::string providerName;
    SessionChoices choices; ///< of the last shared model
};

/// The one record of the test program; assign FakeBackend{} to begin afresh.
FakeBackend& fakeBackend();

#endif // TONWERK_TESTS_SUPPORT_FAKEBACKEND_H
