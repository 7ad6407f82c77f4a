// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_SYSTEM_TEXT_H
#define TONWERK_APPS_SYSTEM_TEXT_H

#include <filesystem>
#include <string>

namespace tonwerk::app
{

/// Converts UTF-8 to a path. All text inside the program is UTF-8, on every system.
std::filesystem::path toPath(const std::string& utf8);

/// A path as UTF-8 text.
std::string toText(const std::filesystem::path& path);

/// A path as UTF-8 text in quotation marks, for use in a sentence.
std::string quoted(const std::filesystem::path& path);

/// A text as one can print it on one line: characters that steer a terminal, end the line or turn the
/// direction of writing, and bytes that are no UTF-8, appear as their numbers (\u001B, \x9B).
std::string printable(const std::string& utf8);

/// Text of one or more lines, in JSON notation, with the same characters escaped as JSON does it.
std::string printableJson(const std::string& utf8);

/// A foreign message for use in a sentence: on one line, without the full stop at its end.
std::string asReason(const std::string& message);

/// Seconds as minutes and seconds ("3:07"), with hours if there are any ("1:02:03").
std::string asClock(double seconds);

} // namespace tonwerk::app

#endif // TONWERK_APPS_SYSTEM_TEXT_H
