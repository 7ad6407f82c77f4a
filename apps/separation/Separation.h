// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_SEPARATION_H
#define TONWERK_APPS_SEPARATION_SEPARATION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "audio/SongSource.h"
#include "audio/StemSink.h"
#include "separation/Model.h"
#include "separation/SeparationObserver.h"
#include "separation/StemStream.h"
#include "separation/Tracks.h"

namespace tonwerk::app
{

/// What is made of a song, and how.
struct SeparationSettings
{
    const std::vector<Track>& tracks;
    const Quality& quality;
};

/// Facts about a finished separation.
struct SeparationResult
{
    /// Samples per channel of the song, and so of each track.
    std::uint64_t frames;
    /// Length of the song.
    double audioSeconds;
    /// Time to decode, separate and write the song, without loading the model.
    double processingSeconds;
    /// Largest absolute value of six stems + residual - input, 1 being full scale.
    double nullPeak;
    /// Samples of the song that were NaN or infinite.
    std::uint64_t nonFiniteSamples;
    /// The library's warnings during the separation.
    std::vector<std::string> log;
};

/// Streams one song through the library and writes its tracks. Its memory does not grow with the song.
class Separation
{
public:
    /// All references must outlive this object. The model must be used for one song at a time: its log is.
    /// \param observers see the song, its stems and its tracks; not null
    /// \throws Failure if the library refuses
    Separation(std::shared_ptr<Model> model, SongSource& song, SeparationSettings settings, StemSink& sink,
               std::vector<SeparationObserver*> observers);

    /// Called after every block with the fraction done and the seconds of audio processed.
    using Progress = std::function<void(double fraction, double audioSeconds)>;

    /// Separates the whole song.
    /// \throws Failure if the song cannot be read, separated or written, or if a run of the model fails, where
    ///         the library alone would go on
    /// \throws Interrupted if the user asks to stop
    SeparationResult run(const Progress& progress);

private:
    bool processBlock();
    void take(const StemStream::Stems& stems);
    void checkLibrary();
    void checkFinite(const StemStream::Stems& stems) const;
    void checkLength() const;
    double seconds(std::uint64_t frames) const;

    std::shared_ptr<Model> model;
    StemStream stream;
    SongSource& source;
    StemSink& sink;
    std::vector<SeparationObserver*> observers;
    TrackMixer mixer;
    std::vector<std::string> logged;
    std::vector<float> block;
    std::uint64_t framesReturned = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_SEPARATION_H
