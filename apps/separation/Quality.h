// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_QUALITY_H
#define TONWERK_APPS_SEPARATION_QUALITY_H

#include <string>

namespace tonwerk::app
{

/// How much work a song is worth: a preset of the library, by name and numbers. The numbers are those of
/// tonwerk_stream_options.
struct Quality
{
    std::string name;
    unsigned step;
    unsigned lookahead;
    unsigned blend;

    /// Newest rows of its window that a model must compute, as tonwerk_context_info counts them.
    unsigned rows() const { return step + lookahead + blend + 5; }
};

/// What is taken if nobody says otherwise: no joins that are heard.
inline constexpr const char* defaultQuality = "smooth";

/// The preset of this name.
/// \throws UsageError if there is none
Quality qualityNamed(const std::string& name);

/// The names of all presets as text: "live, normal, ...".
std::string listOfQualities();

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_QUALITY_H
