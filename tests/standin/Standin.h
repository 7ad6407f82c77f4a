// SPDX-License-Identifier: MIT
/// \file Standin.h
/// A runtime library that stands in for the real one: it has the real one's file name and hands every call
/// on, but plays a script (which providers there are, what fails) and keeps a record of what happened.
///
/// A program finds it by lying in one folder with it; the real runtime lies one folder above.
#ifndef TONWERK_TESTS_STANDIN_STANDIN_H
#define TONWERK_TESTS_STANDIN_STANDIN_H

#include <map>
#include <set>
#include <string>
#include <vector>

#include "inference/OrtApi.h"

/// Script and record of the stand-in runtime of this process. Assign `Standin{}` to start afresh.
struct Standin
{
    /// What GetExecutionProviderApi gives for DirectML.
    enum class DirectMLTable
    {
        Own,     ///< a table whose append does nothing, or fails if "AppendDML" is in `failing`
        Missing, ///< success, but no table
        Real     ///< the real runtime's answer, as it is
    };

    // The script.

    std::vector<std::string> providers{"CPUExecutionProvider"};
    DirectMLTable directML = DirectMLTable::Own;
    /// What returns a failing status with the text "stand-in: NAME fails": functions, the appends
    /// "AppendDML", "AppendCUDA" and "AppendROCM", creations of session options, counted from "options1", and
    /// of sessions, counted from "session1", and single runs, counted from "run1".
    std::set<std::string> failing;

    // The record.

    /// The calls that make and configure sessions and run them, in order, with what was asked for. Sessions
    /// are called by the number of the attempt that made them. A run lists its tensors with their shapes,
    /// flags with their values.
    std::vector<std::string> calls;
    /// Objects handed out by kind ("environment", "session", "session options", "status"), and those of them
    /// that were not given back yet.
    std::map<std::string, int> created;
    std::map<std::string, int> alive;
    int optionsAttempts = 0;
    int sessionAttempts = 0;
    int runAttempts = 0;
};

/// What the stand-in's OrtGetApiBase returns the head of: that is how a test gets hold of script and record.
struct StandinBase
{
    OrtApiBase base;
    Standin* standin;
};

#endif // TONWERK_TESTS_STANDIN_STANDIN_H
