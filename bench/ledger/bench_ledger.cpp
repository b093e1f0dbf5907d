// Stored messages per second through yledgerd, a real process with its real durability (WAL,
// synchronous = full, one commit per message), with 1 and 4 client threads; each request on a
// connection of its own, as the message service wants. p50 and p99 are the request's round trip
// in microseconds. The database lies in YOVO_BENCH_DIR (default: the temporary folder).
//
// Next to the daemon runs its yardstick, the same service written plainly on POSIX sockets and
// SQLite's C API (plain_ledger_server.cpp), in a process of its own with a database of its own,
// taking the same frames from the same clients and storing the same rows as durably. Each pair
// of runs with the same number of clients gives "vs_plain_c": yledgerd's messages per second
// divided by the plain server's; the summary at the end gives the ratio of the mean rates.
#include "../../examples/ledger/ledger_common.h"
#include "plain_ledger_server.h"

#include "bench_support.h"

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
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

unsigned short daemonPort = 0;
unsigned short plainPort = 0;
std::atomic<int> clientNumber {0};

double percentile(std::vector<double> values, double fraction)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, size_t(fraction * double(values.size())))];
}

void storeMessages(benchmark::State& state, const unsigned short* port)
{
    const QString client = QStringLiteral("bench%1").arg(clientNumber++);
    std::vector<double> mine;
    int seq = 0;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const std::unique_ptr<YMessage> answer = ledgerRequest("127.0.0.1", *port,
            QStringLiteral(LEDGER_STORE), ++seq, client + QStringLiteral("\tbenchmark payload"));
        mine.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
                .count());
        if (answer->getStringType() != QLatin1String(LEDGER_ACK)) {
            state.SkipWithError("the server didn't acknowledge");
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

// Gives each run of yledgerd the ratio of its rate to the plain server's run of the same round
// with as many clients, and adds up the rates of every round for the summary at the end.
class RatioReporter : public yovo::bench::RecordingReporter
{
public:
    RatioReporter()
        : RecordingReporter(yovo::bench::Figure::ItemsPerSecond, yovo::bench::Reduction::Fastest)
    {
    }

    // The rates of each round, by number of clients.
    std::map<int64_t, std::vector<double>> plain;
    std::map<int64_t, std::vector<double>> ours;
    std::map<int64_t, std::vector<double>> ratios;

protected:
    void annotate(std::vector<Run>& runs) override
    {
        for (Run& run : runs) {
            const auto rate = run.counters.find("items_per_second");
            if (run.error_occurred || run.run_type != Run::RT_Iteration
                || rate == run.counters.end())
                continue;
            std::string name = yovo::bench::caseName(run);
            const size_t daemonAt = name.find("yledgerd");
            if (name.find("plain_c") != std::string::npos) {
                plain[run.threads].push_back(rate->second);
            } else if (daemonAt != std::string::npos) {
                const double plainRate
                    = figure(name.replace(daemonAt, std::strlen("yledgerd"), "plain_c"));
                if (plainRate <= 0)
                    continue;
                ours[run.threads].push_back(rate->second);
                ratios[run.threads].push_back(rate->second / plainRate);
                run.counters["vs_plain_c"] = benchmark::Counter(ratios[run.threads].back());
            }
        }
    }
};

double mean(const std::vector<double>& values)
{
    double sum = 0;
    for (const double value : values)
        sum += value;
    return values.empty() ? 0 : sum / double(values.size());
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::ERROR);
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::ERROR);
    if (!yovo::bench::initialize(argc, argv))
        return 1;
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
    // The plain server is forked before anything else runs threads, and only ever uses its
    // sockets and SQLite; its socket is the parent's no more once the child has it.
    const QByteArray plainDatabase = QFile::encodeName(dir.filePath(QStringLiteral("plain.db")));
    const int listening = plainLedgerListen(&plainPort);
    if (listening < 0) {
        std::perror("the plain server can't listen");
        return 1;
    }
    const pid_t plainServer = fork();
    if (plainServer == 0)
        _exit(plainLedgerServe(listening, plainDatabase.constData()) == 0 ? 0 : 1);
    close(listening);
    if (plainServer < 0) {
        std::perror("can't start the plain server");
        return 1;
    }

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

    // Side by side, with the same clients, in short turns: a commit's flush to the disk costs
    // most of a request, and what other programs write at the same moment makes it vary a lot
    // from one second to the next. Turns spread that over both servers alike.
    const int ROUNDS = 5;
    for (int round = 1; round <= ROUNDS; ++round) {
        for (const int threads : {1, 4}) {
            const std::string suffix = "/round:" + std::to_string(round);
            benchmark::RegisterBenchmark(
                ("BM_StoreMessage/plain_c" + suffix).c_str(), storeMessages, &plainPort)
                ->Threads(threads)
                ->UseRealTime()
                ->MinTime(1.0);
            benchmark::RegisterBenchmark(
                ("BM_StoreMessage/yledgerd" + suffix).c_str(), storeMessages, &daemonPort)
                ->Threads(threads)
                ->UseRealTime()
                ->MinTime(1.0);
        }
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    // A round in which the disk stalled moves the mean a lot; the median of the rounds' ratios
    // shows the usual case.
    for (const auto& rates : reporter.ours) {
        const double ours = mean(rates.second);
        const double plain = mean(reporter.plain[rates.first]);
        std::printf("%lld client(s), %zu rounds: yledgerd %.1f msg/s, plain C %.1f msg/s (means), "
                    "ratio of the means %.3f, median ratio %.3f (aim >= 0.8)\n",
            static_cast<long long>(rates.first), rates.second.size(), ours, plain, ours / plain,
            percentile(reporter.ratios[rates.first], 0.5));
    }
    daemon.terminate();
    daemon.waitForFinished(40000);
    kill(plainServer, SIGTERM);
    waitpid(plainServer, nullptr, 0);
    return 0;
}
