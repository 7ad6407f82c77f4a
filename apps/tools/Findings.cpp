#include "tools/Findings.h"

#include <cstdio>
#include <utility>

namespace tonwerk::app
{

Findings::Findings(std::string objection) : objectionName(std::move(objection)) {}

// Flushed, because libraries write to the same place in their own way, and may end the process.
void Findings::tell(const std::string& name, const std::string& text) const
{
    std::printf("%-10s %s\n", name.c_str(), text.c_str());
    std::fflush(stdout);
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
