// SPDX-License-Identifier: MIT
#include "system/NewFile.h"

#include <cerrno>
#include <random>
#include <string>
#include <system_error>

#include "system/BinaryFile.h"
#include "system/Failure.h"
#include "system/Interrupts.h"
#include "system/Text.h"

namespace tonwerk::app
{

namespace
{

std::filesystem::path temporaryName(const std::filesystem::path& path)
{
    std::random_device random;
    std::filesystem::path name = path;
    name += ".";
    name += std::to_string(random());
    return name += ".part";
}

} // namespace

void writeNewFile(const std::filesystem::path& path, const void* bytes, std::size_t size)
{
    BinaryFile file(path, FileMode::Create);
    file.write(bytes, size);
    file.close();
}

void replaceFile(const std::filesystem::path& path, const void* bytes, std::size_t size)
{
    std::error_code failure;
    const auto type = std::filesystem::symlink_status(path, failure).type();
    if (type != std::filesystem::file_type::not_found && type != std::filesystem::file_type::regular)
        throw Failure("Cannot write " + quoted(path) + ": what is there now is no file.");
    const std::filesystem::path temporary = temporaryName(path);
    BinaryFile file(temporary, FileMode::Create);
    const TidyUp tidyUp(
        [&]
        {
            std::error_code absent;
            std::filesystem::remove(temporary, absent);
        });
    file.write(bytes, size);
    file.close();
    if (!syncToDisk(temporary))
        throw Failure("Cannot bring " + quoted(temporary) +
                      " to the disk: " + asReason(std::generic_category().message(errno)) + ".");
    if (interruptRequested())
        throw Interrupted();
    std::filesystem::rename(temporary, path, failure);
    if (failure)
        throw Failure("Cannot rename " + quoted(temporary) + " to " + quoted(path) + ": " +
                      asReason(failure.message()) + ".");
}

} // namespace tonwerk::app
