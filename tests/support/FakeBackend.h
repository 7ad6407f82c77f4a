/// \file FakeBackend.h
/// Stands in for the inference backend at link time: makeInferenceBackend and setSelectedStems over
/// FakeInference, so that the whole public interface runs without a network.
#ifndef TONWERK_TESTS_SUPPORT_FAKEBACKEND_H
#define TONWERK_TESTS_SUPPORT_FAKEBACKEND_H

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "inference/StemFlags.h"
#include "support/FakeInference.h"

/// What the fake backend shall do and what was asked of it. Backends that it makes keep the contract of the
/// stem flags: after a run the outputs of stems that are not selected hold zeros, told apart by output name.
struct FakeBackend
{
    /// Model of the backends made from now on.
    FakeInference::Model model = identityModel();
    /// Called by the factory when it has recorded its arguments; may throw.
    std::function<void()> onMake;
    /// Called when a backend is destroyed.
    std::function<void()> onDestroy;
    /// The factory returns null.
    bool makesNothing = false;

    std::size_t made = 0;
    std::weak_ptr<FakeInference> lastMade;
    const void* modelAddress = nullptr;
    std::string modelBytes;
    std::vector<std::string> inputNames;
    std::vector<std::string> outputNames;
    std::string providerName;
    /// Flags set last, in any backend.
    StemFlags flags;
    std::size_t selections = 0;
};

/// The one record of the test program; assign FakeBackend{} to begin afresh.
FakeBackend& fakeBackend();

#endif // TONWERK_TESTS_SUPPORT_FAKEBACKEND_H
