#include "bench_support.h"

#include <cstdio>

namespace yovo {
namespace bench {

namespace {

using Run = benchmark::BenchmarkReporter::Run;

double counter(const Run& run, const char* name)
{
    const auto it = run.counters.find(name);
    return it == run.counters.end() ? 0 : it->second.value;
}

bool hasCounter(const Run& run, const char* name)
{
    return run.counters.find(name) != run.counters.end();
}

bool lowerIsBetter(Figure figure)
{
    return figure == Figure::CpuTime || figure == Figure::RealTime;
}

std::vector<std::string>& commandLine()
{
    static std::vector<std::string> strings;
    return strings;
}

} // namespace

std::string caseName(const Run& run)
{
    std::string name = run.run_name.function_name;
    for (const std::string* part : {&run.run_name.args, &run.run_name.threads}) {
        if (!part->empty())
            name += "/" + *part;
    }
    return name;
}

RecordingReporter::RecordingReporter(Figure figure, Reduction reduction)
    : _figure(figure)
    , _reduction(reduction)
{
}

void RecordingReporter::ReportRuns(const std::vector<Run>& runs)
{
    for (const Run& run : runs) {
        if (run.error_occurred)
            continue;
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.run_type != Run::RT_Iteration && !(median && _reduction == Reduction::Median))
            continue;
        Result result;
        // Cases may choose their unit; the table always reads nanoseconds.
        const double toNs = 1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit);
        result.cpuNs = run.GetAdjustedCPUTime() * toNs;
        result.realNs = run.GetAdjustedRealTime() * toNs;
        result.bytesPerSecond = counter(run, "bytes_per_second");
        result.itemsPerSecond = counter(run, "items_per_second");
        switch (_figure) {
        case Figure::CpuTime:
            result.figure = result.cpuNs;
            break;
        case Figure::RealTime:
            result.figure = result.realNs;
            break;
        case Figure::ItemsPerSecond:
            if (!hasCounter(run, "items_per_second"))
                continue;
            result.figure = result.itemsPerSecond;
            break;
        case Figure::Throughput:
            if (!hasCounter(run, "bytes_per_second") && !hasCounter(run, "items_per_second"))
                continue;
            result.figure = hasCounter(run, "bytes_per_second") ? result.bytesPerSecond
                                                                : result.itemsPerSecond;
            break;
        }
        const std::string name = caseName(run);
        const auto known = _results.find(name);
        bool keep = known == _results.end();
        if (!keep && _reduction == Reduction::Fastest) {
            keep = lowerIsBetter(_figure) ? result.figure < known->second.figure
                                          : result.figure > known->second.figure;
        } else if (!keep) {
            // Once a case has its median, later single runs of it don't replace that.
            keep = median || !_fromMedian[name];
        }
        if (keep) {
            _results[name] = result;
            _fromMedian[name] = median;
        }
    }
    std::vector<Run> shown = runs;
    annotate(shown);
    ConsoleReporter::ReportRuns(shown);
}

void RecordingReporter::annotate(std::vector<Run>&) { }

const Result* RecordingReporter::find(const std::string& name) const
{
    const auto it = _results.find(name);
    return it == _results.end() ? nullptr : &it->second;
}

double RecordingReporter::figure(const std::string& name) const
{
    const Result* result = find(name);
    return result == nullptr ? 0 : result->figure;
}

bool initialize(int argc, char** argv, int defaultRepetitions)
{
    std::vector<std::string>& all = commandLine();
    all.assign(argv, argv + argc);
    bool repetitionsGiven = false;
    for (const std::string& argument : all)
        repetitionsGiven = repetitionsGiven || argument.rfind("--benchmark_repetitions", 0) == 0;
    if (!repetitionsGiven && defaultRepetitions > 0) {
        all.push_back("--benchmark_repetitions=" + std::to_string(defaultRepetitions));
        all.push_back("--benchmark_enable_random_interleaving=true");
    }
    // The library may keep pointers into these strings for as long as the program runs.
    std::vector<char*> pointers;
    for (std::string& argument : all)
        pointers.push_back(&argument[0]);
    int count = int(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    return !benchmark::ReportUnrecognizedArguments(count, pointers.data());
}

const std::vector<std::string>& arguments()
{
    return commandLine();
}

bool run(int argc, char** argv, RecordingReporter& reporter, int defaultRepetitions)
{
    if (!initialize(argc, argv, defaultRepetitions))
        return false;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return true;
}

void printRatioHeading(const char* per)
{
    std::printf("\nRatios: peer time / YovoLib time per %s (above 1: YovoLib faster)\n", per);
}

} // namespace bench
} // namespace yovo
