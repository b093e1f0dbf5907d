// Stored messages per second through yledgerd, a real process with its real durability (WAL,
// synchronous = full, one commit per message), with 1 and 4 client threads; each request on a
// connection of its own, as the message service wants. p50 and p99 are the request's round trip
// in microseconds. The database lies in YOVO_BENCH_DIR (default: the temporary folder).
#include "../../examples/ledger/ledger_common.h"

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

namespace {

unsigned short daemonPort = 0;
std::atomic<int> clientNumber {0};

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(fraction * double(values.size())))];
}

void BM_StoreMessage(benchmark::State& state)
{
    const QString client = QStringLiteral("bench%1").arg(clientNumber++);
    std::vector<double> mine;
    int seq = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const std::unique_ptr<YMessage> answer = ledgerRequest("127.0.0.1", daemonPort,
            QStringLiteral(LEDGER_STORE), ++seq, client + QStringLiteral("\tbenchmark payload"));
        mine.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
        if (answer->getStringType() != QLatin1String(LEDGER_ACK)) {
            state.SkipWithError("the daemon didn't acknowledge");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    // Each thread's percentiles, averaged over the threads.
    state.counters["p50_us"]
        = benchmark::Counter(percentile(mine, 0.50), benchmark::Counter::kAvgThreads);
    state.counters["p99_us"]
        = benchmark::Counter(percentile(mine, 0.99), benchmark::Counter::kAvgThreads);
}
BENCHMARK(BM_StoreMessage)->Threads(1)->Threads(4)->UseRealTime()->MinTime(3.0);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::ERROR);
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::ERROR);
    benchmark::Initialize(&argc, argv);
    const QByteArray benchDir = qgetenv("YOVO_BENCH_DIR");
    QTemporaryDir dir(benchDir.isEmpty()
            ? QDir::tempPath() + QStringLiteral("/bench_ledger_XXXXXX")
            : QString::fromLocal8Bit(benchDir) + QStringLiteral("/bench_ledger_XXXXXX"));
    const QString config = dir.filePath(QStringLiteral("yledgerd.ini"));
    QFile file(config);
    file.open(QIODevice::WriteOnly);
    file.write(QStringLiteral("ledger.port = 0\nledger.log_level = 1\nledger.log_file = %1\n"
                              "ledger.database = %2\nledger.shared_table = bench_ledger_%3\n")
                   .arg(dir.filePath(QStringLiteral("yledgerd.log")),
                       dir.filePath(QStringLiteral("ledger.db")))
                   .arg(QCoreApplication::applicationPid())
                   .toLocal8Bit());
    file.close();

    QProcess daemon;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("NOTIFY_SOCKET"));
    daemon.setProcessEnvironment(environment);
    daemon.start(
        QStringLiteral(YLEDGERD), {QStringLiteral("-e"), QStringLiteral("--config"), config});
    QByteArray output;
    while (!output.contains("listening on port") && daemon.waitForReadyRead(15000))
        output += daemon.readAllStandardOutput();
    const int at = output.indexOf("listening on port ");
    if (at < 0) {
        std::fprintf(
            stderr, "yledgerd did not start: %s\n", daemon.readAllStandardError().constData());
        return 1;
    }
    daemonPort = static_cast<unsigned short>(output.mid(at + 18).trimmed().toInt());
    benchmark::RunSpecifiedBenchmarks();
    daemon.terminate();
    daemon.waitForFinished(40000);
    return 0;
}
