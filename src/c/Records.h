// SPDX-License-Identifier: MIT
/// \file Records.h
/// Records across the border begin with their size, by which an older or newer caller is told from one of
/// this version.
#ifndef TONWERK_C_RECORDS_H
#define TONWERK_C_RECORDS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace tonwerk::c
{

/// Copies a caller's record.
/// \param given       the record; its first four bytes are its size
/// \param known       receives the fields that both sides know; the others stay as they are
/// \param knownSize   size of `known`
/// \param olderSizes  sizes that the record had in earlier versions
/// \return null, or what is wrong with the size or with the fields that only the caller knows, which must be
///         zero
const char* takeRecord(const void* given, void* known, std::size_t knownSize,
                       std::initializer_list<std::size_t> olderSizes) noexcept;

/// Copies a record to a caller, as much of it as he knows; what only he knows becomes zero. His size stays.
/// \return null, or what is wrong with the size
const char* giveRecord(const void* known, std::size_t knownSize, void* target) noexcept;

} // namespace tonwerk::c

#endif // TONWERK_C_RECORDS_H
