// SPDX-License-Identifier: MIT
#include "system/AtomicFile.h"

#include <system_error>

#include "system/BinaryFile.h"
#include "system/Failure.h"
#include "system/Text.h"

namespace tonwerk::app
{

void writeFileAtomically(const std::filesystem::path& path, const void* bytes, std::size_t size)
{
    std::filesystem::path temporary = path;
    temporary += ".part";
    // Outside the try block: a file that we could not open is not ours to remove.
    BinaryFile file(temporary, FileMode::Write);
    std::error_code failure;
    try
    {
        file.write(bytes, size);
        file.close();
        std::filesystem::rename(temporary, path, failure);
        if (failure)
            throw Failure("Cannot rename " + quoted(temporary) + " to " + quoted(path) + ": " +
                          asReason(failure.message()) + ".");
    }
    catch (...)
    {
        file.discard();
        std::filesystem::remove(temporary, failure);
        throw;
    }
}

} // namespace tonwerk::app
