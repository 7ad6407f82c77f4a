// SPDX-License-Identifier: MIT
/// \file Handles.h
/// What is behind the handles of the C interface.
#ifndef TONWERK_C_HANDLES_H
#define TONWERK_C_HANDLES_H

#include <memory>

#include "c/Context.h"
#include "c/Stream.h"
#include "tonwerk/tonwerk_c.h"

struct tonwerk_context
{
    std::shared_ptr<tonwerk::c::Context> shared;
};

struct tonwerk_stream : tonwerk::c::Stream
{
    using Stream::Stream;
};

#endif // TONWERK_C_HANDLES_H
