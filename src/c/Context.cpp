// SPDX-License-Identifier: MIT
#include "c/Context.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <sstream>
#include <string_view>
#include <utility>
#include <vector>

#include "api/ModelScrambling.h"
#include "c/Providers.h"
#include "common/Stems.h"
#include "tonwerk/StreamGeometry.h"

namespace tonwerk::c
{

namespace
{

constexpr std::uint32_t ordinarySampleRate = 44100;

static_assert(stemNames[TONWERK_VOCALS] == "vocals" && stemNames[TONWERK_DRUM] == "drum" &&
              stemNames[TONWERK_PIANO] == "piano" &&
              stemNames[TONWERK_ACOUSTIC_GUITAR] == "acoustic_guitar" &&
              stemNames[TONWERK_ELECTRIC_GUITAR] == "electric_guitar" && stemNames[TONWERK_BASS] == "bass" &&
              stemNames[TONWERK_RESIDUAL] == "residual" && stemNames[TONWERK_MIX] == "mix" &&
              stemNames.size() == TONWERK_STEM_COUNT);
static_assert(TONWERK_ALL_STEMS == (1U << modelStemCount) - 1);

std::shared_ptr<ISharedModel> load(const void* model, std::size_t size, const std::string& key,
                                   const SessionChoices& choices)
{
    if (key.empty())
        return makeSharedModel(model, size, modelOutputs(), choices);
    const ScrambledCopy plain(model, size, key);
    return makeSharedModel(plain.data(), plain.size(), modelOutputs(), choices);
}

/// An entry of a list such as "vocals; bass".
std::string_view withoutBlanks(std::string_view entry)
{
    const std::size_t first = std::min(entry.find_first_not_of(' '), entry.size());
    return entry.substr(first, entry.find_last_not_of(' ') + 1 - first);
}

} // namespace

Context::Context(const void* model, std::size_t size, const std::string& key, const SessionChoices& choices,
                 std::shared_ptr<const LogTarget> target)
    : target(std::move(target)), choices(choices), modelSize(size)
{
    addLogTarget(this->target);
    const LogScope scope(this->target);
    const std::uint64_t before = residentBytes();
    shared = load(model, size, key, choices);
    memory = grownSince(before);
}

Context::~Context()
{
    const LogScope scope(target);
    shared.reset();
}

std::uint64_t Context::grownSince(std::uint64_t before)
{
    const std::uint64_t now = residentBytes();
    return now > before ? now - before : 0;
}

const char* Context::metadata(const char* key) const
{
    const auto& entries = shared->facts().metadata;
    const auto found = entries.find(key);
    return found != entries.end() ? found->second.c_str() : nullptr;
}

std::uint32_t Context::number(const char* key, std::uint32_t otherwise) const
{
    const char* text = metadata(key);
    std::uint32_t value = 0;
    if (text == nullptr || std::from_chars(text, text + std::strlen(text), value).ec != std::errc() ||
        value == 0)
        return otherwise;
    return value;
}

std::size_t Context::rows() const
{
    return number("tonwerk.rows", geometry::segmentFrames);
}

// A model that does not say which stems it gives is taken to give all.
std::uint32_t Context::stems() const
{
    const char* text = metadata("tonwerk.stems");
    if (text == nullptr)
        return TONWERK_ALL_STEMS;
    std::uint32_t bits = 0;
    std::istringstream names(text);
    for (std::string entry; std::getline(names, entry, ';');)
        for (std::size_t stem = 0; stem < modelStemCount; ++stem)
            if (withoutBlanks(entry) == stemNames.at(stem))
                bits |= std::uint32_t{1} << stem;
    return bits;
}

void Context::tell(tonwerk_context_info& info) const
{
    info.provider = providerOf(shared->facts().provider);
    info.threads = choices.threads;
    info.sample_rate = number("tonwerk.sample_rate", ordinarySampleRate);
    info.stems = stems();
    info.rows = static_cast<std::uint32_t>(rows());
    info.model_size = modelSize;
    info.memory = memory;
}

} // namespace tonwerk::c
