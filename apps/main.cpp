#include <cmath>
#include <cstdio>
#include <exception>
#include <new>
#include <optional>
#include <string>

#include "Failure.h"
#include "Model.h"
#include "Options.h"
#include "Platform.h"
#include "ProgressDisplay.h"
#include "Separation.h"
#include "SongReader.h"
#include "SongReport.h"
#include "StemFolder.h"
#include "Text.h"

namespace
{

using namespace tonwerk::app;

enum ExitCode
{
    done = 0,
    failed = 1,
    wrongUsage = 2,
    interrupted = 130
};

SeparationResult separateSong(const Options& options)
{
    SongReader song(options.song);
    StemFolder folder(options.outputFolder, options.song, options.stems, song.channels(), song.sampleRate());
    std::optional<SongReport> page;
    if (options.report)
        page.emplace(options.stems, song.sampleRate());
    Separation separation(loadModel(options.model, options.key), song, folder, options.stems,
                          page ? &*page : nullptr);
    ProgressDisplay display(platform::standardErrorIsTerminal());
    const SeparationResult result = separation.run([&display](double fraction, double audioSeconds)
                                                   { display.update(fraction, audioSeconds); });
    if (page)
        page->write(folder.path() / "report.html",
                    {toText(options.song.filename()), toText(options.model.filename()), song.channels(),
                     result.audioSeconds, result.processingSeconds, result.nullPeak,
                     result.nonFiniteSamples});
    return result;
}

// The library logs to standard output, so this comes after its end: it is the last line there.
void report(const Options& options, const SeparationResult& result)
{
    if (result.nonFiniteSamples > 0)
        std::fprintf(stderr, "Warning: %llu samples of the song are not finite numbers.\n",
                     static_cast<unsigned long long>(result.nonFiniteSamples));
    std::printf("%s (%s): real-time factor %.3f, null test %.1f dBFS (%.3g)\n",
                toText(options.song.filename()).c_str(), asClock(result.audioSeconds).c_str(),
                result.processingSeconds / result.audioSeconds, 20.0 * std::log10(result.nullPeak),
                result.nullPeak);
}

int runProgram(int argc, char** argv)
{
    const auto options = readOptions(argc, argv);
    if (options)
        report(*options, separateSong(*options));
    return done;
}

int complain(const std::string& sentence, ExitCode code)
{
    std::fprintf(stderr, "tonwerk-separate: %s\n", sentence.c_str());
    return code;
}

} // namespace

int main(int argc, char** argv)
{
    try
    {
        platform::setUpConsole();
        platform::watchInterrupts();
        return runProgram(argc, argv);
    }
    catch (const UsageError& error)
    {
        return complain(error.what(), wrongUsage);
    }
    catch (const Interrupted& request)
    {
        return complain(request.what(), interrupted);
    }
    catch (const std::bad_alloc&)
    {
        return complain("There is not enough memory.", failed);
    }
    catch (const Failure& failure)
    {
        return complain(failure.what(), failed);
    }
    catch (const std::exception& failure)
    {
        return complain("Something unexpected happened: " + asReason(failure.what()) + ".", failed);
    }
}
