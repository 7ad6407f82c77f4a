// SPDX-License-Identifier: MIT
#include "inference/DmlAdapterChoice.h"

namespace
{

constexpr std::uint32_t notImplemented = 0x80004001; // E_NOTIMPL

/// There is no DXGI here. A runtime that nevertheless offers DirectML gets adapter 0.
class NoAdapters : public IAdapterList
{
public:
    std::uint32_t open() override { return notImplemented; }
    std::uint32_t select(std::uint32_t /*index*/) override { return notImplemented; }
    std::uint32_t describe(AdapterDescription& /*description*/) override { return notImplemented; }
};

} // namespace

std::unique_ptr<IAdapterList> systemAdapters()
{
    return std::make_unique<NoAdapters>();
}
