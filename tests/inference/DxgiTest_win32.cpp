// SPDX-License-Identifier: MIT
// The choice of the adapter on a DXGI of our own, which lists what it is told to and counts what it hands
// out.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <dxgi.h>

#include "inference/DmlAdapterChoice.h"
#include "support/LogCapture.h"

namespace
{

struct Entry
{
    std::wstring name;
    UINT vendorId;
    HRESULT described = S_OK;
};

/// What the fake DXGI lists, how opening it ends, and what it has handed out that was not given back.
struct
{
    HRESULT opened = S_OK;
    std::vector<Entry> entries;
    int factories = 0;
    int adapters = 0;
    int mostAdapters = 0;
} dxgi;

#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // the system's interfaces have none
#endif

/// An interface that is used, but for what a class below adds, only to be given back.
template <typename Interface>
class Counted : public Interface
{
public:
    explicit Counted(int& alive) : alive(alive) { ++alive; }

    HRESULT WINAPI QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG WINAPI AddRef() override { return ++references; }
    ULONG WINAPI Release() override
    {
        const ULONG left = --references;
        if (left == 0)
        {
            --alive;
            delete this;
        }
        return left;
    }
    HRESULT WINAPI SetPrivateData(REFGUID, UINT, const void*) override { return E_NOTIMPL; }
    HRESULT WINAPI SetPrivateDataInterface(REFGUID, const IUnknown*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetPrivateData(REFGUID, UINT*, void*) override { return E_NOTIMPL; }
    HRESULT WINAPI GetParent(REFIID, void**) override { return E_NOTIMPL; }

protected:
    virtual ~Counted() = default;

private:
    int& alive;
    ULONG references = 1;
};

class FakeAdapter : public Counted<IDXGIAdapter1>
{
public:
    explicit FakeAdapter(const Entry& entry) : Counted(dxgi.adapters), entry(entry)
    {
        dxgi.mostAdapters = std::max(dxgi.mostAdapters, dxgi.adapters);
    }

    HRESULT WINAPI GetDesc1(DXGI_ADAPTER_DESC1* description) override
    {
        *description = {};
        std::copy(entry.name.begin(), entry.name.end(), description->Description);
        description->VendorId = entry.vendorId;
        return entry.described;
    }
    HRESULT WINAPI EnumOutputs(UINT, IDXGIOutput**) override { return E_NOTIMPL; }
    HRESULT WINAPI GetDesc(DXGI_ADAPTER_DESC*) override { return E_NOTIMPL; }
    HRESULT WINAPI CheckInterfaceSupport(REFGUID, LARGE_INTEGER*) override { return E_NOTIMPL; }

private:
    Entry entry;
};

class FakeFactory : public Counted<IDXGIFactory1>
{
public:
    FakeFactory() : Counted(dxgi.factories) {}

    HRESULT WINAPI EnumAdapters1(UINT index, IDXGIAdapter1** adapter) override
    {
        if (index >= dxgi.entries.size())
            return DXGI_ERROR_NOT_FOUND;
        *adapter = new FakeAdapter(dxgi.entries[index]);
        return S_OK;
    }
    HRESULT WINAPI EnumAdapters(UINT, IDXGIAdapter**) override { return E_NOTIMPL; }
    HRESULT WINAPI MakeWindowAssociation(HWND, UINT) override { return E_NOTIMPL; }
    HRESULT WINAPI GetWindowAssociation(HWND*) override { return E_NOTIMPL; }
    HRESULT WINAPI CreateSwapChain(IUnknown*, DXGI_SWAP_CHAIN_DESC*, IDXGISwapChain**) override
    {
        return E_NOTIMPL;
    }
    HRESULT WINAPI CreateSoftwareAdapter(HMODULE, IDXGIAdapter**) override { return E_NOTIMPL; }
    BOOL WINAPI IsCurrent() override { return TRUE; }
};

} // namespace

// In the place of the system's.
extern "C" HRESULT WINAPI CreateDXGIFactory1(REFIID wanted, void** factory)
{
    EXPECT_TRUE(IsEqualGUID(wanted, __uuidof(IDXGIFactory1)));
    if (SUCCEEDED(dxgi.opened))
        *factory = new FakeFactory;
    return dxgi.opened;
}

TEST(Dxgi, EveryAdapterIsReadOnceAndGivenBackBeforeTheNext)
{
    dxgi = {};
    dxgi.entries = {{L"Iris", 0x8086}, {L"Lost", 0x10DE, DXGI_ERROR_DEVICE_REMOVED}, {L"GeForce", 0x10DE}};
    const LogCapture log;
    EXPECT_EQ(selectDmlAdapterIndex(), 2);
    EXPECT_EQ(log.lines().back(),
              "INFO [selectDmlAdapterIndex] [INFERENCE_onnx] Prefer NVIDIA DML adapter index 2 (GeForce)");
    EXPECT_EQ(dxgi.mostAdapters, 1);
    EXPECT_EQ(dxgi.adapters, 0);
    EXPECT_EQ(dxgi.factories, 0);
}

// A description's name fills its array to the last character.
TEST(Dxgi, ANameWithoutAnEndIsNotReadBeyondItsArray)
{
    dxgi = {};
    dxgi.entries = {{std::wstring(128, L'x'), 0x1002}};
    const LogCapture log;
    EXPECT_EQ(selectDmlAdapterIndex(), 0);
    EXPECT_TRUE(log.lines().front().ends_with("name=" + std::string(128, 'x'))) << log.lines().front();
}

TEST(Dxgi, WithoutAFactoryThereIsNothingToGiveBack)
{
    dxgi = {};
    dxgi.opened = DXGI_ERROR_NOT_FOUND;
    const LogCapture log;
    EXPECT_EQ(selectDmlAdapterIndex(), 0);
    EXPECT_EQ(log.lines().size(), 1U);
}
