// Reading Debian's php.ini-production with both of the library's readers, side by side with
// QSettings (INI format) and inih; and changing one directive and writing the file back, against
// QSettings::setValue plus sync(). Both writers make the new file durable before it replaces the
// old one (QSettings writes through QSaveFile, which syncs to disk at commit).
#include "php_ini_parser.h"
#include "scan_dir.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <ini.h>

#include <QDir>
#include <QFile>
#include <QSettings>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/stat.h>

namespace {

// YOVO_PHP_INI names another input; YOVO_BENCH_DIR the folder of the working copies.
QByteArray input()
{
    static const QByteArray text = []() {
        const QString path = qEnvironmentVariableIsEmpty("YOVO_PHP_INI")
            ? QStringLiteral("/usr/lib/php/8.2/php.ini-production")
            : qEnvironmentVariable("YOVO_PHP_INI");
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "cannot read %s (package php8.2-cli)\n", qPrintable(path));
            std::exit(1);
        }
        return file.readAll();
    }();
    return text;
}

QString workingCopy(const char* name)
{
    const QString dir = qEnvironmentVariableIsEmpty("YOVO_BENCH_DIR")
        ? QDir::tempPath()
        : qEnvironmentVariable("YOVO_BENCH_DIR");
    const QString path = dir + QStringLiteral("/yovolib-bench-") + QLatin1String(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(input()) < 0) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        std::exit(1);
    }
    return path;
}

// QSettings keeps parsed files in a process-wide cache and reads a file again only when its size
// or time changed: each round gives the file a new time, outside the measurement, so that every
// reader really parses.
void touch(const QString& path, long& second)
{
    struct timespec times[2];
    times[0].tv_sec = times[1].tv_sec = ++second;
    times[0].tv_nsec = times[1].tv_nsec = 0;
    utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0);
}

template<typename Parse> void parseLoop(benchmark::State& state, const char* name, Parse parse)
{
    const QString path = workingCopy(name);
    long second = 1000000000;
    for (auto _ : state) {
        state.PauseTiming();
        touch(path, second);
        state.ResumeTiming();
        parse(path);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * input().size());
    QFile::remove(path);
}

void BM_Parse_YPhpIniParser(benchmark::State& state)
{
    parseLoop(state, "parser.ini", [](const QString& path) {
        YPhpIniParser parser;
        parser.addFile(path);
        benchmark::DoNotOptimize(parser.value(QStringLiteral("memory_limit")));
    });
}
BENCHMARK(BM_Parse_YPhpIniParser);

void BM_Parse_YScanDir(benchmark::State& state)
{
    parseLoop(state, "scandir.ini", [](const QString& path) {
        YScanDir scanner;
        scanner.addFile(path);
        scanner.scan();
        QString value;
        scanner.getStringValue(QStringLiteral("memory_limit"), value);
        benchmark::DoNotOptimize(value);
    });
}
BENCHMARK(BM_Parse_YScanDir);

void BM_Parse_QSettings(benchmark::State& state)
{
    parseLoop(state, "qsettings.ini", [](const QString& path) {
        QSettings settings(path, QSettings::IniFormat);
        benchmark::DoNotOptimize(settings.value(QStringLiteral("PHP/memory_limit")));
    });
}
BENCHMARK(BM_Parse_QSettings);

int storeEntry(void* user, const char* section, const char* name, const char* value)
{
    auto& table = *static_cast<std::map<std::string, std::string>*>(user);
    table[std::string(section) + '/' + name] = value;
    return 1;
}

void BM_Parse_Inih(benchmark::State& state)
{
    parseLoop(state, "inih.ini", [](const QString& path) {
        std::map<std::string, std::string> table;
        ini_parse(QFile::encodeName(path).constData(), storeEntry, &table);
        benchmark::DoNotOptimize(table);
    });
}
BENCHMARK(BM_Parse_Inih);

void BM_Modify_YScanDir(benchmark::State& state)
{
    const QString path = workingCopy("modify-scandir.ini");
    int i = 0;
    for (auto _ : state) {
        YScanDir::modifyDirective(YDebug::STDERR, path, QStringLiteral("memory_limit"),
            (++i % 2) ? QStringLiteral("256M") : QStringLiteral("128M"));
    }
    state.SetItemsProcessed(state.iterations());
    QFile::remove(path);
}
BENCHMARK(BM_Modify_YScanDir)->Unit(benchmark::kMicrosecond);

void BM_Modify_QSettings(benchmark::State& state)
{
    const QString path = workingCopy("modify-qsettings.ini");
    int i = 0;
    for (auto _ : state) {
        QSettings settings(path, QSettings::IniFormat);
        settings.setValue(QStringLiteral("PHP/memory_limit"),
            (++i % 2) ? QStringLiteral("256M") : QStringLiteral("128M"));
        settings.sync();
    }
    state.SetItemsProcessed(state.iterations());
    QFile::remove(path);
}
BENCHMARK(BM_Modify_QSettings)->Unit(benchmark::kMicrosecond);

} // namespace

int main(int argc, char** argv)
{
    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::Throughput, yovo::bench::Reduction::Median);
    if (!yovo::bench::run(argc, argv, reporter))
        return 1;
    const double parser = reporter.figure("BM_Parse_YPhpIniParser");
    const double scanner = reporter.figure("BM_Parse_YScanDir");
    const double qsettings = reporter.figure("BM_Parse_QSettings");
    const double inih = reporter.figure("BM_Parse_Inih");
    if (parser > 0 && scanner > 0 && qsettings > 0 && inih > 0) {
        std::printf("\nparsing php.ini-production, MB/s: YPhpIniParser %.1f, YScanDir %.1f, "
                    "QSettings %.1f, inih %.1f\n",
            parser / 1e6, scanner / 1e6, qsettings / 1e6, inih / 1e6);
        std::printf(
            "ratio YPhpIniParser/QSettings = %.2f, YScanDir/QSettings = %.2f (aim >= 1.0)\n",
            parser / qsettings, scanner / qsettings);
        std::printf("ratio YPhpIniParser/inih = %.2f, YScanDir/inih = %.2f (aim >= 0.5)\n",
            parser / inih, scanner / inih);
    }
    const double modify = reporter.figure("BM_Modify_YScanDir");
    const double modifyPeer = reporter.figure("BM_Modify_QSettings");
    if (modify > 0 && modifyPeer > 0) {
        std::printf("change one directive and write back, per second: YScanDir %.0f, QSettings "
                    "%.0f\nratio YScanDir/QSettings = %.2f (aim >= 1.0)\n",
            modify, modifyPeer, modify / modifyPeer);
    }
    return 0;
}
