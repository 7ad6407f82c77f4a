// SPDX-License-Identifier: MIT
#include "cli/ProgressDisplay.h"

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <string>

#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

constexpr std::size_t barWidth = 30;
constexpr int stepPercent = 10;

int wholePercent(double fraction)
{
    return static_cast<int>(std::floor(100.0 * fraction));
}

} // namespace

ProgressDisplay::ProgressDisplay(bool onTerminal) : terminal(onTerminal) {}

ProgressDisplay::~ProgressDisplay()
{
    endLine();
}

void ProgressDisplay::endLine()
{
    if (barIsShown)
        std::fputc('\n', stderr);
    barIsShown = false;
}

void ProgressDisplay::update(double fraction, double audioSeconds)
{
    const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
    if (fraction <= 0.0 || elapsed <= 0.0)
        return;
    const double left = elapsed * (1.0 - fraction) / fraction;
    const double speed = audioSeconds / elapsed;
    if (terminal)
        drawBar(fraction, left, speed);
    else
        printStep(fraction, left, speed);
}

void ProgressDisplay::drawBar(double fraction, double secondsLeft, double speed)
{
    const auto filled = static_cast<std::size_t>(fraction * static_cast<double>(barWidth));
    const std::string bar = std::string(filled, '#') + std::string(barWidth - filled, ' ');
    // The blanks at the end erase the rest of a longer line.
    std::fprintf(stderr, "\r[%s] %3d %%, %s left, %.1f x real time    ", bar.c_str(), wholePercent(fraction),
                 asClock(secondsLeft).c_str(), speed);
    barIsShown = true;
}

void ProgressDisplay::printStep(double fraction, double secondsLeft, double speed)
{
    const int step = wholePercent(fraction) / stepPercent;
    if (step == lastStep)
        return;
    lastStep = step;
    std::fprintf(stderr, "%d %%, %s left, %.1f x real time\n", step * stepPercent,
                 asClock(secondsLeft).c_str(), speed);
}

} // namespace tonwerk::app
