// SPDX-License-Identifier: MIT
#include "tools/ModelList.h"

#include <string>
#include <system_error>
#include <vector>

#include "separation/DefaultModel.h"
#include "separation/Model.h"
#include "separation/ModelPassport.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

std::vector<std::filesystem::path> modelsOf(const std::filesystem::path& folder)
{
    std::error_code failure;
    if (!folder.empty() && !std::filesystem::is_directory(folder, failure))
        return {folder};
    std::vector<std::filesystem::path> models;
    const auto folders = folder.empty() ? modelFolders() : std::vector{folder};
    for (const std::filesystem::path& place : folders)
        for (std::filesystem::path& model : modelsIn(place))
            models.push_back(std::move(model));
    if (models.empty())
        throw Failure(folder.empty() ? "There is no model with the program; --model names a folder of models."
                                     : "There is no model (.onnx) in the folder " + quoted(folder) + ".");
    return models;
}

void print(std::FILE* output, const std::filesystem::path& model)
{
    const ModelPassport passport = readPassport(readModel(model), "");
    std::fprintf(output, "%s\n", toText(model).c_str());
    for (const auto& [label, text] : passport.lines())
        std::fprintf(output, "  %s: %s\n", label.c_str(), text.c_str());
    if (!passport.exists())
        std::fprintf(output, "  no passport\n");
}

} // namespace

void listModels(const std::filesystem::path& folder, std::FILE* output)
{
    for (const std::filesystem::path& model : modelsOf(folder))
        print(output, model);
}

} // namespace tonwerk::app
