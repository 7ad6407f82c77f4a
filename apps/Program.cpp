// SPDX-License-Identifier: MIT
#include "Program.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <new>

#include "batch/Batch.h"
#include "cli/CommandLine.h"
#include "cli/JsonProgressReporter.h"
#include "cli/TextProgressReporter.h"
#include "system/Console.h"
#include "system/Failure.h"
#include "system/Interrupts.h"
#include "system/Text.h"
#include "tools/ModelList.h"
#include "tools/Tools.h"

namespace tonwerk::app
{

namespace
{

enum ExitCode
{
    Done = 0,
    Failed = 1,
    WrongUsage = 2,
    WasInterrupted = interruptedExitCode
};

std::unique_ptr<ProgressReporter> makeReporter(const CommandLine& commandLine)
{
    if (commandLine.jsonProgress)
        return std::make_unique<JsonProgressReporter>();
    return std::make_unique<TextProgressReporter>(commandLine.job.raw ? stderr : stdout);
}

/// \throws Failure if what was printed is lost
void requirePrinted()
{
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        throw Failure("Standard output cannot be written.");
}

int separateSongs(const std::vector<std::string>& arguments)
{
    const auto commandLine = readCommandLine(arguments);
    if (!commandLine)
        return Done;
    if (commandLine->listModels)
    {
        listModels(commandLine->job.model, stdout);
        return Done;
    }
    const auto reporter = makeReporter(*commandLine);
    return Batch(commandLine->job, *reporter, stdout).run().failed > 0 ? Failed : Done;
}

int printError(const std::string& sentence, ExitCode code)
{
    std::fprintf(stderr, "tonwerk-separate: %s\n", printable(sentence).c_str());
    return code;
}

} // namespace

int runProgram(const std::vector<std::string>& arguments)
{
    try
    {
        openStandardStreams();
        setUpConsole();
        const auto toolsCode = runTool(arguments);
        if (!toolsCode)
            watchInterrupts();
        const int code = toolsCode ? *toolsCode : separateSongs(arguments);
        requirePrinted();
        return code;
    }
    catch (const UsageError& error)
    {
        return printError(error.what(), WrongUsage);
    }
    catch (const Interrupted& request)
    {
        return printError(request.what(), WasInterrupted);
    }
    catch (const std::bad_alloc&)
    {
        return printError("There is not enough memory.", Failed);
    }
    catch (const Failure& failure)
    {
        return printError(failure.what(), Failed);
    }
    catch (const std::exception& failure)
    {
        return printError("Something unexpected happened: " + asReason(failure.what()) + ".", Failed);
    }
}

} // namespace tonwerk::app
