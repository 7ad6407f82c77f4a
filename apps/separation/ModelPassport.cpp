// SPDX-License-Identifier: MIT
#include "separation/ModelPassport.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>

#include "api/ModelScrambling.h"
#include "common/MessageReader.h"
#include "separation/Model.h"

namespace tonwerk::app
{

namespace
{

constexpr std::string_view prefix = "tonwerk.";
constexpr std::size_t mostEntries = 100;
constexpr std::size_t longestText = 2000;

// Numbers of fields in onnx.proto.
constexpr std::uint32_t metadataField = 14;
constexpr std::uint32_t keyField = 1;
constexpr std::uint32_t valueField = 2;

/// One line, whatever the file says. A character of several bytes is not cut.
std::string printable(std::string_view text)
{
    std::size_t length = std::min(text.size(), longestText);
    while (length < text.size() && length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80U)
        --length;
    std::string line(text.substr(0, length));
    std::replace_if(
        line.begin(), line.end(),
        [](unsigned char character) { return character < ' ' || character == 0x7F; }, ' ');
    return line;
}

/// The entries of a list with semicolons.
std::vector<std::string> listOf(const std::string& text)
{
    std::vector<std::string> entries;
    for (std::size_t place = 0; place < text.size();)
    {
        const std::size_t end = std::min(text.find(';', place), text.size());
        const std::size_t first = text.find_first_not_of(' ', place);
        if (first < end)
            entries.push_back(text.substr(first, text.find_last_not_of(' ', end - 1) + 1 - first));
        place = end + 1;
    }
    return entries;
}

} // namespace

// A session of the runtime would give the metadata too, but loading a network takes a second, and a field of
// it can simply be skipped.
ModelPassport::ModelPassport(std::string_view model)
{
    for (MessageReader fields(model); fields.next() && entries.size() < mostEntries;)
    {
        if (fields.field() != metadataField)
            continue;
        std::string_view key;
        std::string_view value;
        for (MessageReader entry(fields.bytes()); entry.next();)
        {
            if (entry.field() == keyField)
                key = entry.bytes();
            else if (entry.field() == valueField)
                value = entry.bytes();
        }
        if (key.starts_with(prefix))
            entries[printable(key.substr(prefix.size()))] = printable(value);
    }
}

std::string ModelPassport::text(const std::string& entry) const
{
    const auto found = entries.find(entry);
    return found == entries.end() ? "" : found->second;
}

StemSet ModelPassport::stems() const
{
    StemSet stems;
    const std::vector<std::string> named = listOf(text("stems"));
    for (std::size_t stem = 0; stem < modelStemCount; ++stem)
        stems.set(stem,
                  named.empty() || std::find(named.begin(), named.end(), stemNames.at(stem)) != named.end());
    return stems;
}

unsigned ModelPassport::rows() const
{
    const std::string given = text("rows");
    unsigned rows = 0;
    const auto [end, failure] = std::from_chars(given.data(), given.data() + given.size(), rows);
    const bool good = failure == std::errc() && end == given.data() + given.size();
    return good && rows > 0 ? std::min(rows, allRows) : allRows;
}

std::vector<std::pair<std::string, std::string>> ModelPassport::lines() const
{
    static const std::array<std::pair<const char*, const char*>, 10> labels{{{"name", "network"},
                                                                             {"license", "licence"},
                                                                             {"source", "source"},
                                                                             {"authors", "authors"},
                                                                             {"training_data", "data"},
                                                                             {"stems", "stems"},
                                                                             {"sample_rate", "rate"},
                                                                             {"rows", "rows"},
                                                                             {"converted_from", "made from"},
                                                                             {"notes", "remarks"}}};
    std::vector<std::pair<std::string, std::string>> lines;
    for (const auto& [entry, label] : labels)
        if (!text(entry).empty())
            lines.emplace_back(label, text(entry));
    return lines;
}

ModelPassport readPassport(std::span<const char> model, const std::string& key)
{
    if (key.empty())
        return ModelPassport({model.data(), model.size()});
    const ScrambledCopy plain(model.data(), model.size(), key);
    return ModelPassport({static_cast<const char*>(plain.data()), plain.size()});
}

} // namespace tonwerk::app
