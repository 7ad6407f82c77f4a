// SPDX-License-Identifier: MIT
// Command lines from anywhere: a job that makes sense, a request that has been answered, or a sentence.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "cli/CommandLine.h"
#include "fuzz/FuzzInput.h"
#include "system/Failure.h"

// Each line is an argument.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace tonwerk::app;
    std::vector<std::string> arguments;
    std::istringstream lines(FuzzInput(data, size).remaining());
    for (std::string line; std::getline(lines, line);)
        arguments.push_back(line);
    try
    {
        const auto read = readCommandLine(arguments);
        if (!read || read->listModels)
            return 0;
        const Job& job = read->job;
        promise(!job.inputs.empty(), "songs");
        promise(job.shard >= 1 && job.shard <= job.shardCount, "a shard");
        promise(job.workers >= 1 && job.workers <= 64, "workers");
        promise(!job.output.tracks.empty(), "something to write");
        promise(job.raw == job.outputFolder.empty(), "one place for the stems");
    }
    catch (const UsageError&)
    {
        // One sentence for the user.
    }
    catch (const Failure&)
    {
        // There is no model.
    }
    return 0;
}
