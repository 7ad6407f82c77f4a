// SPDX-License-Identifier: MIT
// Runs the benchmarks and sets their figures against each other, all measured in this run.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "Workload.h"

namespace
{

/// Prints as usual and keeps what was measured.
class CollectingReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (!run.error_occurred)
                measured[run.run_name.function_name + (run.run_name.args.empty() ? "" : " ") +
                         run.run_name.args] = run;
        ConsoleReporter::ReportRuns(runs);
    }

    bool has(const std::string& name) const { return measured.contains(name); }

    /// Processor time of one iteration in milliseconds, 0 if it was not measured.
    double milliseconds(const std::string& name) const
    {
        const auto found = measured.find(name);
        if (found == measured.end())
            return 0.0;
        const Run& run = found->second;
        return run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e3;
    }

    /// The same by the clock, for what runs on several threads.
    double clockMilliseconds(const std::string& name) const
    {
        const auto found = measured.find(name);
        if (found == measured.end())
            return 0.0;
        const Run& run = found->second;
        return run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e3;
    }

    double counter(const std::string& name, const std::string& counter) const
    {
        const auto& counters = measured.at(name).counters;
        const auto found = counters.find(counter);
        return found == counters.end() ? 0.0 : found->second.value;
    }

private:
    std::map<std::string, Run> measured;
};

void printChunks(const CollectingReporter& results)
{
    const double floor = results.milliseconds("floorOfOneChunk");
    if (floor == 0.0)
        return;
    constexpr double chunkMilliseconds = blockFrames / 44.1;
    std::printf("\n%-34s %11s %9s %11s %12s %13s\n", "a steady-state chunk, 5.78 s of audio", "time",
                "/ floor", "real time", "allocations", "allocated");
    std::printf("%-37s %8.2f ms %9.2f\n", "floor", floor, 1.0);
    for (const char* name : {"chunkPlanar", "chunkInterleaved", "chunkOfOneStem"})
        if (const double time = results.milliseconds(name); time > 0.0)
            std::printf("%-37s %8.2f ms %9.2f %10.2f%% %12.1f %10.2f MB\n", name, time, time / floor,
                        100.0 * time / chunkMilliseconds, results.counter(name, "allocations"),
                        results.counter(name, "allocated_MB"));
    if (const double all = results.milliseconds("chunkPlanar"); all > 0.0)
        std::printf("one stem selected / all six: %.2f\n", results.milliseconds("chunkOfOneStem") / all);
}

void printRuntime(const CollectingReporter& results)
{
    const double floor = results.milliseconds("floorOfOneChunk");
    const double around =
        results.clockMilliseconds("chunkOnRuntime") - results.clockMilliseconds("runOnRuntime");
    if (!results.has("chunkOnRuntime") || floor == 0.0)
        return;
    std::printf("\na chunk on the real runtime without its run: %.2f ms, %.2f times the floor\n", around,
                around / floor);
    for (const char* model : {"gains", "default"})
    {
        const double bare = results.clockMilliseconds(std::string("bareSession/") + model);
        const double ours = results.clockMilliseconds(std::string("context/") + model);
        std::printf("loading the model %-8s %8.2f ms as a bare session, %8.2f ms as a context: %.2f\n", model,
                    bare, ours, ours / bare);
    }
}

void printStages(const CollectingReporter& results)
{
    const double whole = results.milliseconds("chunkInterleaved");
    if (!results.has("stageAnalysis") || whole == 0.0)
        return;
    std::printf("\n%-37s %11s %9s %9s\n", "its parts (interleaved)", "time", "share", "moved");
    const auto line = [&](const char* title, double time, double megabytes)
    { std::printf("%-37s %8.2f ms %8.0f%% %6.1f MB\n", title, time, 100.0 * time / whole, megabytes); };
    const auto stage = [&](const char* title, const std::string& name)
    { line(title, results.milliseconds(name), results.counter(name, "MB")); };
    stage("de-interleave and buffer", "stageBuffer interleaved:1");
    stage("window and forward transform", "stageWindowForward");
    line("packing into the model's planes",
         results.milliseconds("stageAnalysis") - results.milliseconds("stageWindowForward"),
         results.counter("stageAnalysis", "MB") - results.counter("stageWindowForward", "MB"));
    stage("unpacking", "stageUnpack");
    stage("inverse transform and overlap-add", "stageInverseOverlapAdd");
    stage("interleave", "stageHostVectors interleaved:1");
    stage("residual and mix", "stageResidualMix");
    std::printf("(in the last two, fresh memory for the eight vectors: %.2f ms)\n",
                results.milliseconds("freshVectors"));
}

void printCalls(const CollectingReporter& results)
{
    if (!results.has("copyOfBlock frames:64"))
        return;
    std::printf("\n%-37s %11s %11s %9s\n", "a call that completes no chunk", "time", "plain copy", "ratio");
    for (const int frames : {64, 512, 4096, 44100})
        for (const int interleaved : {0, 1})
        {
            const std::string size = "frames:" + std::to_string(frames);
            const double call = results.clockMilliseconds("callWithoutResult " + size +
                                                          "/interleaved:" + std::to_string(interleaved));
            const double copy = results.clockMilliseconds("copyOfBlock " + size);
            std::printf("%6d frames, %-22s %8.2f us %8.2f us %9.2f\n", frames,
                        interleaved == 1 ? "interleaved" : "planar", 1e3 * call, 1e3 * copy, call / copy);
        }
}

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    CollectingReporter results;
    benchmark::RunSpecifiedBenchmarks(&results);
    printChunks(results);
    printStages(results);
    printCalls(results);
    printRuntime(results);
    return 0;
}
