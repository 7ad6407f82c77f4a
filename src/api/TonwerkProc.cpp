// SPDX-License-Identifier: MIT
#include "tonwerk/TonwerkProc.h"

#include <utility>

#include "api/TonwerkProcImpl.h"

namespace tonwerk
{

TonwerkProc::TonwerkProc(std::shared_ptr<InferenceContext> context, TonwerkProcConfig config)
    : impl(new TonwerkProcImpl(std::move(context), config))
{
}

TonwerkProc::~TonwerkProc()
{
    delete impl;
}

// Hosts rely on the binary interface, in which this handle has always been copied pointer for pointer.
TonwerkProc& TonwerkProc::operator=(const TonwerkProc& other) = default;

std::uint64_t TonwerkProc::maxInputSize() const
{
    return impl->maxInputSize();
}

std::vector<std::vector<float>> TonwerkProc::process(const std::vector<float>& input, bool eof)
{
    return impl->process(input, eof);
}

} // namespace tonwerk
