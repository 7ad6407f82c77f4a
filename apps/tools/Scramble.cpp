// SPDX-License-Identifier: MIT
#include "tools/Scramble.h"

#include <cstdio>
#include <system_error>
#include <vector>

#include "api/ModelScrambling.h"
#include "separation/Model.h"
#include "system/Failure.h"
#include "system/NewFile.h"
#include "system/Text.h"

namespace tonwerk::app
{

void scrambleModel(const std::filesystem::path& model, const std::filesystem::path& output,
                   const std::string& key)
{
    const std::vector<char> bytes = readModel(model);
    std::error_code absent; // then the files differ
    if (std::filesystem::equivalent(model, output, absent))
        throw Failure("The scrambled model would replace the model " + quoted(model) +
                      ": give it another name.");
    const ScrambledCopy scrambled(bytes.data(), bytes.size(), key);
    replaceFile(output, scrambled.data(), scrambled.size());
    std::printf("%s: %zu bytes. Separate with it by --model and --key; the same command turns it back.\n",
                printable(quoted(output)).c_str(), bytes.size());
}

} // namespace tonwerk::app
