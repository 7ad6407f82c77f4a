// SPDX-License-Identifier: MIT
// The library in folders with and without a runtime, each time in a process of its own.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "boundary/LoadedRuntime.h"
#include "support/ScratchFolder.h"

namespace
{

namespace fs = std::filesystem;

const fs::path products = TONWERK_TEST_BIN_DIR;
const std::string runtimeFile = TONWERK_TEST_RUNTIME_FILE;
const std::string model = (fs::path(TONWERK_TEST_MODEL_DIR) / "gains.onnx").make_preferred().string();

std::string utf8(const fs::path& path)
{
    const std::u8string text = path.u8string();
    return {text.begin(), text.end()};
}

/// A folder with the library and the probe in it and, beside it, another one that is the current directory.
class RuntimeLoading : public ::testing::Test
{
protected:
    RuntimeLoading() : before(fs::current_path())
    {
        fs::create_directory(app);
        fs::create_directory(current);
        for (const std::string name : {TONWERK_TEST_LIBRARY_FILE, TONWERK_TEST_PROBE_FILE})
            fs::copy_file(products / name, app / name);
        for (const auto& entry :
             fs::directory_iterator(products)) // the compiler's libraries, where they are DLLs
            if (entry.path().filename().string().starts_with("lib") && entry.path().extension() == ".dll")
                fs::copy_file(entry.path(), app / entry.path().filename());
    }

    ~RuntimeLoading() override
    {
        fs::current_path(before);
        setLibrarySearchPath("");
    }

    static void place(const char* folderOfProducts, const fs::path& folder)
    {
        fs::copy_file(products / folderOfProducts / runtimeFile, folder / runtimeFile);
    }

    /// Runs the probe in the folder `from` and returns the lines that it printed.
    std::vector<std::string> probe(const fs::path& from, const fs::path& program,
                                   const std::string& steps) const
    {
        fs::current_path(from);
        const std::string command =
            fs::path(program / TONWERK_TEST_PROBE_FILE).make_preferred().string() + " " + steps;
        EXPECT_EQ(std::system((command + " > printed.txt").c_str()), 0) << command;
        std::ifstream printed("printed.txt");
        std::vector<std::string> lines;
        for (std::string line; std::getline(printed, line);)
        {
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            lines.push_back(line);
        }
        fs::current_path(before);
        return lines;
    }

    std::vector<std::string> probe(const std::string& steps = "load") const
    {
        return probe(current, "../app", steps);
    }

    /// Expects that the runtime was found: it says no to what is no model, and stays loaded.
    void expectFound(const std::vector<std::string>& lines) const
    {
        ASSERT_GE(lines.size(), 4U) << ::testing::PrintToString(lines);
        EXPECT_EQ(lines.front(), "no runtime is loaded");
        const std::string& answer = lines[lines.size() - 3];
        EXPECT_TRUE(answer.starts_with("refused by the runtime: ")) << answer;
        EXPECT_EQ(lines[lines.size() - 2], "a runtime is loaded");
        EXPECT_EQ(lines.back(), "end");
        EXPECT_FALSE(fs::exists(current / "decoy-was-loaded"));
    }

    std::string location() const { return utf8(fs::canonical(app) / runtimeFile); }

    /// The step that lays a file as the runtime beside the library.
    static std::string copyBesideTheLibrary(const std::string& file)
    {
        return " copy " + file + " " + (fs::path("..") / "app" / runtimeFile).make_preferred().string() + " ";
    }

    ScratchFolder scratch;
    fs::path before;
    fs::path app = scratch.path() / "app";
    fs::path current = scratch.path() / "current";
};

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

/// A failure is told in a text that begins so, and the process goes on.
/// \return the rest of the text
std::string expectFailure(const std::vector<std::string>& lines, const std::string& beginning)
{
    EXPECT_EQ(lines.size(), 4U) << ::testing::PrintToString(lines);
    if (lines.size() != 4)
        return "";
    EXPECT_EQ(lines[0], "no runtime is loaded");
    EXPECT_EQ(lines[3], "end");
    const std::string start = "std::runtime_error: " + beginning;
    EXPECT_TRUE(lines[1].starts_with(start)) << lines[1];
    return lines[1].substr(std::min(start.size(), lines[1].size()));
}

const std::string cannotLoad = "Cannot load the inference runtime " + runtimeFile;

TEST_F(RuntimeLoading, HappensWithTheFirstContextAndFromTheLibrarysOwnFolder)
{
    place("", app);
    expectFound(probe());
    place("standin-no-entry-point", current);
    setLibrarySearchPath(fs::canonical(current).string()); // which comes second
    expectFound(probe());
}

// The current directory is no place to load code from. The text names the file, the two places, and a reason
// for each.
TEST_F(RuntimeLoading, OfAMissingRuntimeFailsWithFilePlacesAndReasons)
{
    place("standin-no-entry-point", current);
    const auto lines = probe();
    const std::string rest = expectFailure(lines, cannotLoad + ", looked for in " + utf8(fs::canonical(app)));
    const auto reasons = rest.find(" and where the system looks for libraries: ");
    ASSERT_NE(reasons, std::string::npos) << rest;
    const auto second = rest.find("; ", reasons);
    ASSERT_NE(second, std::string::npos) << rest;
    EXPECT_TRUE(contains(rest.substr(reasons, second - reasons), missingFileReason())) << rest;
    EXPECT_TRUE(contains(rest.substr(second), missingFileReason())) << rest;
    EXPECT_EQ(lines.at(2), "no runtime is loaded");

    // Not even when the search path means the current directory, or meant it when the process began.
    for (const char* path : {"", ":", ".", "/usr/lib:", "../current"})
    {
        setLibrarySearchPath(path);
        expectFailure(probe(), cannotLoad);
        expectFailure(probe("unset LD_LIBRARY_PATH load"), cannotLoad);
    }
    EXPECT_FALSE(fs::exists(current / "decoy-was-loaded"));
}

// A library that was found by a relative path stays where it was when the host changes directory.
TEST_F(RuntimeLoading, StaysWithTheLibrarysFolderWhenTheHostGoesElsewhere)
{
    place("", app);
    place("standin-no-entry-point", current);
    fs::copy_file(products / TONWERK_TEST_LIBRARY_FILE, current / TONWERK_TEST_LIBRARY_FILE);
    setLibrarySearchPath(".");
    expectFound(probe(app, ".", "cd " + fs::path("../current").make_preferred().string() + " load"));
}

TEST_F(RuntimeLoading, OfAnUnusableFileFailsWithTheReason)
{
    std::ofstream(app / runtimeFile) << "text";
    EXPECT_TRUE(contains(expectFailure(probe(), cannotLoad), wrongFormatReason()));

    fs::remove(app / runtimeFile);
    place("standin-no-entry-point", app);
    const auto lines = probe();
    EXPECT_GT(
        expectFailure(lines, "The inference runtime " + location() + " has no entry point OrtGetApiBase: ")
            .size(),
        6U);
    EXPECT_EQ(lines.at(2), "no runtime is loaded");

    fs::remove(app / runtimeFile);
    place("standin-too-old", app);
    EXPECT_EQ(expectFailure(probe(), "The inference runtime " + location()),
              " is version 1.20.0, but version 1.21 or newer is needed");
}

// A host that mends a missing runtime, or one that is too old, need not start anew.
TEST_F(RuntimeLoading, SucceedsOnceAUsableRuntimeIsThere)
{
    fs::copy_file(products / runtimeFile, current / "replacement");
    const std::string steps = "load" + copyBesideTheLibrary("replacement") + "load";
    auto lines = probe(steps);
    expectFound(lines);
    EXPECT_TRUE(lines.at(1).starts_with("std::runtime_error: " + cannotLoad)) << lines[1];

    fs::remove(app / runtimeFile);
    place("standin-too-old", app);
    lines = probe(steps);
    expectFound(lines);
    EXPECT_TRUE(lines.at(1).ends_with("is version 1.20.0, but version 1.21 or newer is needed")) << lines[1];
}

// An update or a repair may lay another copy where the library looks first. One copy's sessions mean nothing
// to the other one's functions.
TEST_F(RuntimeLoading, HappensOnceInAProcess)
{
    if (!searchPathLeadsToTheRuntime())
        GTEST_SKIP() << "on this system the library finds a runtime beside itself or not at all";
    place("", current);
    setLibrarySearchPath(fs::canonical(current).string());
    const auto lines =
        probe("context " + model + copyBesideTheLibrary(runtimeFile) + "context " + model + " separate");
    EXPECT_THAT(lines, ::testing::Contains("separated"));
    EXPECT_EQ(lines.back(), "end");
}

// Many audio plug-ins bring the same runtime along, each in a version of its own.
TEST_F(RuntimeLoading, LeavesOtherPlugInsTheirOwnRuntimeWhoeverComesFirst)
{
    place("", app);
    const fs::path foreign = fs::canonical(products / "foreign");
    setLibrarySearchPath(foreign.string());
    const std::string ours = "context " + model;
    const std::string theirs = "foreign " + model;
    for (const std::string& steps : {ours + " " + theirs, theirs + " " + ours})
    {
        const auto lines = probe(steps + " separate");
        EXPECT_THAT(lines,
                    ::testing::Contains("foreign runtime: " + utf8(foreign / TONWERK_TEST_FOREIGN_FILE)))
            << "ours goes by its maker's name, unless tools/fetch-deps.sh has given it another";
        EXPECT_THAT(lines, ::testing::Contains("separated"));
        EXPECT_EQ(lines.back(), "end");
    }
}

// Folders of users are not all ASCII.
TEST_F(RuntimeLoading, WorksInAFolderWithAnyName)
{
    const fs::path odd = scratch.path() / fs::path(u8"Größe € 楽 x");
    fs::rename(app, odd);
    place("", odd);
    expectFound(probe(odd, ".", "load"));
}

} // namespace
