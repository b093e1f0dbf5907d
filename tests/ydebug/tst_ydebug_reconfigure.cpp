// An operator reconfigures a stream's logging while its threads log: four threads write at every
// level with the cache on, a fifth switches the cache, the levels, the cache size, the trigger ids
// and the rotation size, and fires dumps. Run in the sanitizer builds, this is where a statement
// and a setter would meet on freed or half-written data; here it checks that every line that
// reaches the log, or a rotated copy of it, is whole and in the exact format.
#include "test_support.h"

#include "ydebug.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QRegularExpression>

#include <atomic>
#include <chrono>
#include <random>
#include <sys/mman.h>
#include <thread>
#include <vector>

namespace {

const char* const LEVEL = "(SYSTEM|ERROR|WARNING|NOTICE|DBG1|DBG2|DBG3)";
const char* const STAMP = "\\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d";

// The logger threads' items, each followed by its blank: any of them may be missing from a line
// when the level changes between two items of one statement, but never cut or mixed.
const char* const ITEMS = "(w |[0-3] |\\d+ |end |text |\\d\\.5 |dump )*";

struct LineShapes
{
    QRegularExpression printed;
    QRegularExpression cached;
    QRegularExpression dumpStart;
    QRegularExpression fault;

    explicit LineShapes(const QString& prefix)
    {
        const QString header = QStringLiteral("^\\[%1 %2 %3\\] ")
                                   .arg(prefix, QLatin1String(STAMP), QLatin1String(LEVEL));
        printed.setPattern(header + QStringLiteral("(\\d{5}: )?") + QLatin1String(ITEMS) + "$");
        // A cached line has one blank more behind the header, and another behind an id.
        cached.setPattern(header + QStringLiteral("(\\d{5}: )? ") + QLatin1String(ITEMS) + "$");
        dumpStart.setPattern(header
            + QStringLiteral("(\\*{24}ERROR/PROBLEM!!!!\\*{27}|Dropping the contents of the in "
                             "memory cache logger)$"));
        fault.setPattern(header + QStringLiteral("Fault 00042: dump$"));
    }

    bool matches(const QString& line) const
    {
        return line.isEmpty() || printed.match(line).hasMatch() || cached.match(line).hasMatch()
            || dumpStart.match(line).hasMatch() || fault.match(line).hasMatch();
    }
};

void logSome(YDebug::StreamId stream, int thread, int round)
{
    const QString text = QStringLiteral("text");
    switch (round % 8) {
    case 0:
        YLOG_SYSTEM(stream) << "w" << thread << round << "end" << yflush;
        break;
    case 1:
        YLOG_EX(7, stream, YDebug::ERROR) << "w" << thread << round << "end" << yflush;
        break;
    case 2:
        YLOG_WARNING(stream) << "w" << thread << text << 2.5 << yflush;
        break;
    case 3:
        YLOG_NOTICE(stream) << "w" << thread << round << yflush;
        break;
    case 4:
        YLOG_EX(123, stream, YDebug::DBG1) << "w" << thread << round << "end" << yflush;
        break;
    case 5:
        YLOG_DBG2(stream) << "w" << thread << text << yflush;
        break;
    case 6:
        YLOG_EX(9, stream, YDebug::DBG3) << "w" << thread << round << "end" << yflush;
        break;
    default:
        YLOG_DBG3(stream) << "w" << thread << round << "end" << yflush;
        break;
    }
}

void reconfigure(YDebug::StreamId stream, std::mt19937& random, int step)
{
    switch (step % 8) {
    case 0:
        YDebug::setCacheLogifEnabledValue(stream, random() % 3 != 0);
        break;
    case 1:
        YDebug::setDebugLevel(stream, int(random() % 6));
        break;
    case 2:
        YDebug::setCacheLogSize(stream, long(random() % 40));
        break;
    case 3:
        YDebug::setErrorIdListBufferTrigger(
            stream, random() % 2 ? QStringLiteral("42") : QStringLiteral("5,42,,77"));
        break;
    case 4:
        YDebug::setRotationSize(stream, int(random() % 2));
        break;
    case 5:
        YDebug::setSecForVerbosityFive(stream, unsigned(random() % 2));
        break;
    case 6:
        YLOG_EX(42, stream, YDebug::ERROR) << "dump" << yflush;
        break;
    default:
        // The getters race with the setters too.
        (void)YDebug::getCacheLogSize(stream);
        (void)YDebug::getErrorIdListBufferTrigger(stream);
        (void)YDebug::getSecForVerbosityFive(stream);
        (void)YDebug::getCacheLogifEnabledValue(stream);
        break;
    }
}

} // namespace

TEST(YDebugReconfigure, FourLoggersAndAnOperatorForTenSeconds)
{
    yovotest::TempDir dir;
    const QString base = yovotest::uniqueName("reconf");
    const QString path = dir.file(base + QStringLiteral(".log"));
    const YDebug::StreamId stream = YDebug::registerStream("RC", path.toLocal8Bit().constData());
    ASSERT_NE(YDebug::STDERR, stream);
    YDebug::setSecForVerbosityFive(stream, 1);
    YDebug::setErrorIdListBufferTrigger(stream, QStringLiteral("42"));
    YDebug::setCacheLogSize(stream, 20);
    YDebug::setCacheLogifEnabledValue(stream, true);
    YDebug::setDebugLevel(stream, 2);

    std::atomic<bool> stop(false);
    std::vector<std::thread> loggers;
    for (int t = 0; t < 4; ++t) {
        loggers.emplace_back([&stop, stream, t] {
            for (int round = 0; !stop.load(std::memory_order_relaxed); ++round) {
                logSome(stream, t, round);
                // Bursts with pauses keep the contention while the log stays a few megabytes.
                if (round % 16 == 15)
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        });
    }
    std::thread operatorThread([&stop, stream] {
        std::mt19937 random(20261124);
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        for (int step = 0; std::chrono::steady_clock::now() < end; ++step) {
            reconfigure(stream, random, step);
            if (step % 8 == 7)
                std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
        stop.store(true);
    });
    operatorThread.join();
    for (std::thread& logger : loggers)
        logger.join();
    YDebug::setCacheLogifEnabledValue(stream, false);
    YDebug::setRotationSize(stream, 0);
    YDebug::unregisterStream(stream);
    // The rotation's named semaphore outlives its object until the process ends; nothing else
    // would remove its name.
    const QByteArray semaphore = "/ysem.Global." + base.toLatin1() + "_rotationSem";
    shm_unlink(semaphore.constData());
    shm_unlink((semaphore + ".guard").constData());

    const LineShapes shapes(QStringLiteral("RC"));
    const QStringList files = QDir(dir.path()).entryList(QDir::Files);
    ASSERT_FALSE(files.isEmpty());
    long lines = 0, faults = 0;
    for (const QString& name : files) {
        const QByteArray text = yovotest::readFile(dir.file(name));
        // A printed line ends in CR LF; the lines inside a dump end in a line feed alone.
        EXPECT_TRUE(text.isEmpty() || text.endsWith("\r\n")) << name.toStdString();
        for (QByteArray line : text.split('\n')) {
            if (line.endsWith('\r'))
                line.chop(1);
            const QString s = QString::fromLatin1(line);
            ASSERT_TRUE(shapes.matches(s)) << name.toStdString() << ": " << line.constData();
            ++lines;
            if (shapes.fault.match(s).hasMatch())
                ++faults;
        }
    }
    EXPECT_GT(lines, 1000);
    EXPECT_GT(faults, 0);
}
