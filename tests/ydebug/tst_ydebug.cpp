#include "ydebug.h"

#include "test_support.h"
#include "yexception.h"
#include "yprintable.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QRegularExpression>

#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

using yovotest::maskTimestamps;
using yovotest::readFile;
using yovotest::TempDir;

namespace {

class LogFile
{
public:
    explicit LogFile(const QByteArray& prefix = "DB", const char* name = "app.log")
        : _path(_dir.file(QString::fromLatin1(name)))
    {
        stream = YDebug::registerStream(prefix, _path.toLocal8Bit().constData());
    }
    ~LogFile() { YDebug::unregisterStream(stream); }
    QByteArray text() const { return readFile(_path); }
    QByteArray masked() const { return maskTimestamps(text()); }
    const QString& path() const { return _path; }
    const TempDir& dir() const { return _dir; }

    YDebug::StreamId stream;

private:
    TempDir _dir;
    QString _path;
};

class TwiceCounted : public YPrintable
{
public:
    QString toString() const override
    {
        ++calls;
        return QStringLiteral("printable");
    }
    mutable int calls = 0;
};

} // namespace

TEST(YDebug, LineFormatWithPrefix)
{
    LogFile log;
    YLOG_ERROR(log.stream) << "connect" << 5 << yflush;
    EXPECT_EQ("[DB <TS> ERROR] connect 5 \r\n", log.masked());
    EXPECT_TRUE(QRegularExpression(
        QStringLiteral("^\\[DB \\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d ERROR\\] "))
                    .match(QString::fromLatin1(log.text()))
                    .hasMatch());
}

TEST(YDebug, TimestampIsTheLocalTime)
{
    LogFile log;
    const QDateTime before = QDateTime::currentDateTime();
    YLOG_ERROR(log.stream) << "x" << yflush;
    const QDateTime after = QDateTime::currentDateTime();
    const QDateTime stamp = QDateTime::fromString(
        QString::fromLatin1(log.text().mid(4, 19)), QStringLiteral("dd.MM.yyyy hh:mm:ss"));
    ASSERT_TRUE(stamp.isValid());
    EXPECT_GE(stamp.toSecsSinceEpoch(), before.toSecsSinceEpoch());
    EXPECT_LE(stamp.toSecsSinceEpoch(), after.toSecsSinceEpoch());
}

TEST(YDebug, LineFormatWithMilliseconds)
{
    LogFile log;
    YDebug::setTimestampWithMilliseconds(true);
    YLOG_ERROR(log.stream) << "connect" << 5 << yflush;
    YDebug::setTimestampWithMilliseconds(false);
    YLOG_ERROR(log.stream) << "connect" << 5 << yflush;
    const QString text = QString::fromLatin1(log.text());
    EXPECT_TRUE(QRegularExpression(
        QStringLiteral("^\\[DB \\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d "
                       "ERROR\\] connect 5 \r\n\\[DB \\d\\d\\.\\d\\d\\.\\d{4} "
                       "\\d\\d:\\d\\d:\\d\\d ERROR\\] connect 5 \r\n$"))
                    .match(text)
                    .hasMatch())
        << qPrintable(text);
}

TEST(YDebug, LineFormatWithProcessAndThreadIds)
{
    LogFile log;
    YDebug::setPrintProcessIdAndThreadId(true);
    EXPECT_TRUE(YDebug::getPrintProcessIdAndThreadId());
    YLOG_ERROR(log.stream) << "connect" << 5 << yflush;
    YDebug::setPrintProcessIdAndThreadId(false);
    const QByteArray expected = "[DB <TS> p" + QByteArray::number(getpid()) + "/t"
        + QByteArray::number(qlonglong(syscall(SYS_gettid))) + " ERROR] connect 5 \r\n";
    EXPECT_EQ(expected, log.masked());
}

TEST(YDebug, LineFormatWithErrorId)
{
    LogFile log;
    YLOG_EX(42, log.stream, YDebug::ERROR) << "connect" << 5 << yflush;
    EXPECT_EQ("[DB <TS> ERROR] 00042: connect 5 \r\n", log.masked());
}

TEST(YDebug, ErrorIdsArePaddedToFiveDigits)
{
    LogFile log;
    YLOG_EX(7, log.stream, YDebug::ERROR) << "a" << yflush;
    YLOG_EX(123456, log.stream, YDebug::ERROR) << "b" << yflush;
    EXPECT_EQ("[DB <TS> ERROR] 00007: a \r\n[DB <TS> ERROR] 123456: b \r\n", log.masked());
}

TEST(YDebug, StdioStreamHasNoPrefix)
{
    testing::internal::CaptureStderr();
    YLOG_ERROR(YDebug::STDERR) << "connect" << 5 << yflush;
    EXPECT_EQ("[<TS> ERROR] connect 5 \r\n",
        maskTimestamps(QByteArray::fromStdString(testing::internal::GetCapturedStderr())));
}

TEST(YDebug, StandardStreamsStartAtWarning)
{
    EXPECT_EQ(YDebug::WARNING, YDebug::getDebugLevel(YDebug::STDOUT));
    EXPECT_EQ(YDebug::WARNING, YDebug::getDebugLevel(YDebug::STDERR));
    testing::internal::CaptureStdout();
    YLOG_NOTICE(YDebug::STDOUT) << "hidden" << yflush;
    YLOG_WARNING(YDebug::STDOUT) << "shown" << yflush;
    EXPECT_EQ("[<TS> WARNING] shown \r\n",
        maskTimestamps(QByteArray::fromStdString(testing::internal::GetCapturedStdout())));
}

TEST(YDebug, FileStreamStartsAtErrorAndHidesTheRest)
{
    LogFile log;
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(log.stream));
    YLOG_WARNING(log.stream) << "hidden" << yflush;
    YLOG_DBG3(log.stream) << "hidden" << yflush;
    EXPECT_EQ("", log.text());
}

TEST(YDebug, OutOfRangeLevelsSetZero)
{
    LogFile log;
    YDebug::setDebugLevel(log.stream, 3);
    EXPECT_EQ(YDebug::DBG1, YDebug::getDebugLevel(log.stream));
    YDebug::setDebugLevel(log.stream, 7);
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(log.stream));
    YDebug::setDebugLevel(log.stream, 5);
    YDebug::setDebugLevel(log.stream, -1);
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(log.stream));
    YDebug::setDebugLevel(log.stream, 6);
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(log.stream));
}

TEST(YDebug, SystemLevelPrintsOnLevelZeroSink)
{
    LogFile log;
    YLOG_SYSTEM(log.stream) << "always" << yflush;
    EXPECT_EQ("[DB <TS> SYSTEM] always \r\n", log.masked());
}

TEST(YDebug, AllLevelTextsAndEntryPoints)
{
    LogFile log;
    YDebug::setDebugLevel(log.stream, 5);
    YDebug::yDebugSystem(log.stream) << "s" << yflush;
    YDebug::yDebugError(log.stream) << "e" << yflush;
    YDebug::yDebugWarning(log.stream) << "w" << yflush;
    YDebug::yDebugNotice(log.stream) << "n" << yflush;
    YDebug::yDebug1(log.stream) << "1" << yflush;
    YDebug::yDebug2(log.stream) << "2" << yflush;
    YDebug::yDebug3(log.stream) << "3" << yflush;
    EXPECT_EQ("[DB <TS> SYSTEM] s \r\n[DB <TS> ERROR] e \r\n[DB <TS> WARNING] w \r\n"
              "[DB <TS> NOTICE] n \r\n[DB <TS> DBG1] 1 \r\n[DB <TS> DBG2] 2 \r\n"
              "[DB <TS> DBG3] 3 \r\n",
        log.masked());
}

TEST(YDebug, NullCharPointerPrintsNull)
{
    LogFile log;
    const char* nothing = nullptr;
    YLOG_ERROR(log.stream) << nothing << yflush;
    EXPECT_EQ("[DB <TS> ERROR] (null) \r\n", log.masked());
}

TEST(YDebug, ItemTexts)
{
    LogFile log;
    const QByteArray bytes("raw\n");
    YLOG_ERROR(log.stream) << true << false << 'c' << QChar('q') << short(-3) << (unsigned short)3
                           << -4 << 4u << -5L << 5UL << -6LL << 6ULL << 1.5f << 0.1 << 1e10
                           << QLatin1String("latin") << bytes << yflush;
    EXPECT_EQ("[DB <TS> ERROR] true false c 'q' -3 3 -4 4 -5 5 -6 6 1.5 0.1 1e+10 latin raw\n "
              "\r\n",
        log.masked());
}

TEST(YDebug, HexModeWritesIntegersInBaseSixteen)
{
    LogFile log;
    YDebug value = YDebug::create(log.stream, YDebug::ERROR);
    value.setHexMode(true);
    value << 31 << 255u << 0;
    value.setHexMode(false);
    value << 31;
    value.flush();
    EXPECT_EQ("[DB <TS> ERROR] 0x1f 0xff 0x0 31 \r\n", log.masked());
}

TEST(YDebug, PointerGivesTheLineOneByteOnly)
{
    LogFile log;
    YLOG_ERROR(log.stream) << reinterpret_cast<const void*>(quintptr(0x1241)) << yflush;
    EXPECT_EQ("[DB <TS> ERROR] A \r\n", log.masked());
}

TEST(YDebug, PrintableIsAskedTwice)
{
    LogFile log;
    TwiceCounted printable;
    YLOG_ERROR(log.stream) << printable << yflush;
    EXPECT_EQ("[DB <TS> ERROR] printable \r\n", log.masked());
    EXPECT_EQ(2, printable.calls);
}

TEST(YDebug, ItemsAreConvertedEvenWhenHidden)
{
    LogFile log;
    TwiceCounted printable;
    YLOG_DBG3(log.stream) << printable << yflush;
    EXPECT_EQ("", log.text());
    EXPECT_EQ(2, printable.calls);
}

TEST(YDebug, LineFeedInsideValueStartsSecondHeader)
{
    LogFile log;
    YLOG_ERROR(log.stream) << "a\n"
                           << "b" << yflush;
    EXPECT_EQ("[DB <TS> ERROR] a\n [DB <TS> ERROR] b \r\n", log.masked());
}

TEST(YDebug, LineFeedEndingsOfEachItemKind)
{
    LogFile log;
    YLOG_ERROR(log.stream) << '\n'
                           << QChar('\n') << QStringLiteral("s\n") << QLatin1String("l\n") << "end"
                           << yflush;
    EXPECT_EQ("[DB <TS> ERROR] \n [DB <TS> ERROR] '\n' [DB <TS> ERROR] s\n [DB <TS> ERROR] l\n "
              "[DB <TS> ERROR] end \r\n",
        log.masked());
}

TEST(YDebug, NospaceBeforeFirstItemHasNoEffect)
{
    LogFile log;
    YDebug value = YDebug::create(log.stream, YDebug::ERROR);
    value.nospace();
    value << "a"
          << "b";
    value.flush();
    EXPECT_EQ("[DB <TS> ERROR] a b \r\n", log.masked());
}

TEST(YDebug, NospaceAfterFirstItemHoldsUntilNextHeader)
{
    LogFile log;
    YDebug value = YDebug::create(log.stream, YDebug::ERROR);
    value << "a";
    value.nospace();
    value << "b"
          << "c\n"
          << "d"
          << "e";
    value.flush();
    EXPECT_EQ("[DB <TS> ERROR] a bc\n[DB <TS> ERROR] d e \r\n", log.masked());
}

TEST(YDebug, SpaceAppendsBlankAtOnce)
{
    LogFile log;
    YDebug value = YDebug::create(log.stream, YDebug::ERROR);
    value << "a";
    value.nospace();
    value << "b";
    value.space();
    value << "c";
    value.flush();
    EXPECT_EQ("[DB <TS> ERROR] a b c \r\n", log.masked());
}

TEST(YDebug, SecondLineAfterFlushHasNoHeaderButErrorIdAgain)
{
    LogFile log;
    YDebug value = YDebug::create_ex(7, log.stream, YDebug::ERROR);
    value << "a";
    value.flush();
    value << "b";
    value.flush();
    EXPECT_EQ("[DB <TS> ERROR] 00007: a \r\n00007: b \r\n", log.masked());
}

TEST(YDebug, DestructorFlushesPendingLine)
{
    LogFile log;
    {
        YDebug value = YDebug::create(log.stream, YDebug::ERROR);
        value << "pending";
    }
    EXPECT_EQ("[DB <TS> ERROR] pending \r\n", log.masked());
}

TEST(YDebug, AppendfKeepsExactly256Characters)
{
    LogFile log;
    const QByteArray text(256, 'x');
    YDebug::create(log.stream, YDebug::ERROR).appendf("%s", text.constData()) << yflush;
    EXPECT_EQ("[DB <TS> ERROR] " + text + " \r\n", log.masked());
}

TEST(YDebug, AppendfKeepsLongerTextOnThisPlatform)
{
    LogFile log;
    const QByteArray text257(257, 'y');
    const QByteArray text1000(1000, 'z');
    YDebug::create(log.stream, YDebug::ERROR).appendf("%s", text257.constData()) << yflush;
    YDebug::create(log.stream, YDebug::ERROR).appendf("%s", text1000.constData())
        << "tail" << yflush;
    EXPECT_EQ("[DB <TS> ERROR] " + text257 + " \r\n[DB <TS> ERROR] " + text1000 + " tail \r\n",
        log.masked());
}

TEST(YDebug, AppendfFormatsAndSetsNewLine)
{
    LogFile log;
    YDebug::create(log.stream, YDebug::ERROR).appendf("%d-%s\n", 12, "ab") << "next" << yflush;
    EXPECT_EQ("[DB <TS> ERROR] 12-ab\n [DB <TS> ERROR] next \r\n", log.masked());
}

TEST(YDebug, AppendfSkipsErrorId)
{
    LogFile log;
    YDebug::create_ex(9, log.stream, YDebug::ERROR).appendf("fmt") << "item" << yflush;
    EXPECT_EQ("[DB <TS> ERROR] fmt 00009: item \r\n", log.masked());
}

TEST(YDebug, EmbeddedNulCutsTheLine)
{
    LogFile log;
    YLOG_ERROR(log.stream) << QByteArray("ab\0cd", 5) << "rest" << yflush;
    EXPECT_EQ("[DB <TS> ERROR] ab\r\n", log.masked());
}

TEST(YDebug, HiddenStatementWithoutCacheIsInactive)
{
    LogFile log;
    YDebug value = YDebug::doHandleCacheEnabled(log.stream, YDebug::DBG3);
    value << "x";
    value.flush();
    EXPECT_EQ("", log.text());
}

TEST(YDebug, TheInactiveValueNeverWrites)
{
    testing::internal::CaptureStdout();
    YDebug value = YDebug::inactive();
    value << "never";
    value.flush();
    EXPECT_EQ("", testing::internal::GetCapturedStdout());
}

TEST(YDebug, FortyEighthStreamTakesLastSlotAndNextThrows)
{
    TempDir dir;
    QList<YDebug::StreamId> ids;
    for (int i = 0; i < 48; ++i)
        ids.append(YDebug::registerStream(
            "S", dir.file(QStringLiteral("s%1.log").arg(i)).toLocal8Bit().constData()));
    EXPECT_EQ(2, ids.first().id());
    EXPECT_EQ(49, ids.last().id());
    try {
        YDebug::registerStream("S", dir.file(QStringLiteral("more.log")).toLocal8Bit().constData());
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ("Maximum number of YDebug streams (50) exceeded", e.what());
    }
    YDebug::unregisterStream(ids[10]);
    const YDebug::StreamId again = YDebug::registerStream(
        "S", dir.file(QStringLiteral("again.log")).toLocal8Bit().constData());
    EXPECT_EQ(ids[10].id(), again.id());
}

TEST(YDebug, FreedSlotsAreReusedHighestFirst)
{
    TempDir dir;
    QList<YDebug::StreamId> ids;
    for (int i = 0; i < 10; ++i)
        ids.append(YDebug::registerStream(
            "S", dir.file(QStringLiteral("s%1.log").arg(i)).toLocal8Bit().constData()));
    ASSERT_EQ(5, ids[3].id());
    ASSERT_EQ(9, ids[7].id());
    YDebug::unregisterStream(ids[3]);
    YDebug::unregisterStream(ids[7]);
    const QByteArray a = dir.file(QStringLiteral("a.log")).toLocal8Bit();
    const QByteArray b = dir.file(QStringLiteral("b.log")).toLocal8Bit();
    EXPECT_EQ(9, YDebug::registerStream("S", a.constData()).id());
    EXPECT_EQ(5, YDebug::registerStream("S", b.constData()).id());
    EXPECT_EQ(12, YDebug::registerStream("S", a.constData()).id());
}

TEST(YDebug, UnopenableFileGivesStderrSilentlyAndCostsASlot)
{
    TempDir dir;
    testing::internal::CaptureStderr();
    const YDebug::StreamId missing = YDebug::registerStream(
        "M", dir.file(QStringLiteral("no/such/dir/x.log")).toLocal8Bit().constData());
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ(YDebug::STDERR, missing);
    const YDebug::StreamId next
        = YDebug::registerStream("M", dir.file(QStringLiteral("ok.log")).toLocal8Bit().constData());
    EXPECT_EQ(3, next.id());
}

TEST(YDebug, UnregisterIgnoresStandardAndEmptySlots)
{
    YDebug::unregisterStream(YDebug::STDOUT);
    YDebug::unregisterStream(YDebug::STDERR);
    YDebug::unregisterStream(YDebug::StreamId(40));
    YDebug::unregisterStream(YDebug::StreamId(-3));
    YDebug::unregisterStream(YDebug::StreamId(500));
    testing::internal::CaptureStderr();
    YLOG_ERROR(YDebug::STDERR) << "still" << yflush;
    EXPECT_EQ("[<TS> ERROR] still \r\n",
        maskTimestamps(QByteArray::fromStdString(testing::internal::GetCapturedStderr())));
}

TEST(YDebug, UnknownStreamIdsWriteToStderr)
{
    testing::internal::CaptureStderr();
    YLOG_ERROR(YDebug::StreamId(30)) << "a" << yflush;
    YLOG_ERROR(YDebug::StreamId(-2)) << "b" << yflush;
    YLOG_ERROR(YDebug::StreamId(1000)) << "c" << yflush;
    EXPECT_EQ("[<TS> ERROR] a \r\n[<TS> ERROR] b \r\n[<TS> ERROR] c \r\n",
        maskTimestamps(QByteArray::fromStdString(testing::internal::GetCapturedStderr())));
}

TEST(YDebug, LinesOfManyThreadsStayWhole)
{
    LogFile log;
    const int perThread = 2000;
    auto work = [&](int tag) {
        for (int i = 0; i < perThread; ++i)
            YLOG_ERROR(log.stream) << "thread" << tag << "line" << i << yflush;
    };
    std::thread a(work, 1), b(work, 2), c(work, 3), d(work, 4);
    a.join();
    b.join();
    c.join();
    d.join();
    const QList<QByteArray> lines = log.masked().split('\n');
    ASSERT_EQ(4 * perThread + 1, lines.size());
    QHash<int, int> next;
    const QRegularExpression shape(
        QStringLiteral("^\\[DB <TS> ERROR\\] thread (\\d) line (\\d+) \r$"));
    for (int i = 0; i < lines.size() - 1; ++i) {
        const QRegularExpressionMatch m = shape.match(QString::fromLatin1(lines[i]));
        ASSERT_TRUE(m.hasMatch()) << lines[i].constData();
        const int tag = m.captured(1).toInt();
        EXPECT_EQ(next[tag], m.captured(2).toInt()); // each thread's own order
        next[tag] = m.captured(2).toInt() + 1;
    }
}

// ---- rotation

namespace {

void fill(const QString& path, qint64 size)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    ASSERT_EQ(size, file.write(QByteArray(int(size), '.')));
}

QStringList rotatedCopies(const QString& dir, const QString& baseName, const QString& suffix)
{
    return QDir(dir).entryList(
        {baseName + QStringLiteral("_*.") + suffix}, QDir::Files, QDir::Name);
}

// Every line of the statement below is 32 bytes: "[dd.MM.yyyy hh:mm:ss ERROR] x \r\n".
const qint64 LINE = 32;

} // namespace

TEST(YDebugRotation, OneByteOverTheLimitRotatesAtTheNextFlush)
{
    TempDir dir;
    const QString base = yovotest::uniqueName("rot");
    const QString path = dir.file(base + QStringLiteral(".log"));
    fill(path, (1 << 20) + 1 - LINE);
    const YDebug::StreamId log
        = YDebug::registerStream(QByteArray(), path.toLocal8Bit().constData());
    YDebug::setRotationSize(log, 1);
    YLOG_ERROR(log) << "x" << yflush;
    const QStringList copies = rotatedCopies(dir.path(), base, QStringLiteral("log"));
    ASSERT_EQ(1, copies.size());
    EXPECT_TRUE(QRegularExpression(
        QRegularExpression::anchoredPattern(base + QStringLiteral("_\\d{6}_\\d{6}\\.log")))
                    .match(copies.first())
                    .hasMatch())
        << qPrintable(copies.first());
    EXPECT_EQ((1 << 20) + 1, QFileInfo(dir.file(copies.first())).size());
    EXPECT_EQ(0, QFileInfo(path).size());
    // The stream carries on at the start of the emptied file.
    YLOG_ERROR(log) << "x" << yflush;
    EXPECT_EQ(LINE, QFileInfo(path).size());
    YDebug::unregisterStream(log);
}

TEST(YDebugRotation, ExactlyTheLimitDoesNotRotate)
{
    TempDir dir;
    const QString base = yovotest::uniqueName("rot");
    const QString path = dir.file(base + QStringLiteral(".log"));
    fill(path, (1 << 20) - LINE);
    const YDebug::StreamId log
        = YDebug::registerStream(QByteArray(), path.toLocal8Bit().constData());
    YDebug::setRotationSize(log, 1);
    YLOG_ERROR(log) << "x" << yflush;
    EXPECT_TRUE(rotatedCopies(dir.path(), base, QStringLiteral("log")).isEmpty());
    EXPECT_EQ(1 << 20, QFileInfo(path).size());
    YDebug::unregisterStream(log);
}

TEST(YDebugRotation, DatedCopyKeepsCompleteSuffixAndPermissions)
{
    TempDir dir;
    const QString base = yovotest::uniqueName("rot");
    const QString path = dir.file(base + QStringLiteral(".app.txt"));
    fill(path, 1 << 20);
    QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup);
    const YDebug::StreamId log
        = YDebug::registerStream(QByteArray(), path.toLocal8Bit().constData());
    YDebug::setRotationSize(log, 1);
    YLOG_ERROR(log) << "x" << yflush;
    const QStringList copies = rotatedCopies(dir.path(), base, QStringLiteral("app.txt"));
    ASSERT_EQ(1, copies.size());
    EXPECT_EQ(QFile::ReadOwner | QFile::WriteOwner | QFile::ReadGroup,
        QFile::permissions(dir.file(copies.first()))
            & (QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup
                | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther | QFile::WriteOther
                | QFile::ExeOther));
    YDebug::unregisterStream(log);
}

TEST(YDebugRotation, SizeZeroMeansNoRotation)
{
    TempDir dir;
    const QString base = yovotest::uniqueName("rot");
    const QString path = dir.file(base + QStringLiteral(".log"));
    fill(path, 3 << 20);
    const YDebug::StreamId log
        = YDebug::registerStream(QByteArray(), path.toLocal8Bit().constData());
    YDebug::setRotationSize(log, 0);
    YLOG_ERROR(log) << "x" << yflush;
    EXPECT_TRUE(rotatedCopies(dir.path(), base, QStringLiteral("log")).isEmpty());
    YDebug::unregisterStream(log);
}

TEST(YDebugRotation, StdioStreamIgnoresRotationSize)
{
    YDebug::setRotationSize(YDebug::STDERR, 1);
    testing::internal::CaptureStderr();
    YLOG_ERROR(YDebug::STDERR) << "x" << yflush;
    EXPECT_EQ("[<TS> ERROR] x \r\n",
        maskTimestamps(QByteArray::fromStdString(testing::internal::GetCapturedStderr())));
}

TEST(YDebugRotation, BadSemaphoreNameIsReportedAndRotationRunsUnguarded)
{
    TempDir dir;
    const QString path = dir.file(QStringLiteral("my log.txt"));
    fill(path, 1 << 20);
    const YDebug::StreamId log
        = YDebug::registerStream(QByteArray(), path.toLocal8Bit().constData());
    testing::internal::CaptureStderr();
    YDebug::setRotationSize(log, 1);
    EXPECT_EQ("YSemaphore: invalid semaphore name my log_rotationSem\n",
        testing::internal::GetCapturedStderr());
    YLOG_ERROR(log) << "x" << yflush;
    EXPECT_EQ(1, rotatedCopies(dir.path(), QStringLiteral("my log"), QStringLiteral("txt")).size());
    EXPECT_EQ(0, QFileInfo(path).size());
    YDebug::unregisterStream(log);
}

TEST(YDebugRotation, TwoProcessesLoseNoLineAndTearNone)
{
    TempDir dir;
    const QString base = yovotest::uniqueName("shared");
    const QString path = dir.file(base + QStringLiteral(".log"));
    const int count = 100000;
    QProcess a, b;
    a.start(yovotest::helperPath("ydebug_log_writer"), {path, "A", QString::number(count)});
    b.start(yovotest::helperPath("ydebug_log_writer"), {path, "B", QString::number(count)});
    ASSERT_TRUE(a.waitForFinished(120000));
    ASSERT_TRUE(b.waitForFinished(120000));
    ASSERT_EQ(0, a.exitCode());
    ASSERT_EQ(0, b.exitCode());

    QStringList files = rotatedCopies(dir.path(), base, QStringLiteral("log"));
    EXPECT_GE(files.size(), 2) << "a log of about 12 MiB should have rotated";
    files.append(base + QStringLiteral(".log"));
    QVector<int> seenA(count), seenB(count);
    const QRegularExpression shape(
        QStringLiteral("^\\[\\d\\d\\.\\d\\d\\.\\d{4} \\d\\d:\\d\\d:\\d\\d ERROR\\] ([AB]) (\\d+) "
                       "payload-x{40} $"));
    int lines = 0;
    for (const QString& name : files) {
        const QByteArray text = readFile(dir.file(name));
        ASSERT_TRUE(text.isEmpty() || text.endsWith("\r\n")) << qPrintable(name);
        QList<QByteArray> parts = text.split('\n');
        parts.removeLast();
        for (const QByteArray& line : parts) {
            ASSERT_TRUE(line.endsWith('\r')) << line.constData();
            const QRegularExpressionMatch m = shape.match(QString::fromLatin1(line.chopped(1)));
            ASSERT_TRUE(m.hasMatch()) << "torn line: " << line.constData();
            const int n = m.captured(2).toInt();
            ASSERT_LT(n, count);
            (m.captured(1) == QLatin1String("A") ? seenA : seenB)[n]++;
            ++lines;
        }
    }
    EXPECT_EQ(2 * count, lines);
    for (int i = 0; i < count; ++i) {
        ASSERT_EQ(1, seenA[i]) << "line A " << i;
        ASSERT_EQ(1, seenB[i]) << "line B " << i;
    }
}

TEST(YDebug, FloatingPointTextsMatchQtShortestG6)
{
    const double values[] = {0.0, -0.0, 1.0, 0.1, 1.0 / 3, 123456.0, 1234567.0, 1e-5, 1e-4, 1.5e300,
        -2.25e-300, 1e10, 6.02214076e23, 1e100, 99999.95};
    for (double v : values) {
        LogFile log("", "f.log");
        YLOG_ERROR(log.stream) << v << yflush;
        EXPECT_EQ("[<TS> ERROR] " + QString::number(v, 'g', 6).toLatin1() + " \r\n", log.masked())
            << v;
    }
    const double specials[] = {qInf(), -qInf(), qQNaN()};
    for (double v : specials) {
        LogFile log("", "s.log");
        YLOG_ERROR(log.stream) << v << yflush;
        EXPECT_EQ("[<TS> ERROR] " + QString::number(v, 'g', 6).toLatin1() + " \r\n", log.masked());
    }
}

// The inline test that lets a statement with no possible effect skip everything else.
TEST(YDebugHidden, FollowsTheStreamsLevel)
{
    LogFile log;
    YDebug::setDebugLevel(log.stream, 2);
    EXPECT_FALSE(YDebug::isHidden(log.stream, YDebug::SYSTEM));
    EXPECT_FALSE(YDebug::isHidden(log.stream, YDebug::NOTICE));
    EXPECT_TRUE(YDebug::isHidden(log.stream, YDebug::DBG1));
    YDebug::setDebugLevel(log.stream, 5);
    EXPECT_FALSE(YDebug::isHidden(log.stream, YDebug::DBG3));
    YLOG_DBG3(log.stream) << "now" << yflush;
    EXPECT_EQ("[DB <TS> DBG3] now \r\n", log.masked());
}

TEST(YDebugHidden, NothingIsHiddenOnAStreamThatKeepsACache)
{
    LogFile log;
    EXPECT_TRUE(YDebug::isHidden(log.stream, YDebug::DBG3));
    YDebug::setCacheLogifEnabledValue(log.stream, true);
    EXPECT_FALSE(YDebug::isHidden(log.stream, YDebug::DBG3));
    YDebug::setCacheLogifEnabledValue(log.stream, false);
    EXPECT_TRUE(YDebug::isHidden(log.stream, YDebug::DBG3));
}

// Ids outside the table and free slots are the standard error stream, as getSink has them.
TEST(YDebugHidden, UnknownIdsFollowTheStandardErrorStream)
{
    const int saved = YDebug::getDebugLevel(YDebug::STDERR);
    YDebug::setDebugLevel(YDebug::STDERR, 3);
    EXPECT_FALSE(YDebug::isHidden(YDebug::StreamId(YDebug::MAX_STREAMS + 3), YDebug::DBG1));
    EXPECT_TRUE(YDebug::isHidden(YDebug::StreamId(YDebug::MAX_STREAMS + 3), YDebug::DBG2));
    EXPECT_TRUE(YDebug::isHidden(YDebug::StreamId(-4), YDebug::DBG2));
    EXPECT_TRUE(YDebug::isHidden(YDebug::StreamId(YDebug::MAX_STREAMS - 1), YDebug::DBG2));
    YDebug::setDebugLevel(YDebug::STDERR, 0);
    EXPECT_TRUE(YDebug::isHidden(YDebug::StreamId(YDebug::MAX_STREAMS - 1), YDebug::WARNING));
    YDebug::setDebugLevel(YDebug::STDERR, saved);
}

TEST(YDebugHidden, HiddenValueWritesNothingAndTakesEveryItem)
{
    LogFile log;
    TwiceCounted printable;
    const QString text = QStringLiteral("text");
    YDebug value = YDebug::hiddenValue();
    value << 1 << "two" << text << QByteArray("b") << 2.5 << 'c' << QChar('q') << true
          << static_cast<const void*>(&value) << printable << yflush;
    value.space();
    value.flush();
    EXPECT_EQ("", log.text());
    EXPECT_EQ(2, printable.calls);
}

// A copy of the inactive value lives on the standard output's stream: while that stream keeps a
// cache, the items of hidden statements on any other stream go into it, without a header.
TEST(YDebugHidden, StandardOutputsCacheTakesTheItemsOfHiddenStatementsElsewhere)
{
    LogFile log;
    YDebug::setErrorIdListBufferTrigger(YDebug::STDOUT, QStringLiteral("7"));
    YDebug::setCacheLogifEnabledValue(YDebug::STDOUT, true);
    EXPECT_FALSE(YDebug::isHidden(log.stream, YDebug::DBG3));
    YLOG_DBG3(log.stream) << "hidden" << 3 << yflush;

    TempDir dir;
    const QString captured = dir.file(QStringLiteral("stdout.txt"));
    fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    FILE* file = fopen(captured.toLocal8Bit().constData(), "wb");
    ASSERT_TRUE(file);
    dup2(fileno(file), STDOUT_FILENO);
    YLOG_EX(7, YDebug::STDOUT, YDebug::ERROR) << "boom" << yflush;
    fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);
    fclose(file);
    YDebug::setCacheLogifEnabledValue(YDebug::STDOUT, false);
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::WARNING);

    EXPECT_EQ("[<TS> ERROR] ************************ERROR/PROBLEM!!!!***************************\n"
              "[<TS> ERROR] Dropping the contents of the in memory cache logger\n"
              "hidden 3 \n"
              "[<TS> ERROR] Fault 00007: boom\r\n",
        maskTimestamps(readFile(captured)));
    EXPECT_EQ("", log.text());
}
