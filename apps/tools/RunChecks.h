// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_RUNCHECKS_H
#define TONWERK_APPS_TOOLS_RUNCHECKS_H

#include <vector>

#include "tools/Findings.h"
#include "tools/NetworkRunner.h"

namespace tonwerk::app
{

/// Runs a network and checks its results.
class RunChecks
{
public:
    /// \param session of a network that keeps to the contract
    RunChecks(Ort::Session& session, Findings& findings);

    /// Makes all checks, in about a dozen runs, and adds the results to the findings.
    void makeAll();

private:
    bool checkNumbers();
    void checkEquality();
    void checkSilence();
    void checkFlags();
    void checkLevels() const;
    void addSpeed() const;
    double timedRun();

    NetworkRunner runner;
    Findings& findings;
    std::vector<float> input;
    NetworkRunner::Results reference; ///< of the first run
    std::vector<double> seconds;      ///< of the later runs with the same input
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_RUNCHECKS_H
