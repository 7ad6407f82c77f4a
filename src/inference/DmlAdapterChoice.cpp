// SPDX-License-Identifier: MIT
#include "inference/DmlAdapterChoice.h"

#include <algorithm>
#include <vector>

#include "common/Log.h"

namespace
{

constexpr const char* functionName = "selectDmlAdapterIndex";

constexpr std::uint32_t notFound = 0x887A0002; // DXGI_ERROR_NOT_FOUND
constexpr std::uint32_t softwareFlag = 2;      // DXGI_ADAPTER_FLAG_SOFTWARE
constexpr std::uint32_t vendorNvidia = 0x10DE;
constexpr std::uint32_t vendorAti = 0x1002;
constexpr std::uint32_t vendorAmd = 0x1022;

struct Adapter
{
    std::uint32_t index;
    std::uint32_t vendorId;
    bool software;
    std::string name;
};

bool failed(std::uint32_t result)
{
    return static_cast<std::int32_t>(result) < 0;
}

std::string toAscii(const std::u16string& text)
{
    std::string ascii;
    for (const char16_t unit : text)
        ascii += unit < 128 ? static_cast<char>(unit) : '?';
    return ascii;
}

Adapter makeAdapter(std::uint32_t index, const AdapterDescription& description)
{
    Adapter adapter{index, description.vendorId, (description.flags & softwareFlag) != 0,
                    toAscii(description.name)};
    TONWERK_LOG_AS(functionName, info)
        << "[INFERENCE_onnx] DML adapter " << index << ": vendorId=" << adapter.vendorId
        << ", software=" << (adapter.software ? "true" : "false") << ", name=" << adapter.name;
    return adapter;
}

std::vector<Adapter> listAdapters(IAdapterList& list)
{
    std::vector<Adapter> adapters;
    for (std::uint32_t index = 0;; ++index)
    {
        const std::uint32_t selected = list.select(index);
        if (selected == notFound)
            break;
        if (failed(selected))
        {
            TONWERK_LOG_AS(functionName, warning) << "[INFERENCE_onnx] Failed to enumerate DXGI adapter "
                                                  << index << ", fallback search stops. HRESULT=" << selected;
            break;
        }
        AdapterDescription description;
        const std::uint32_t described = list.describe(description);
        if (failed(described))
        {
            TONWERK_LOG_AS(functionName, warning)
                << "[INFERENCE_onnx] Failed to read DXGI adapter description for index " << index
                << ". HRESULT=" << described;
            continue;
        }
        adapters.push_back(makeAdapter(index, description));
    }
    return adapters;
}

template <typename IsWanted>
const Adapter* firstHardware(const std::vector<Adapter>& adapters, IsWanted isWanted)
{
    const auto found =
        std::find_if(adapters.begin(), adapters.end(),
                     [&](const Adapter& adapter) { return !adapter.software && isWanted(adapter.vendorId); });
    return found == adapters.end() ? nullptr : &*found;
}

std::int32_t prefer(const char* vendor, const Adapter& adapter)
{
    TONWERK_LOG_AS(functionName, info) << "[INFERENCE_onnx] Prefer " << vendor << " DML adapter index "
                                       << adapter.index << " (" << adapter.name << ")";
    return static_cast<std::int32_t>(adapter.index);
}

} // namespace

std::int32_t selectDmlAdapterIndex()
{
    return selectDmlAdapterIndex(*systemAdapters());
}

std::int32_t selectDmlAdapterIndex(IAdapterList& list)
{
    const std::uint32_t opened = list.open();
    if (failed(opened))
    {
        TONWERK_LOG_AS(functionName, warning)
            << "[INFERENCE_onnx] Failed to create DXGI factory, fallback to DML adapter 0. HRESULT="
            << opened;
        return 0;
    }
    const std::vector<Adapter> adapters = listAdapters(list);
    if (const auto* nvidia =
            firstHardware(adapters, [](std::uint32_t vendor) { return vendor == vendorNvidia; }))
        return prefer("NVIDIA", *nvidia);
    if (const auto* amd = firstHardware(adapters, [](std::uint32_t vendor)
                                        { return vendor == vendorAti || vendor == vendorAmd; }))
        return prefer("AMD", *amd);
    TONWERK_LOG_AS(functionName, info)
        << "[INFERENCE_onnx] No NVIDIA or AMD DML adapter found, fallback to adapter index 0";
    return 0;
}
