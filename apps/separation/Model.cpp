// SPDX-License-Identifier: MIT
#include "separation/Model.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>
#include <system_error>
#include <vector>

#include "system/BinaryFile.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

std::vector<char> readModel(const std::filesystem::path& path)
{
    std::error_code failure;
    const auto status = std::filesystem::status(path, failure);
    if (!std::filesystem::exists(status))
        throw Failure("The model " + quoted(path) + " does not exist.");
    if (std::filesystem::is_directory(status))
        throw Failure("The model " + quoted(path) + " is a folder.");
    const std::uintmax_t size = std::filesystem::file_size(path, failure);
    if (failure)
        throw Failure("The model " + quoted(path) + " cannot be read: " + asReason(failure.message()) + ".");
    if (size == 0)
        throw Failure("The model " + quoted(path) + " is an empty file.");
    std::vector<char> bytes(static_cast<std::size_t>(size));
    BinaryFile file(path, FileMode::Read);
    bytes.resize(file.read(bytes.data(), bytes.size()));
    file.requireGood();
    return bytes;
}

std::shared_ptr<InferenceContext> loadModel(const std::filesystem::path& path, const std::string& key)
{
    const std::vector<char> bytes = readModel(path);
    try
    {
        return std::make_shared<InferenceContext>(ModelData{bytes.data(), bytes.size(), key});
    }
    catch (const std::bad_alloc&)
    {
        throw;
    }
    catch (const std::exception& refusal)
    {
        throw Failure("The model " + quoted(path) + " cannot be used: " + asReason(refusal.what()) + ".");
    }
}

} // namespace tonwerk::app
