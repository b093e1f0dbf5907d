// Four processes log a quarter of a million numbered lines each to one stream that rotates at
// 1 MiB: afterwards the log and its dated copies hold every line exactly once, whole, and each
// writer's lines in the order written.
#include "test_support.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QProcess>

#include <algorithm>
#include <cstring>
#include <iostream>
#include <memory>
#include <utility>
#include <vector>

namespace {

const int WRITERS = 4;
const int LINES = 250000;

// What ydebug_log_writer writes: "[dd.MM.yyyy hh:mm:ss ERROR] <tag> <n> payload-<40 x> \r".
// Checked by hand rather than with a regular expression: there are a million of them.
bool parseLine(const char* p, int size, int* writer, int* number)
{
    static const char stamp[] = "[00.00.0000 00:00:00 ERROR] ";
    const int stampSize = int(sizeof(stamp)) - 1;
    if (size < stampSize + 4)
        return false;
    for (int i = 0; i < stampSize; ++i) {
        const bool ok = stamp[i] == '0' ? (p[i] >= '0' && p[i] <= '9') : p[i] == stamp[i];
        if (!ok)
            return false;
    }
    const char* q = p + stampSize;
    const char* end = p + size;
    if (*q < 'A' || *q >= 'A' + WRITERS || q[1] != ' ')
        return false;
    *writer = *q - 'A';
    q += 2;
    int n = 0, digits = 0;
    while (q < end && *q >= '0' && *q <= '9' && digits < 7) {
        n = n * 10 + (*q++ - '0');
        ++digits;
    }
    *number = n;
    static const QByteArray tail = " payload-" + QByteArray(40, 'x') + " \r";
    return digits > 0 && end - q == tail.size() && memcmp(q, tail.constData(), tail.size()) == 0;
}

// The dated copies in the order they were made, then the log itself.
QStringList filesInOrder(const QString& dir, const QString& base)
{
    std::vector<std::pair<QDateTime, QString>> copies;
    for (const QString& name :
        QDir(dir).entryList({base + QStringLiteral("_*.log")}, QDir::Files)) {
        const QString stamp = name.mid(base.size() + 1, 13);
        copies.emplace_back(QDateTime::fromString(stamp, QStringLiteral("ddMMyy_hhmmss")), name);
    }
    std::sort(copies.begin(), copies.end());
    QStringList files;
    for (const auto& copy : copies) {
        EXPECT_TRUE(copy.first.isValid()) << qPrintable(copy.second);
        files.append(copy.second);
    }
    files.append(base + QStringLiteral(".log"));
    return files;
}

} // namespace

TEST(YDebugRotationSoak, FourProcessesLoseNoLineTearNoneAndKeepTheirOrder)
{
    yovotest::TempDir dir;
    const QString base = yovotest::uniqueName("soak");
    const QString path = dir.file(base + QStringLiteral(".log"));
    std::vector<std::unique_ptr<QProcess>> writers;
    for (int w = 0; w < WRITERS; ++w) {
        writers.emplace_back(new QProcess);
        writers.back()->setProcessChannelMode(QProcess::ForwardedChannels);
        writers.back()->start(yovotest::helperPath("ydebug_log_writer"),
            {path, QString(QChar('A' + w)), QString::number(LINES)});
    }
    for (auto& writer : writers) {
        ASSERT_TRUE(writer->waitForFinished(110000));
        ASSERT_EQ(QProcess::NormalExit, writer->exitStatus());
        ASSERT_EQ(0, writer->exitCode());
    }

    const QStringList files = filesInOrder(dir.path(), base);
    std::cout << files.size() - 1 << " dated copies" << std::endl;
    // About 80 MB in all, but a dated copy's name has whole seconds: a rotation that falls in
    // the second of the last one fails and is tried again at the next line, so the number of
    // copies follows the run's length in seconds.
    EXPECT_GE(files.size(), 3);
    std::vector<std::vector<unsigned char>> seen(WRITERS, std::vector<unsigned char>(LINES, 0));
    std::vector<int> last(WRITERS, -1);
    qint64 lines = 0, torn = 0, outOfOrder = 0, twice = 0;
    for (const QString& name : files) {
        const QByteArray text = yovotest::readFile(dir.file(name));
        ASSERT_TRUE(text.isEmpty() || text.endsWith('\n'))
            << "cut at the end: " << qPrintable(name);
        const char* p = text.constData();
        const char* end = p + text.size();
        while (p < end) {
            const char* eol = static_cast<const char*>(memchr(p, '\n', size_t(end - p)));
            const int size = int(eol - p);
            int writer = 0, number = 0;
            ++lines;
            if (!parseLine(p, size, &writer, &number) || number >= LINES) {
                if (++torn <= 5)
                    ADD_FAILURE() << "torn line in " << qPrintable(name) << ": "
                                  << QByteArray(p, size).constData();
            } else {
                if (seen[size_t(writer)][size_t(number)]++)
                    ++twice;
                if (number <= last[size_t(writer)])
                    ++outOfOrder;
                last[size_t(writer)] = number;
            }
            p = eol + 1;
        }
    }
    qint64 missing = 0;
    for (const auto& writer : seen)
        missing += std::count(writer.begin(), writer.end(), 0);
    std::cout << lines << " lines: " << torn << " torn, " << missing << " missing, " << twice
              << " twice, " << outOfOrder << " out of order" << std::endl;
    EXPECT_EQ(qint64(WRITERS) * LINES, lines);
    EXPECT_EQ(0, torn);
    EXPECT_EQ(0, missing);
    EXPECT_EQ(0, twice);
    EXPECT_EQ(0, outOfOrder);
}
