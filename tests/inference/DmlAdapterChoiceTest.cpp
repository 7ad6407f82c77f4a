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
    explicit FakeAdapters(std::vector<Entry> entries, std::uint32_t opened = 0)
        : entries(std::move(entries)), opened(opened)
    {
    }

    std::uint32_t open() override { return opened; }

    std::uint32_t select(std::uint32_t index) override
    {
        current = index;
        ++selections;
        return index < entries.size() ? entries[index].selected : notFound;
    }

    std::uint32_t describe(AdapterDescription& description) override
    {
        const Entry& entry = entries.at(current);
        description = {entry.name, entry.vendorId, entry.flags};
        return entry.described;
    }

    int selections = 0;

private:
    std::vector<Entry> entries;
    std::uint32_t opened;
    std::size_t current = 0;
};

class DmlAdapterChoice : public ::testing::Test
{
protected:
    std::int32_t choose(std::vector<Entry> entries)
    {
        FakeAdapters adapters(std::move(entries));
        return selectDmlAdapterIndex(adapters);
    }

    static std::string line(const std::string& severity, const std::string& text)
    {
        return severity + " [selectDmlAdapterIndex] [INFERENCE_onnx] " + text;
    }

    LogCapture log;
    const std::string fallback =
        line("INFO", "No NVIDIA or AMD DML adapter found, fallback to adapter index 0");
};

using Lines = std::vector<std::string>;

TEST_F(DmlAdapterChoice, FallsBackToAdapterZero)
{
    EXPECT_EQ(choose({}), 0);
    EXPECT_EQ(log.lines(), Lines{fallback});

    log.clear();
    EXPECT_EQ(choose({{u"Basic Render Driver", 0x1414, software}, {u"Iris", intel}}), 0);
    EXPECT_EQ(log.lines(),
              (Lines{line("INFO", "DML adapter 0: vendorId=5140, software=true, name=Basic Render Driver"),
                     line("INFO", "DML adapter 1: vendorId=32902, software=false, name=Iris"), fallback}));
}

TEST_F(DmlAdapterChoice, PrefersNvidiaToAmdWhereverItStands)
{
    EXPECT_EQ(choose({{u"Radeon", ati}, {u"Iris", intel}, {u"GeForce", nvidia}, {u"GeForce Two", nvidia}}),
              2);
    EXPECT_EQ(log.lines().back(), line("INFO", "Prefer NVIDIA DML adapter index 2 (GeForce)"));
    EXPECT_EQ(log.lines()[2], line("INFO", "DML adapter 2: vendorId=4318, software=false, name=GeForce"));
}

TEST_F(DmlAdapterChoice, KnowsBothIdentifiersOfAmdAndNoneBetween)
{
    for (const std::uint32_t vendor : {ati, amd})
    {
        EXPECT_EQ(choose({{u"Iris", intel}, {u"Radeon", vendor}, {u"Radeon Two", ati}}), 1);
        EXPECT_EQ(log.lines().back(), line("INFO", "Prefer AMD DML adapter index 1 (Radeon)"));
    }
    for (const std::uint32_t vendor : {0x1001U, 0x1003U, 0x1012U, 0x1021U, 0x1042U, 0x10DDU, 0x10DFU})
        EXPECT_EQ(choose({{u"Iris", intel}, {u"Other", vendor}}), 0) << vendor;
}

TEST_F(DmlAdapterChoice, SoftwareAdaptersAreNeverPreferred)
{
    EXPECT_EQ(choose({{u"Remote", nvidia, software}, {u"Remote", amd, software | 1}, {u"Radeon", amd, 1}}),
              2);
    EXPECT_EQ(log.lines()[0], line("INFO", "DML adapter 0: vendorId=4318, software=true, name=Remote"));
    EXPECT_EQ(choose({{u"Iris", intel}, {u"Remote", nvidia, software}}), 0);
}

TEST_F(DmlAdapterChoice, AnAdapterWithoutDescriptionIsSkippedAndTheNextOnesAreTried)
{
    EXPECT_EQ(choose({{u"GeForce", nvidia, 0, 0, 0x887A0005}, {u"Radeon", amd}}), 1);
    EXPECT_EQ(log.lines(),
              (Lines{line("WARN", "Failed to read DXGI adapter description for index 0. HRESULT=2289696773"),
                     line("INFO", "DML adapter 1: vendorId=4130, software=false, name=Radeon"),
                     line("INFO", "Prefer AMD DML adapter index 1 (Radeon)")}));
}

TEST_F(DmlAdapterChoice, AFailingEnumerationKeepsTheAdaptersFoundSoFar)
{
    FakeAdapters adapters({{u"Radeon", ati}, {u"Lost", nvidia, 0, 0x80004005}, {u"GeForce", nvidia}});
    EXPECT_EQ(selectDmlAdapterIndex(adapters), 0);
    EXPECT_EQ(adapters.selections, 2);
    EXPECT_EQ(
        log.lines(),
        (Lines{line("INFO", "DML adapter 0: vendorId=4098, software=false, name=Radeon"),
               line("WARN", "Failed to enumerate DXGI adapter 1, fallback search stops. HRESULT=2147500037"),
               line("INFO", "Prefer AMD DML adapter index 0 (Radeon)")}));
}

TEST_F(DmlAdapterChoice, WithoutAListNothingElseIsAsked)
{
    FakeAdapters adapters({{u"GeForce", nvidia}}, notFound);
    EXPECT_EQ(selectDmlAdapterIndex(adapters), 0);
    EXPECT_EQ(adapters.selections, 0);
    EXPECT_EQ(log.lines(), Lines{line("WARN", "Failed to create DXGI factory, fallback to DML adapter 0. "
                                              "HRESULT=2289696770")});
}

TEST_F(DmlAdapterChoice, NamesBeyondAsciiAreShownWithQuestionMarksPerCodeUnit)
{
    choose({{u"Grafik \u00E9\u20AC\U0001F600 X", intel}});
    EXPECT_EQ(log.lines()[0],
              line("INFO", "DML adapter 0: vendorId=32902, software=false, name=Grafik ???? X"));
}

// Whatever adapters this machine has, the answer fits what was logged about them.
TEST_F(DmlAdapterChoice, ThisMachinesAnswerIsOneOfItsAdaptersOrZero)
{
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

} // namespace
