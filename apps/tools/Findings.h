// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_FINDINGS_H
#define TONWERK_APPS_TOOLS_FINDINGS_H

#include <cstdio>
#include <string>

namespace tonwerk::app
{

/// Prints what a tool finds as it finds it, one labelled line each, and counts the errors.
class Findings
{
public:
    /// \param errorName label of an error: "problem", "violation"
    /// \param output where the lines go; not owned
    explicit Findings(std::string errorName, std::FILE* output = stdout);

    /// Prints a fact, such as a version.
    void add(const std::string& label, const std::string& text) const;

    /// Prints a sentence about a check that passed.
    void addPass(const std::string& sentence) const;

    /// Prints a sentence about something that works but may not be intended.
    void addWarning(const std::string& sentence) const;

    /// Prints a sentence about something that is wrong, and counts it.
    void addError(const std::string& sentence);

    /// The number of errors so far.
    unsigned errors() const { return count; }

    /// The number of errors so far as text: "1 problem", "2 problems".
    std::string countText() const;

private:
    std::string errorName;
    std::FILE* stream;
    unsigned count = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_FINDINGS_H
