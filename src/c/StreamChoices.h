// SPDX-License-Identifier: MIT
#ifndef TONWERK_C_STREAMCHOICES_H
#define TONWERK_C_STREAMCHOICES_H

#include <cstddef>
#include <string>

#include "c/Presets.h"
#include "pipeline/RunGeometry.h"
#include "tonwerk/tonwerk_c.h"

namespace tonwerk::c
{

/// Reads a tonwerk_stream_options or its head.
/// \param record  may be null: all stems
/// \param options receives the fields that both sides know; the others stay as they are
/// \return null, or what is wrong with it
const char* takeStreamOptions(const void* record, tonwerk_stream_options& options) noexcept;

/// Works out the geometry that the options ask for.
/// \param rows     newest frames of a run that the model computes
/// \param ordinary that of options which ask for none
/// \return empty, or what is wrong with the options
std::string chooseGeometry(const tonwerk_stream_options& options, std::size_t rows, const Preset& ordinary,
                           RunGeometry& geometry);

} // namespace tonwerk::c

#endif // TONWERK_C_STREAMCHOICES_H
