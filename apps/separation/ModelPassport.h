// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SEPARATION_MODELPASSPORT_H
#define TONWERK_APPS_SEPARATION_MODELPASSPORT_H

#include <filesystem>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "separation/Stems.h"

namespace tonwerk::app
{

/// What a model's file says of its network: who made it, under which licence, what it really gives. The
/// entries are metadata of the ONNX file under names that begin with "tonwerk."; tonwerk-convert writes them.
/// They are claims of the file, which nobody has checked.
class ModelPassport
{
public:
    /// The frames of a model's window.
    static constexpr unsigned allRows = 256;

    /// No passport.
    ModelPassport() = default;

    /// Reads the passport of a plain ONNX file's bytes; what cannot be read is left out. Texts are shortened,
    /// and have no control characters.
    explicit ModelPassport(std::string_view model);

    /// Whether there is one.
    bool exists() const { return entries.contains("name"); }

    /// An entry such as "name", "license", "source", "authors" or "notes", empty if it is not there.
    std::string text(const std::string& entry) const;

    /// The stems that the model really gives; all six if the passport does not say.
    StemSet stems() const;

    /// How many of the newest rows of its window the model computes.
    unsigned rows() const;

    /// All entries for people, as label and text.
    std::vector<std::pair<std::string, std::string>> lines() const;

private:
    std::map<std::string, std::string> entries;
};

/// The passport of a model.
/// \param model bytes of its file
/// \param key scrambling key of the file, empty for a plain one
ModelPassport readPassport(std::span<const char> model, const std::string& key);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SEPARATION_MODELPASSPORT_H
