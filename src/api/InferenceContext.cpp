// SPDX-License-Identifier: MIT
#include <utility>

#include "api/InferenceContextImpl.h"
#include "tonwerk/TonwerkProc.h"

namespace tonwerk
{

InferenceContext::InferenceContext(ModelData model) : impl(new InferenceContextImpl(model)) {}

InferenceContext::InferenceContext(InferenceContext&& other) noexcept
    : impl(std::exchange(other.impl, nullptr))
{
}

InferenceContext& InferenceContext::operator=(InferenceContext&& other) noexcept
{
    if (this != &other)
    {
        delete impl;
        impl = std::exchange(other.impl, nullptr);
    }
    return *this;
}

InferenceContext::~InferenceContext()
{
    delete impl;
}

} // namespace tonwerk
