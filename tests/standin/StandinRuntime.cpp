// SPDX-License-Identifier: MIT
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "RealRuntime.h"
#include "StandinParts.h"

namespace
{

const OrtApiBase& realBase()
{
    static const OrtApiBase* base = openRealRuntime();
    if (base == nullptr)
    {
        std::fputs("The real runtime is missing in the folder above the stand-in.\n", stderr);
        std::abort();
    }
    return *base;
}

void ORT_API_CALL releaseStatus(OrtStatus* status)
{
    release("status", status);
    realApi().ReleaseStatus(status);
}

OrtApi patchedTable()
{
    OrtApi table = realApi();
    patchProviders(table);
    patchSessions(table);
    table.ReleaseStatus = releaseStatus;
    return table;
}

const OrtApi* ORT_API_CALL getApi(std::uint32_t version) noexcept
{
    static const OrtApi table = patchedTable();
    return version == ORT_API_VERSION ? &table : nullptr;
}

const char* ORT_API_CALL getVersionString() noexcept
{
    return realBase().GetVersionString();
}

} // namespace

const OrtApi& realApi()
{
    static const OrtApi* table = realBase().GetApi(ORT_API_VERSION);
    return *table;
}

void record(const std::string& call)
{
    standin().calls.push_back(call);
}

void create(const std::string& kind)
{
    ++standin().created[kind];
    ++standin().alive[kind];
}

void release(const std::string& kind, const void* object)
{
    if (object != nullptr)
        --standin().alive[kind];
}

OrtStatus* counted(OrtStatus* status)
{
    if (status != nullptr)
        create("status");
    return status;
}

OrtStatus* made(const char* kind, OrtStatus* status)
{
    if (status == nullptr)
        create(kind);
    return counted(status);
}

OrtStatus* failure(const std::string& what)
{
    return counted(realApi().CreateStatus(ORT_FAIL, ("stand-in: " + what + " fails").c_str()));
}

Standin& standin()
{
    static Standin state;
    return state;
}

const OrtApiBase* ORT_API_CALL OrtGetApiBase() noexcept
{
    static const StandinBase standinBase{{getApi, getVersionString}, &standin()};
    return &standinBase.base;
}
