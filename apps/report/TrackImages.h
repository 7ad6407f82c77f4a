// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_REPORT_TRACKIMAGES_H
#define TONWERK_APPS_REPORT_TRACKIMAGES_H

#include <span>

#include "report/Spectrogram.h"
#include "report/Waveform.h"

namespace tonwerk::app
{

/// Collects what the images of one track need, while the track streams by.
struct TrackImages
{
    explicit TrackImages(unsigned sampleRate) : spectrogram(sampleRate) {}

    /// Takes the next interleaved stereo samples.
    void feed(std::span<const float> stereo)
    {
        waveform.feed(stereo);
        spectrogram.feed(stereo);
    }

    Waveform waveform;
    Spectrogram spectrogram;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_REPORT_TRACKIMAGES_H
