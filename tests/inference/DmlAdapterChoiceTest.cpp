// SPDX-License-Identifier: MIT
#include "inference/DmlAdapterChoice.h"

#include <cstdint>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "support/LogCapture.h"

namespace
{

constexpr std::uint32_t notFound = 0x887A0002;
constexpr std::uint32_t software = 2;
constexpr std::uint32_t nvidia = 0x10DE;
constexpr std::uint32_t ati = 0x1002;
constexpr std::uint32_t amd = 0x1022;
constexpr std::uint32_t intel = 0x8086;

using Lines = std::vector<std::string>;

/// One entry of a list of adapters, with what asking for it returns.
struct Entry
{
    std::u16string name;
    std::uint32_t vendorId = 0;
    std::uint32_t flags = 0;
    std::uint32_t selected = 0;
    std::uint32_t described = 0;
};

class FakeAdapters : public IAdapterList
{
public:
    FakeAdapters(std::vector<Entry> entries, std::uint32_t opened)
        : entries(std::move(entries)), opened(opened)
    {
    }

    std::uint32_t open() override { return opened; }

    std::uint32_t select(std::uint32_t index) override
    {
        current = index;
        return index < entries.size() ? entries[index].selected : notFound;
    }

    std::uint32_t describe(AdapterDescription& description) override
    {
        const Entry& entry = entries.at(current);
        description = {entry.name, entry.vendorId, entry.flags};
        return entry.described;
    }

private:
    std::vector<Entry> entries;
    std::uint32_t opened;
    std::size_t current = 0;
};

std::int32_t choose(std::vector<Entry> entries, std::uint32_t opened = 0)
{
    FakeAdapters adapters(std::move(entries), opened);
    return selectDmlAdapterIndex(adapters);
}

struct Choice
{
    const char* name;
    std::vector<Entry> entries;
    std::int32_t index;
    Lines lines; ///< without what all lines begin with
};

const char* const fallback = "INFO No NVIDIA or AMD DML adapter found, fallback to adapter index 0";

const std::vector<Choice> choices{
    {"NoAdapters", {}, 0, {fallback}},
    {"NoneOfTheTwoVendors",
     {{u"Basic Render Driver", 0x1414, software}, {u"Grafik \u00E9\u20AC\U0001F600 X", intel}},
     0,
     {"INFO DML adapter 0: vendorId=5140, software=true, name=Basic Render Driver",
      "INFO DML adapter 1: vendorId=32902, software=false, name=Grafik ???? X", fallback}},
    {"NvidiaBehindAmd",
     {{u"Radeon", ati}, {u"Iris", intel}, {u"GeForce", nvidia}, {u"GeForce Two", nvidia}},
     2,
     {"INFO DML adapter 0: vendorId=4098, software=false, name=Radeon",
      "INFO DML adapter 1: vendorId=32902, software=false, name=Iris",
      "INFO DML adapter 2: vendorId=4318, software=false, name=GeForce",
      "INFO DML adapter 3: vendorId=4318, software=false, name=GeForce Two",
      "INFO Prefer NVIDIA DML adapter index 2 (GeForce)"}},
    {"SoftwareAdaptersOfTheVendors",
     {{u"Remote", nvidia, software}, {u"Remote", amd, software | 1}, {u"Radeon", amd, 1}},
     2,
     {"INFO DML adapter 0: vendorId=4318, software=true, name=Remote",
      "INFO DML adapter 1: vendorId=4130, software=true, name=Remote",
      "INFO DML adapter 2: vendorId=4130, software=false, name=Radeon",
      "INFO Prefer AMD DML adapter index 2 (Radeon)"}},
    {"AnAdapterWithoutDescription",
     {{u"GeForce", nvidia, 0, 0, 0x887A0005}, {u"Radeon", amd}},
     1,
     {"WARN Failed to read DXGI adapter description for index 0. HRESULT=2289696773",
      "INFO DML adapter 1: vendorId=4130, software=false, name=Radeon",
      "INFO Prefer AMD DML adapter index 1 (Radeon)"}},
    {"AFailingEnumeration",
     {{u"Radeon", ati}, {u"Lost", nvidia, 0, 0x80004005}, {u"GeForce", nvidia}},
     0,
     {"INFO DML adapter 0: vendorId=4098, software=false, name=Radeon",
      "WARN Failed to enumerate DXGI adapter 1, fallback search stops. HRESULT=2147500037",
      "INFO Prefer AMD DML adapter index 0 (Radeon)"}}};

/// The captured lines as they stand in the table.
Lines shortened(const Lines& lines)
{
    const std::string origin = "[selectDmlAdapterIndex] [INFERENCE_onnx] ";
    Lines result;
    for (std::string line : lines)
        if (const auto at = line.find(origin); at != std::string::npos)
            result.push_back(line.erase(at, origin.size()));
        else
            result.push_back(line);
    return result;
}

} // namespace

TEST(DmlAdapterChoice, PrefersHardwareOfNvidiaThenOfAmdAndLogsWhatItSees)
{
    for (const Choice& choice : choices)
    {
        const LogCapture log;
        EXPECT_EQ(choose(choice.entries), choice.index) << choice.name;
        EXPECT_EQ(shortened(log.lines()), choice.lines) << choice.name;
    }
}

TEST(DmlAdapterChoice, WithoutAListNothingElseIsAsked)
{
    const LogCapture log;
    EXPECT_EQ(choose({{u"Iris", intel}, {u"GeForce", nvidia}}, notFound), 0);
    EXPECT_EQ(shortened(log.lines()),
              Lines{"WARN Failed to create DXGI factory, fallback to DML adapter 0. HRESULT=2289696770"});
}

TEST(DmlAdapterChoice, KnowsBothIdentifiersOfAmdAndNoneBetween)
{
    for (const std::uint32_t vendor : {ati, amd})
        EXPECT_EQ(choose({{u"Iris", intel}, {u"Radeon", vendor}, {u"Radeon Two", ati}}), 1);
    for (const std::uint32_t vendor : {0x1001U, 0x1003U, 0x1012U, 0x1021U, 0x1042U, 0x10DDU, 0x10DFU})
        EXPECT_EQ(choose({{u"Iris", intel}, {u"Other", vendor}}), 0) << vendor;
}

// Whatever adapters this machine has, the answer fits what was logged about them.
TEST(DmlAdapterChoice, ThisMachinesAnswerIsOneOfItsAdaptersOrZero)
{
    const LogCapture log;
    const std::int32_t index = selectDmlAdapterIndex();
    ASSERT_FALSE(log.lines().empty());
    const std::string last = log.lines().back();
    for (const std::string& logged : log.lines())
        std::cout << logged << '\n';
    if (last.find("Prefer ") != std::string::npos)
        EXPECT_NE(last.find("adapter index " + std::to_string(index) + " ("), std::string::npos) << last;
    else
        EXPECT_EQ(index, 0) << last;
}
