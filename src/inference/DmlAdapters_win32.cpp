// SPDX-License-Identifier: MIT
#include "inference/DmlAdapterChoice.h"

#include <memory>

#include <dxgi.h>

namespace
{

struct ReleaseInterface
{
    void operator()(IUnknown* object) const { object->Release(); }
};

template <typename Interface>
using InterfacePointer = std::unique_ptr<Interface, ReleaseInterface>;

class DxgiAdapters : public IAdapterList
{
public:
    std::uint32_t open() override
    {
        void* opened = nullptr;
        const HRESULT result = CreateDXGIFactory1(__uuidof(IDXGIFactory1), &opened);
        if (SUCCEEDED(result))
            factory.reset(static_cast<IDXGIFactory1*>(opened));
        return static_cast<std::uint32_t>(result);
    }

    std::uint32_t select(std::uint32_t index) override
    {
        adapter.reset();
        IDXGIAdapter1* selected = nullptr;
        const HRESULT result = factory->EnumAdapters1(index, &selected);
        if (SUCCEEDED(result))
            adapter.reset(selected);
        return static_cast<std::uint32_t>(result);
    }

    std::uint32_t describe(AdapterDescription& description) override
    {
        DXGI_ADAPTER_DESC1 found{};
        const HRESULT result = adapter->GetDesc1(&found);
        description.name.clear();
        for (const wchar_t unit : found.Description)
        {
            if (unit == L'\0')
                break;
            description.name += static_cast<char16_t>(unit);
        }
        description.vendorId = found.VendorId;
        description.flags = found.Flags;
        return static_cast<std::uint32_t>(result);
    }

private:
    InterfacePointer<IDXGIFactory1> factory;
    InterfacePointer<IDXGIAdapter1> adapter;
};

} // namespace

std::unique_ptr<IAdapterList> systemAdapters()
{
    return std::make_unique<DxgiAdapters>();
}
