// SPDX-License-Identifier: MIT
#include "separation/Model.h"

#include <cstddef>
#include <cstdint>
#include <system_error>

#include "separation/LibraryCall.h"
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

Model::Model(std::span<const char> bytes, const std::string& name, const std::string& key, unsigned threads)
{
    tonwerk_context_options options = TONWERK_CONTEXT_OPTIONS_INIT;
    options.threads = threads;
    options.log = LibraryLog::add;
    options.log_user = &messages;
    options.key = key.data();
    options.key_size = key.size();
    tonwerk_context* made = nullptr;
    requireDone(tonwerk_context_open(bytes.data(), bytes.size(), &options, &made), name + " cannot be used");
    handle.reset(made);
    info.size = sizeof info;
    requireDone(tonwerk_context_get_info(made, &info), name + " cannot be used");
}

std::string Model::provider() const
{
    switch (info.provider)
    {
    case TONWERK_PROVIDER_DIRECTML:
        return "DirectML";
    case TONWERK_PROVIDER_CUDA:
        return "CUDA";
    case TONWERK_PROVIDER_ROCM:
        return "ROCm";
    default:
        return "CPU";
    }
}

} // namespace tonwerk::app
