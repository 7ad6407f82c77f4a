// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_MODEL_H
#define TONWERK_APPS_SEPARATION_MODEL_H

#include <cstddef>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <tonwerk/tonwerk_c.h>

#include "separation/LibraryLog.h"

namespace tonwerk::app
{

/// The bytes of a model's file.
/// \throws Failure if the file is empty or cannot be read
std::vector<char> readModel(const std::filesystem::path& path);

/// A model in the library, with the library's log of it. Nothing of it is printed.
class Model
{
public:
    /// \param bytes   of the model's file; read during the call only
    /// \param name    for the sentence that says why it cannot be used
    /// \param key     scrambling key, empty for a plain model
    /// \param threads that compute a run, the calling one among them; 0: one for each processor
    /// \throws Failure if the library refuses it
    Model(std::span<const char> bytes, const std::string& name, const std::string& key, unsigned threads);

    /// For its streams, which must not outlive this object.
    tonwerk_context* context() const { return handle.get(); }

    /// What runs it, such as "CPU" or "DirectML".
    std::string provider() const;

    /// In Hz: what its streams must be fed with.
    unsigned sampleRate() const { return info.sample_rate; }

    LibraryLog& log() { return messages; }

private:
    struct Destroy
    {
        void operator()(tonwerk_context* context) const { tonwerk_context_destroy(context); }
    };

    LibraryLog messages; // the library writes to it while the context is being destroyed, too
    std::unique_ptr<tonwerk_context, Destroy> handle;
    tonwerk_context_info info{};
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_MODEL_H
