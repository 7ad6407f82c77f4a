#ifndef TONWERK_APPS_SEPARATION_H
#define TONWERK_APPS_SEPARATION_H

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <tonwerk/StreamFeeder.h>
#include <tonwerk/TonwerkProc.h>

#include "NullTest.h"
#include "SongReader.h"
#include "SongReport.h"
#include "StemFolder.h"
#include "Stems.h"

namespace tonwerk::app
{

/// What a separation has shown.
struct SeparationResult
{
    /// Length of the song.
    double audioSeconds;
    /// Time that it took to decode, separate and write it, without loading the model.
    double processingSeconds;
    /// Largest absolute value of six stems + residual - input, 1 being full scale.
    double nullPeak;
    /// Samples of the song that were NaN or infinite.
    std::uint64_t nonFiniteSamples;
};

/// Streams one song through the library and into its files. Takes as much memory for a long song as for a
/// short one.
class Separation
{
public:
    /// All references must outlive this object.
    /// \param wanted the stems to ask of the model
    /// \param report watches the song and its stems, if there is one
    Separation(std::shared_ptr<InferenceContext> model, SongReader& song, StemFolder& stems,
               const StemSet& wanted, SongReport* report);

    /// Called after every block with the fraction that is done and the seconds of sound that have been worked
    /// on.
    using Progress = std::function<void(double fraction, double audioSeconds)>;

    /// Separates the whole song and keeps its files.
    /// \throws Failure if the song cannot be read, separated or written
    /// \throws Interrupted if the user asks to stop
    SeparationResult run(const Progress& progress);

private:
    bool processBlock();
    void take(const StreamFeeder::Stems& stems);
    void checkLength() const;
    double seconds(std::uint64_t frames) const;

    StreamFeeder feeder;
    SongReader& reader;
    StemFolder& folder;
    SongReport* report;
    NullTest nullTest;
    std::vector<float> block;
    std::uint64_t framesReturned = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_H
