// The cost of a log statement: hidden by the level, and printed to a file with one write and
// flush per line, side by side with spdlog and a plain C loop doing the same.
#include "ydebug.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <QDir>
#include <QFile>

#include <cstdio>
#include <ctime>
#include <string>

namespace {

// YOVO_BENCH_DIR chooses the folder: a tmpfs one (/dev/shm) shows the cost of the logging code
// itself, a disk one adds the file system's writeback, which swings from run to run.
QString benchFile(const char* name)
{
    const QString dir = qEnvironmentVariableIsEmpty("YOVO_BENCH_DIR")
        ? QDir::tempPath()
        : qEnvironmentVariable("YOVO_BENCH_DIR");
    const QString path = dir + QStringLiteral("/yovolib-bench-") + QLatin1String(name);
    QFile::remove(path);
    return path;
}

void BM_HiddenStatement_NoItems(benchmark::State& state)
{
    const YDebug::StreamId log
        = YDebug::registerStream("B", benchFile("hidden0.log").toLocal8Bit().constData());
    for (auto _ : state)
        YLOG_DBG3(log) << yflush;
    YDebug::unregisterStream(log);
}
BENCHMARK(BM_HiddenStatement_NoItems);

void BM_HiddenStatement_ThreeItems(benchmark::State& state)
{
    const YDebug::StreamId log
        = YDebug::registerStream("B", benchFile("hidden3.log").toLocal8Bit().constData());
    const QString user = QStringLiteral("user@example");
    int i = 0;
    for (auto _ : state)
        YLOG_DBG3(log) << ++i << "request" << user << yflush;
    YDebug::unregisterStream(log);
}
BENCHMARK(BM_HiddenStatement_ThreeItems);

// The same statement where the stream keeps a cache: it is hidden from the file but formatted
// into the cache, the full path that the fast test must leave to such streams.
void BM_HiddenStatement_ThreeItemsCached(benchmark::State& state)
{
    const YDebug::StreamId log
        = YDebug::registerStream("B", benchFile("hidden3c.log").toLocal8Bit().constData());
    YDebug::setCacheLogSize(log, 100);
    YDebug::setCacheLogifEnabledValue(log, true);
    const QString user = QStringLiteral("user@example");
    int i = 0;
    for (auto _ : state)
        YLOG_DBG3(log) << ++i << "request" << user << yflush;
    YDebug::setCacheLogifEnabledValue(log, false);
    YDebug::unregisterStream(log);
}
BENCHMARK(BM_HiddenStatement_ThreeItemsCached);

void BM_PrintedLine_YDebug(benchmark::State& state)
{
    const QString path = benchFile("ydebug.log");
    const YDebug::StreamId log = YDebug::registerStream("B", path.toLocal8Bit().constData());
    int i = 0;
    for (auto _ : state)
        YLOG_ERROR(log) << "request" << ++i << "served in" << 3.5 << "ms" << yflush;
    state.SetItemsProcessed(state.iterations());
    YDebug::unregisterStream(log);
    QFile::remove(path);
}
BENCHMARK(BM_PrintedLine_YDebug);

void BM_PrintedLine_Spdlog(benchmark::State& state)
{
    const QString path = benchFile("spdlog.log");
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path.toStdString(), true);
    spdlog::logger logger("bench", sink);
    logger.set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "[B %d.%m.%Y %H:%M:%S %l] %v", spdlog::pattern_time_type::local, "\r\n"));
    logger.flush_on(spdlog::level::trace);
    int i = 0;
    for (auto _ : state)
        logger.error("request {} served in {} ms ", ++i, 3.5);
    state.SetItemsProcessed(state.iterations());
    QFile::remove(path);
}
BENCHMARK(BM_PrintedLine_Spdlog);

void BM_PrintedLine_CLoop(benchmark::State& state)
{
    const QString path = benchFile("cloop.log");
    FILE* file = fopen(path.toLocal8Bit().constData(), "a+b");
    char stamp[32];
    time_t stampSecond = 0;
    int i = 0;
    for (auto _ : state) {
        const time_t now = time(nullptr);
        if (now != stampSecond) {
            struct tm parts;
            localtime_r(&now, &parts);
            strftime(stamp, sizeof stamp, "%d.%m.%Y %H:%M:%S", &parts);
            stampSecond = now;
        }
        fprintf(file, "[B %s ERROR] request %d served in %g ms \r\n", stamp, ++i, 3.5);
        fflush(file);
    }
    state.SetItemsProcessed(state.iterations());
    fclose(file);
    QFile::remove(path);
}
BENCHMARK(BM_PrintedLine_CLoop);

} // namespace

int main(int argc, char** argv)
{
    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::ItemsPerSecond, yovo::bench::Reduction::Median);
    if (!yovo::bench::run(argc, argv, reporter))
        return 1;
    const double ours = reporter.figure("BM_PrintedLine_YDebug");
    const double peer = reporter.figure("BM_PrintedLine_Spdlog");
    const double plain = reporter.figure("BM_PrintedLine_CLoop");
    if (ours > 0 && peer > 0 && plain > 0)
        printf("\nprinted lines per second: YDebug %.0f, spdlog %.0f, C loop %.0f\n"
               "ratio YDebug/spdlog = %.2f (aim >= 1.0), YDebug/C loop = %.2f (aim >= 0.8)\n",
            ours, peer, plain, ours / peer, ours / plain);
    return 0;
}
