// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_AUDIO_STEMFILES_H
#define TONWERK_APPS_AUDIO_STEMFILES_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/PcmEncoder.h"
#include "audio/StemSink.h"
#include "audio/StemWriter.h"
#include "system/OutputFolder.h"

namespace tonwerk::app
{

/// A song's tracks on disk: one WAV file per track, among the unfinished files of its folder.
class StemFiles : public StemSink
{
public:
    /// \param folder must outlive this object
    /// \param tracks names of the files, without extension
    /// \throws Failure if a file cannot be made
    StemFiles(const OutputFolder& folder, const std::vector<std::string>& tracks, unsigned channels,
              unsigned sampleRate, std::uint64_t expectedFrames);

    void write(const std::vector<std::vector<float>>& tracks) override;

    /// Completes and closes all files in this format.
    /// \param gain factor for fixed-point samples
    /// \throws Failure if that is not possible
    void finish(SampleFormat format, double gain);

private:
    std::vector<std::unique_ptr<StemWriter>> writers;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_AUDIO_STEMFILES_H
