// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_CLI_PROGRESSDISPLAY_H
#define TONWERK_APPS_CLI_PROGRESSDISPLAY_H

#include <chrono>

namespace tonwerk::app
{

/// Shows the progress on standard error: on a terminal a bar with time left and speed, elsewhere a line per
/// 10 %.
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
    /// \param audioSeconds length of the audio processed so far, for the speed
    void update(double fraction, double audioSeconds);

    /// Ends the bar's line, so that other text can follow. The next update draws a new bar.
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
