// SPDX-License-Identifier: MIT
/// \file ApiFixture.h
/// The public interface on the fake backend.
#ifndef TONWERK_TESTS_API_APIFIXTURE_H
#define TONWERK_TESTS_API_APIFIXTURE_H

#include <gtest/gtest.h>

#include "support/FakeBackend.h"
#include "support/Stream.h"

/// Begins and ends with a fresh fake backend, which takes any model.
class ApiOnFakeBackend : public ::testing::Test
{
protected:
    ApiOnFakeBackend() { fakeBackend() = FakeBackend{}; }
    ~ApiOnFakeBackend() override { fakeBackend() = FakeBackend{}; }
};

#endif // TONWERK_TESTS_API_APIFIXTURE_H
