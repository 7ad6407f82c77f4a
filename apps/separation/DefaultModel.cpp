// SPDX-License-Identifier: MIT
#include "separation/DefaultModel.h"

#include <algorithm>
#include <array>
#include <optional>
#include <system_error>

#include "system/Failure.h"
#include "system/Machine.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

constexpr const char* variable = "TONWERK_MODEL";
constexpr const char* standardName = "tonwerk-standard.onnx";
constexpr const char* smallName = "tonwerk-small.onnx";

bool isThere(const std::filesystem::path& path)
{
    std::error_code unreadable; // counts as missing
    return std::filesystem::exists(path, unreadable);
}

std::array<std::filesystem::path, 3> places()
{
    const std::filesystem::path folder = programFile().parent_path();
    return {folder, folder.parent_path() / "share" / "tonwerk" / "models", folder.parent_path() / "models"};
}

std::optional<ChosenModel> modelOf(const std::filesystem::path& folder)
{
    if (isThere(folder / standardName))
        return ChosenModel{folder / standardName, ""};
    if (isThere(folder / smallName))
        return ChosenModel{
            folder / smallName,
            std::string(standardName) + " is not in " + quoted(folder) + ", so " + smallName +
                " separates, which finds voices less well. The project's `make build` makes the "
                "other one, unless it is told PUBLIC_WEIGHTS=0."};
    return std::nullopt;
}

} // namespace

ChosenModel defaultModel()
{
    const std::string named = environmentVariable(variable);
    if (!named.empty())
    {
        if (isThere(toPath(named)))
            return namedModel(toPath(named));
        throw Failure("The environment variable " + std::string(variable) + " names the model " +
                      quoted(toPath(named)) + ", which does not exist.");
    }
    std::string tried;
    for (const std::filesystem::path& place : places())
    {
        if (const auto model = modelOf(place))
            return *model;
        tried += (tried.empty() ? "" : ", ") + quoted(place);
    }
    throw Failure("There is no model: name one with --model or " + std::string(variable) + ", or put " +
                  standardName + " or " + smallName + " into one of the folders " + tried + ".");
}

ChosenModel namedModel(const std::filesystem::path& path)
{
    std::error_code unreadable; // the model's reader tells
    if (!std::filesystem::is_directory(path, unreadable))
        return {path, ""};
    if (isThere(path / standardName) || isThere(path / smallName))
        return *modelOf(path);
    const std::vector<std::filesystem::path> models = modelsIn(path);
    if (models.empty())
        throw Failure("There is no model (.onnx) in the folder " + quoted(path) + ".");
    if (models.size() > 1)
        throw Failure("The folder " + quoted(path) + " has " + std::to_string(models.size()) +
                      " models: --list-models shows them; name one.");
    return {models.front(), ""};
}

std::vector<std::filesystem::path> modelsIn(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> models;
    std::error_code failure;
    for (std::filesystem::directory_iterator entry(folder, failure), end; !failure && entry != end;
         entry.increment(failure))
        if (entry->path().extension() == ".onnx")
            models.push_back(entry->path());
    if (failure)
        throw Failure("The folder " + quoted(folder) + " cannot be read: " + asReason(failure.message()) +
                      ".");
    std::sort(models.begin(), models.end());
    return models;
}

std::vector<std::filesystem::path> modelFolders()
{
    std::vector<std::filesystem::path> folders;
    for (const std::filesystem::path& place : places())
        if (isThere(place))
            folders.push_back(place);
    return folders;
}

} // namespace tonwerk::app
