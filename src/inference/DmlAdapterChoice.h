// SPDX-License-Identifier: MIT
#ifndef TONWERK_INFERENCE_DMLADAPTERCHOICE_H
#define TONWERK_INFERENCE_DMLADAPTERCHOICE_H

#include <cstdint>
#include <memory>
#include <string>

/// What the system tells of one graphics adapter.
struct AdapterDescription
{
    std::u16string name;        ///< UTF-16
    std::uint32_t vendorId = 0; ///< PCI vendor
    std::uint32_t flags = 0;    ///< DXGI_ADAPTER_FLAG bits
};

/// The system's list of graphics adapters. Every operation returns an HRESULT; negative values as a signed
/// number are failures.
class IAdapterList
{
public:
    IAdapterList() = default;
    IAdapterList(const IAdapterList&) = delete;
    IAdapterList& operator=(const IAdapterList&) = delete;
    virtual ~IAdapterList() = default;

    /// Opens the list; called once, before everything else.
    virtual std::uint32_t open() = 0;

    /// Makes the adapter at `index` the current one, in place of the one before.
    virtual std::uint32_t select(std::uint32_t index) = 0;

    /// Describes the current adapter.
    virtual std::uint32_t describe(AdapterDescription& description) = 0;
};

/// The adapters of this machine.
std::unique_ptr<IAdapterList> systemAdapters();

/// The index of the adapter that DirectML should use: the first hardware adapter of NVIDIA, else the first of
/// AMD, else 0. Never fails: trouble with the list is logged and answered with what is known.
std::int32_t selectDmlAdapterIndex(IAdapterList& adapters);

/// The same for the adapters of this machine.
std::int32_t selectDmlAdapterIndex();

#endif // TONWERK_INFERENCE_DMLADAPTERCHOICE_H
