// SPDX-License-Identifier: MIT
#include "tools/Findings.h"

#include <utility>

namespace tonwerk::app
{

Findings::Findings(std::string objection, std::FILE* output)
    : objectionName(std::move(objection)), stream(output)
{
}

// Flushed, because a library may end the process.
void Findings::tell(const std::string& name, const std::string& text) const
{
    std::fprintf(stream, "%-10s %s\n", name.c_str(), text.c_str());
    std::fflush(stream);
}

void Findings::approve(const std::string& sentence) const
{
    tell("ok", sentence);
}

void Findings::warn(const std::string& sentence) const
{
    tell("warning", sentence);
}

void Findings::object(const std::string& sentence)
{
    ++count;
    tell(objectionName, sentence);
}

std::string Findings::countText() const
{
    return std::to_string(count) + ' ' + objectionName + (count == 1 ? "" : "s");
}

} // namespace tonwerk::app
