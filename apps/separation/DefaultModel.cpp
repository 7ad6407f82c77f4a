// SPDX-License-Identifier: MIT
#include "separation/DefaultModel.h"

#include <array>
#include <string>
#include <system_error>

#include "system/Failure.h"
#include "system/Machine.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

constexpr const char* variable = "TONWERK_MODEL";
constexpr const char* fileName = "tonwerk-small.onnx";

bool isThere(const std::filesystem::path& path)
{
    std::error_code unreadable; // counts as missing
    return std::filesystem::exists(path, unreadable);
}

} // namespace

std::filesystem::path defaultModel()
{
    const std::string named = environmentVariable(variable);
    if (!named.empty())
    {
        if (isThere(toPath(named)))
            return toPath(named);
        throw Failure("The environment variable " + std::string(variable) + " names the model " +
                      quoted(toPath(named)) + ", which does not exist.");
    }
    const std::filesystem::path folder = programFile().parent_path();
    const std::array<std::filesystem::path, 3> folders{
        folder, folder.parent_path() / "share" / "tonwerk" / "models", folder.parent_path() / "models"};
    std::string places;
    for (const std::filesystem::path& place : folders)
    {
        if (isThere(place / fileName))
            return place / fileName;
        places += (places.empty() ? "" : ", ") + quoted(place);
    }
    throw Failure("There is no model: name one with --model or " + std::string(variable) + ", or put " +
                  fileName + " into one of the folders " + places + ".");
}

} // namespace tonwerk::app
