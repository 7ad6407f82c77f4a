// SPDX-License-Identifier: MIT
/// \file StandinParts.h
/// What the stand-in's own sources share.
#ifndef TONWERK_TESTS_STANDIN_STANDINPARTS_H
#define TONWERK_TESTS_STANDIN_STANDINPARTS_H

#include "Standin.h"

/// The script and the record.
Standin& standin();

/// The real runtime's function table.
const OrtApi& realApi();

/// Put the stand-in's functions for one field into the table.
void patchProviders(OrtApi& table);
void patchSessions(OrtApi& table);

/// Appends to the record of calls.
void record(const std::string& call);

/// Counts an object handed out.
void create(const std::string& kind);

/// Counts an object given back; a null pointer is none.
void release(const std::string& kind, const void* object);

/// Counts a status that is handed out; null is none.
OrtStatus* counted(OrtStatus* status);

/// Counts the object that a successful call made, or the status of a failed one.
OrtStatus* made(const char* kind, OrtStatus* status);

/// A failing status with the text "stand-in: WHAT fails".
OrtStatus* failure(const std::string& what);

/// The failing status that the script wants from this function, or what `answer` gives.
template <typename Answer>
OrtStatus* unlessScripted(const std::string& function, Answer answer)
{
    return standin().failing.contains(function) ? failure(function) : answer();
}

#endif // TONWERK_TESTS_STANDIN_STANDINPARTS_H
