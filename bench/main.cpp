// Runs the benchmarks and sets the pipeline against its floor, both measured in this run.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace
{

/// Prints as usual and keeps the time of every benchmark, in milliseconds.
class CollectingReporter : public benchmark::ConsoleReporter
{
public:
    void ReportRuns(const std::vector<Run>& runs) override
    {
        for (const Run& run : runs)
            if (!run.error_occurred)
                times[run.run_name.function_name + run.run_name.args] = run.GetAdjustedCPUTime();
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> times;
};

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);

    const auto floor = reporter.times.find("floorOfOneChunk");
    if (floor == reporter.times.end())
        return 0;
    std::printf("\n%-40s %12s %16s\n", "one steady-state chunk (5.78 s of audio)", "time", "against floor");
    for (const auto& [name, time] : reporter.times)
        std::printf("%-40s %9.2f ms %15.2fx\n", name.c_str(), time, time / floor->second);
    return 0;
}
