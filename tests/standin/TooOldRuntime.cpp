// SPDX-License-Identifier: MIT
// A runtime library from before the version that is needed: it has the entry point and no function table.
#include "inference/OrtApi.h"

namespace
{

const OrtApi* ORT_API_CALL getApi(std::uint32_t /*version*/) noexcept
{
    return nullptr;
}

const char* ORT_API_CALL getVersionString() noexcept
{
    return "1.20.0";
}

constexpr OrtApiBase base{getApi, getVersionString};

} // namespace

const OrtApiBase* ORT_API_CALL OrtGetApiBase() noexcept
{
    return &base;
}
