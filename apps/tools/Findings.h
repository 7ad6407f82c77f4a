// SPDX-License-Identifier: MIT
#ifndef TONWERK_APPS_TOOLS_FINDINGS_H
#define TONWERK_APPS_TOOLS_FINDINGS_H

#include <cstdio>
#include <string>

namespace tonwerk::app
{

/// What a tool finds out, told as it comes: a line each, under a name.
class Findings
{
public:
    /// \param objection what to call what is wrong: "problem", "violation"
    /// \param output where to tell it; not owned
    explicit Findings(std::string objection, std::FILE* output = stdout);

    /// A fact, such as a version, under its name.
    void tell(const std::string& name, const std::string& text) const;

    /// Something that is as it should be, as a sentence.
    void approve(const std::string& sentence) const;

    /// Something that works but may not be meant so, as a sentence.
    void warn(const std::string& sentence) const;

    /// Something that is wrong, as a sentence.
    void object(const std::string& sentence);

    /// How many things are wrong so far.
    unsigned objections() const { return count; }

    /// How many things are wrong so far, as text: "1 problem", "2 problems".
    std::string countText() const;

private:
    std::string objectionName;
    std::FILE* stream;
    unsigned count = 0;
};

} // namespace tonwerk::app

#endif // TONWERK_APPS_TOOLS_FINDINGS_H
