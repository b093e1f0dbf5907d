// What the benchmark programs share: a console reporter that also keeps each case's figures for
// the summary printed after the runs, and the handling of the command line.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace yovo {
namespace bench {

// The figure that decides which run of a case is kept. Times are lower-is-better, rates
// higher-is-better.
enum class Figure
{
    CpuTime,
    RealTime,
    ItemsPerSecond,
    // bytes_per_second where the case counts bytes, items_per_second otherwise.
    Throughput
};

enum class Reduction
{
    // The best run: other load on a shared machine only ever slows a run down.
    Fastest,
    // The median aggregate when there are repetitions, the latest run otherwise.
    Median
};

// One case's figures, all taken from the same run. Times are nanoseconds per iteration; a
// counter the run doesn't have is 0.
struct Result
{
    double cpuNs = 0;
    double realNs = 0;
    double bytesPerSecond = 0;
    double itemsPerSecond = 0;
    // The one the reporter was asked to keep.
    double figure = 0;
};

// A case's name without the decorations the options add (repetitions, minimum time, time
// type): the function name, its arguments and its thread count, as registered.
std::string caseName(const benchmark::BenchmarkReporter::Run& run);

class RecordingReporter : public benchmark::ConsoleReporter
{
public:
    RecordingReporter(Figure figure, Reduction reduction);

    void ReportRuns(const std::vector<Run>& runs) override;

    // Null when the case didn't run, failed or lacks the figure.
    const Result* find(const std::string& name) const;
    // The kept figure, 0 when there is none.
    double figure(const std::string& name) const;
    const std::map<std::string, Result>& results() const { return _results; }

protected:
    // Lets a program add counters of its own to the runs before they are shown; the runs are
    // already recorded.
    virtual void annotate(std::vector<Run>& runs);

private:
    Figure _figure;
    Reduction _reduction;
    std::map<std::string, Result> _results;
    std::map<std::string, bool> _fromMedian;
};

// Hands the command line to the benchmark library; false, after saying which, when some of the
// arguments aren't its flags. Unless the user chose a number of repetitions, a positive
// defaultRepetitions adds that many, in shuffled order, so that a burst of other load doesn't
// hit every run of one case.
bool initialize(int argc, char** argv, int defaultRepetitions = 0);

// The command line as the benchmark library was given it, defaults included.
const std::vector<std::string>& arguments();

// initialize(), then every selected case through the reporter.
bool run(int argc, char** argv, RecordingReporter& reporter, int defaultRepetitions = 0);

// The heading of a table of ratios of time per call: above 1 means YovoLib is faster.
void printRatioHeading(const char* per);

} // namespace bench
} // namespace yovo
