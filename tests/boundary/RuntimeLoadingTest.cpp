// The library in folders with and without a runtime, each time in a process of its own.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "boundary/LoadedRuntime.h"
#include "support/ScratchFolder.h"

namespace
{

namespace fs = std::filesystem;

const fs::path products = TONWERK_TEST_BIN_DIR;
const std::string runtimeFile = TONWERK_TEST_RUNTIME_FILE;

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

    static void place(const fs::path& source, const fs::path& folder)
    {
        fs::copy_file(source, folder / runtimeFile);
    }

    /// Runs the probe and returns the lines that it printed.
    std::vector<std::string> probe(const std::string& arguments = "") const
    {
        fs::current_path(current);
        const fs::path program = fs::path("..") / "app" / TONWERK_TEST_PROBE_FILE;
        const std::string command =
            fs::path(program).make_preferred().string() + " " + arguments + " > printed.txt";
        EXPECT_EQ(std::system(command.c_str()), 0) << command;
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

    std::string location() const { return utf8(fs::canonical(app) / runtimeFile); }

    ScratchFolder scratch;
    fs::path before;
    fs::path app = scratch.path() / "app";
    fs::path current = scratch.path() / "current";
};

bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

std::string contents(const char* file)
{
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The text of a missing runtime names the file, the two places, and a reason for each.
void expectMissing(const std::vector<std::string>& lines, const fs::path& app)
{
    ASSERT_EQ(lines.size(), 4U) << ::testing::PrintToString(lines);
    EXPECT_EQ(lines[0], "no runtime is loaded");
    const std::string start = "std::runtime_error: Cannot load the inference runtime " + runtimeFile +
                              ", looked for in " + utf8(fs::canonical(app));
    EXPECT_TRUE(lines[1].starts_with(start)) << lines[1];
    const auto reasons = lines[1].find(" and in the system's library folders: ");
    ASSERT_NE(reasons, std::string::npos) << lines[1];
    const auto second = lines[1].find("; ", reasons);
    ASSERT_NE(second, std::string::npos) << lines[1];
    EXPECT_TRUE(contains(lines[1].substr(reasons, second - reasons), missingFileReason())) << lines[1];
    EXPECT_TRUE(contains(lines[1].substr(second), missingFileReason())) << lines[1];
    EXPECT_EQ(lines[2], "no runtime is loaded");
    EXPECT_EQ(lines[3], "end");
}

TEST_F(RuntimeLoading, HappensWithTheFirstContextAndFromTheLibrarysOwnFolder)
{
    place(products / runtimeFile, app);
    const auto lines = probe();
    ASSERT_GE(lines.size(), 4U);
    EXPECT_EQ(lines.front(), "no runtime is loaded");
    EXPECT_TRUE(lines[lines.size() - 3].starts_with("refused by the runtime: ")) << lines[lines.size() - 3];
    EXPECT_EQ(lines[lines.size() - 2], "a runtime is loaded");
    EXPECT_EQ(lines.back(), "end");
}

TEST_F(RuntimeLoading, OfAMissingRuntimeFailsWithFilePlaceAndReason)
{
    expectMissing(probe(), app);
}

// The current directory is no place to load code from.
TEST_F(RuntimeLoading, IgnoresTheCurrentDirectory)
{
    place(products / "standin-no-entry-point" / runtimeFile, current);
    expectMissing(probe(), app);
    EXPECT_FALSE(fs::exists(current / "decoy-was-loaded"));
}

TEST_F(RuntimeLoading, PrefersTheLibrarysOwnFolderToTheSearchPath)
{
    place(products / "standin-no-entry-point" / runtimeFile, current);
    place(products / runtimeFile, app);
    setLibrarySearchPath(fs::canonical(current).string());
    const auto lines = probe();
    EXPECT_TRUE(contains(::testing::PrintToString(lines), "refused by the runtime: "));
    EXPECT_FALSE(fs::exists(current / "decoy-was-loaded"));
}

struct SearchPath
{
    const char* name;
    const char* path;
};

// Not even when the search path says so.
class RuntimeSearchPath : public RuntimeLoading, public ::testing::WithParamInterface<SearchPath>
{
};

TEST_P(RuntimeSearchPath, ThatMeansTheCurrentDirectoryIsIgnored)
{
    place(products / "standin-no-entry-point" / runtimeFile, current);
    setLibrarySearchPath(GetParam().path);
    const auto lines = probe();
    ASSERT_EQ(lines.size(), 4U) << ::testing::PrintToString(lines);
    EXPECT_TRUE(lines[1].starts_with("std::runtime_error: Cannot load the inference runtime " + runtimeFile))
        << lines[1];
    EXPECT_FALSE(fs::exists(current / "decoy-was-loaded"));
}

INSTANTIATE_TEST_SUITE_P(RuntimeLoading, RuntimeSearchPath,
                         ::testing::Values(SearchPath{"Empty", ""}, SearchPath{"TwoEmptyEntries", ":"},
                                           SearchPath{"Dot", "."},
                                           SearchPath{"TrailingSeparator", "/usr/lib:"},
                                           SearchPath{"Relative", "../current"}),
                         [](const auto& test) { return std::string(test.param.name); });

// A library that was found by a relative path stays where it was when the host changes directory.
TEST_F(RuntimeLoading, StaysWithTheLibrarysFolderWhenTheHostGoesElsewhere)
{
    place(products / runtimeFile, app);
    place(products / "standin-no-entry-point" / runtimeFile, current);
    fs::copy_file(products / TONWERK_TEST_LIBRARY_FILE, current / TONWERK_TEST_LIBRARY_FILE);
    setLibrarySearchPath(".");
    fs::current_path(app);
    const std::string program = (fs::path(".") / TONWERK_TEST_PROBE_FILE).make_preferred().string();
    const std::string elsewhere = (fs::path("..") / "current").make_preferred().string();
    EXPECT_EQ(std::system((program + " " + elsewhere + " > printed.txt").c_str()), 0);
    EXPECT_TRUE(contains(contents("printed.txt"), "refused by the runtime: ")) << contents("printed.txt");
    EXPECT_FALSE(fs::exists(current / "decoy-was-loaded"));
}

TEST_F(RuntimeLoading, OfAFileThatIsNoLibraryFailsWithTheReason)
{
    std::ofstream(app / runtimeFile) << "text";
    const auto lines = probe();
    ASSERT_EQ(lines.size(), 4U) << ::testing::PrintToString(lines);
    EXPECT_TRUE(lines[1].starts_with("std::runtime_error: Cannot load the inference runtime ")) << lines[1];
    EXPECT_TRUE(contains(lines[1], wrongFormatReason())) << lines[1];
}

TEST_F(RuntimeLoading, OfALibraryWithoutTheEntryPointFailsWithItsNameAndUnloadsIt)
{
    place(products / "standin-no-entry-point" / runtimeFile, app);
    const auto lines = probe();
    ASSERT_EQ(lines.size(), 4U) << ::testing::PrintToString(lines);
    EXPECT_TRUE(lines[1].starts_with("std::runtime_error: The inference runtime " + location() +
                                     " has no entry point OrtGetApiBase: "))
        << lines[1];
    EXPECT_GT(lines[1].size() - lines[1].rfind(": "), 8U) << "a reason: " << lines[1];
    EXPECT_EQ(lines[2], "no runtime is loaded");
}

TEST_F(RuntimeLoading, OfATooOldRuntimeFailsWithItsPlaceAndVersion)
{
    place(products / "standin-too-old" / runtimeFile, app);
    const auto lines = probe();
    ASSERT_EQ(lines.size(), 4U) << ::testing::PrintToString(lines);
    EXPECT_EQ(lines[1], "std::runtime_error: The inference runtime " + location() +
                            " is version 1.20.0, but version 1.21 or newer is needed");
}

// A host that mends a missing runtime need not start anew.
TEST_F(RuntimeLoading, SucceedsOnceTheMissingRuntimeIsThere)
{
    fs::copy_file(products / runtimeFile, current / "replacement");
    const auto lines =
        probe("replacement " + (fs::path("..") / "app" / runtimeFile).make_preferred().string());
    ASSERT_GE(lines.size(), 5U) << ::testing::PrintToString(lines);
    EXPECT_TRUE(lines[1].starts_with("std::runtime_error: Cannot load the inference runtime ")) << lines[1];
    EXPECT_TRUE(lines[lines.size() - 3].starts_with("refused by the runtime: ")) << lines[lines.size() - 3];
    EXPECT_EQ(lines[lines.size() - 2], "a runtime is loaded");
}

// Folders of users are not all ASCII.
TEST_F(RuntimeLoading, WorksInAFolderWithAnyName)
{
    const fs::path odd = scratch.path() / fs::path(u8"Größe € 楽 x");
    fs::rename(app, odd);
    fs::copy_file(products / runtimeFile, odd / runtimeFile);
    fs::current_path(odd);
    const std::string program = (fs::path(".") / TONWERK_TEST_PROBE_FILE).make_preferred().string();
    EXPECT_EQ(std::system((program + " > printed.txt").c_str()), 0);
    EXPECT_TRUE(contains(contents("printed.txt"), "refused by the runtime: ")) << contents("printed.txt");
}

} // namespace
