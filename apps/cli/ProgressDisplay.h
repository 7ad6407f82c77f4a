// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_CLI_PROGRESSDISPLAY_H
#define TONWERK_APPS_CLI_PROGRESSDISPLAY_H

#include <chrono>

namespace tonwerk::app
{

/// Shows on standard error how far the work is: on a terminal a bar with the time left and the speed,
/// elsewhere a line per 10 %.
class ProgressDisplay
{
public:
    /// Starts the clock.
    explicit ProgressDisplay(bool onTerminal);

    /// Ends the bar's line, if it is shown.
    ~ProgressDisplay();

    ProgressDisplay(const ProgressDisplay&) = delete;
    ProgressDisplay& operator=(const ProgressDisplay&) = delete;

    /// \param fraction of the work that is done, from 0 to 1
    /// \param audioSeconds of sound that have been worked on, for the speed
    void update(double fraction, double audioSeconds);

    /// Leaves the line of the bar to somebody else; the next update draws it anew.
    void endLine();

private:
    using Clock = std::chrono::steady_clock;

    void drawBar(double fraction, double secondsLeft, double speed);
    void printStep(double fraction, double secondsLeft, double speed);

    bool terminal;
    Clock::time_point start = Clock::now();
    int lastStep = 0;
    bool barIsShown = false;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_CLI_PROGRESSDISPLAY_H
