// SPDX-License-Identifier: MIT
#include "tools/Findings.h"

#include <utility>

#include "system/Text.h"

namespace tonwerk::app
{

Findings::Findings(std::string errorName, std::FILE* output) : errorName(std::move(errorName)), stream(output)
{
}

// Flushed, because a library may crash the process.
void Findings::add(const std::string& label, const std::string& text) const
{
    std::fprintf(stream, "%-10s %s\n", label.c_str(), printable(text).c_str());
    std::fflush(stream);
}

void Findings::addPass(const std::string& sentence) const
{
    add("ok", sentence);
}

void Findings::addWarning(const std::string& sentence) const
{
    add("warning", sentence);
}

void Findings::addError(const std::string& sentence)
{
    ++count;
    add(errorName, sentence);
}

std::string Findings::countText() const
{
    return std::to_string(count) + ' ' + errorName + (count == 1 ? "" : "s");
}

} // namespace tonwerk::app
