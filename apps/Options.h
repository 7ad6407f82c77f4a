#ifndef TONWERK_APPS_OPTIONS_H
#define TONWERK_APPS_OPTIONS_H

#include <filesystem>
#include <optional>
#include <string>

#include "Stems.h"

namespace tonwerk::app
{

/// What the command line asks for.
struct Options
{
    std::filesystem::path song;
    std::filesystem::path outputFolder;
    std::filesystem::path model;
    /// Scrambling key of the model, empty for a plain one.
    std::string key;
    /// The stems to write.
    StemSet stems;
    /// Whether to write a page that shows and plays the stems.
    bool report;
};

/// Reads the command line, on Windows from the system, which has it in Unicode.
/// \return nothing if the help text or the version was asked for, which has then been printed
/// \throws UsageError if the command line makes no sense
std::optional<Options> readOptions(int argc, char** argv);

} // namespace tonwerk::app

#endif // TONWERK_APPS_OPTIONS_H
