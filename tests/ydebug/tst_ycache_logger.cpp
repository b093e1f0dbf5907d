// The in-memory cache logger: the ring of hidden lines, its settings, the dump that a listed error
// id fires, and the raised verbosity that follows a dump.
#include "test_support.h"

#include <yovolib/yovolib.h>

#include <gtest/gtest.h>

#include <QThread>

#include <unistd.h>

namespace {

const QByteArray BANNER = "************************ERROR/PROBLEM!!!!***************************";
const QByteArray DROPPING = "Dropping the contents of the in memory cache logger";

TEST(YCyclicBuffer, CapacityZeroMeansOneHundredLines)
{
    YCyclicBuffer<YMutex> buffer(0);
    EXPECT_EQ(100u, buffer.capacity());
    for (int i = 0; i <= 100; ++i)
        buffer.insertItem(QByteArray::number(i));
    EXPECT_EQ(100u, buffer.size());
    EXPECT_EQ(QByteArray("1"), buffer.extractItem());
}

TEST(YCyclicBuffer, CapacityTwoKeepsTheTwoNewestLines)
{
    YCyclicBuffer<YMutex> buffer(2);
    buffer.insertItem("a");
    buffer.insertItem("b");
    buffer.insertItem("c");
    EXPECT_EQ(QByteArray("b"), buffer.extractItem());
    EXPECT_EQ(QByteArray("c"), buffer.extractItem());
    EXPECT_TRUE(buffer.isEmpty());
    EXPECT_EQ(QByteArray(), buffer.extractItem());
}

TEST(YCyclicBuffer, IteratesOldestFirstWithoutRemoving)
{
    YCyclicBuffer<YMutex> buffer(3);
    EXPECT_TRUE(buffer.isEmpty());
    buffer.insertItem("x");
    buffer.insertItem("");
    buffer.insertItem("z");
    QList<QByteArray> seen;
    for (YCyclicBuffer<YMutex>::const_iterator it = buffer.begin(); it != buffer.end(); ++it)
        seen << *it;
    EXPECT_EQ((QList<QByteArray> {"x", "", "z"}), seen);
    EXPECT_EQ(3u, buffer.size());
    EXPECT_FALSE(buffer.isEmpty());
}

class CacheLogger : public ::testing::Test
{
protected:
    void SetUp() override
    {
        _path = _tmp.file(QStringLiteral("cache.log"));
        _stream = YDebug::registerStream("FR", _path.toLocal8Bit().constData());
        ASSERT_NE(YDebug::STDERR, _stream);
        YDebug::setSecForVerbosityFive(_stream, 60);
        YDebug::setErrorIdListBufferTrigger(_stream, QStringLiteral("42"));
    }
    void TearDown() override
    {
        YDebug::setPrintProcessIdAndThreadId(false);
        YDebug::unregisterStream(_stream);
    }
    void enableCache(long lines = 0)
    {
        if (lines)
            YDebug::setCacheLogSize(_stream, lines);
        YDebug::setCacheLogifEnabledValue(_stream, true);
    }
    QByteArray log() const { return yovotest::maskTimestamps(yovotest::readFile(_path)); }

    yovotest::TempDir _tmp;
    QString _path;
    YDebug::StreamId _stream;
};

TEST_F(CacheLogger, SettingsOfAFreshStream)
{
    EXPECT_FALSE(YDebug::getCacheLogifEnabledValue(_stream));
    EXPECT_EQ(0, YDebug::getCacheLogSize(_stream));
    EXPECT_EQ(60u, YDebug::getSecForVerbosityFive(_stream));
    EXPECT_EQ(QStringList {QStringLiteral("42")}, YDebug::getErrorIdListBufferTrigger(_stream));
}

TEST_F(CacheLogger, SettingsAreStoredAndHandedBack)
{
    YDebug::setCacheLogSize(_stream, 7);
    EXPECT_EQ(7, YDebug::getCacheLogSize(_stream));
    YDebug::setSecForVerbosityFive(_stream, 3);
    EXPECT_EQ(3u, YDebug::getSecForVerbosityFive(_stream));
    YDebug::setErrorIdForBufferDrop(_stream, 12);
    EXPECT_EQ(12u, YDebug::getErrorIdForBufferDrop(_stream));
    YDebug::setErrorIdForBufferDrop(_stream, -1);
    EXPECT_EQ(4294967295u, YDebug::getErrorIdForBufferDrop(_stream));
    YDebug::setCacheLogifEnabledValue(_stream, true);
    EXPECT_TRUE(YDebug::getCacheLogifEnabledValue(_stream));
    YDebug::setCacheLogifEnabledValue(_stream, false);
    EXPECT_FALSE(YDebug::getCacheLogifEnabledValue(_stream));
}

TEST_F(CacheLogger, TriggerListIsSplitAtCommasSkippingEmptyParts)
{
    YDebug::setErrorIdListBufferTrigger(_stream, QStringLiteral(",42,,7,abc,"));
    EXPECT_EQ((QStringList {QStringLiteral("42"), QStringLiteral("7"), QStringLiteral("abc")}),
        YDebug::getErrorIdListBufferTrigger(_stream));
    YDebug::setErrorIdListBufferTrigger(_stream, QString());
    EXPECT_TRUE(YDebug::getErrorIdListBufferTrigger(_stream).isEmpty());
}

TEST_F(CacheLogger, DumpWritesBannerCachedLinesAndFaultInThatOrder)
{
    enableCache();
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_NOTICE(_stream) << "b" << 7 << yflush;
    YLOG_ERROR(_stream) << "printed" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "first"
                                        << "second" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] printed \r\n"
                         "[FR <TS> ERROR] ")
            + BANNER + "\n[FR <TS> ERROR] " + DROPPING
            + "\n"
              "[FR <TS> DBG1]  a \n"
              "[FR <TS> NOTICE]  b 7 \n"
              "[FR <TS> ERROR] Fault 00042: first00042: second \r\n",
        log());
}

TEST_F(CacheLogger, CachedLineHasTwoBlanksBehindItsHeaderAndItsOwnId)
{
    enableCache();
    YLOG_DBG2(_stream) << "plain" << yflush;
    YLOG_EX(7, _stream, YDebug::DBG2) << "x" << 'y' << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] ") + BANNER + "\n[FR <TS> ERROR] " + DROPPING
            + "\n"
              "[FR <TS> DBG2]  plain \n"
              "[FR <TS> DBG2] 00007:  x y \n"
              "[FR <TS> ERROR] Fault 00042: fire\r\n",
        log());
}

TEST_F(CacheLogger, CachedHeaderCarriesProcessAndThreadIds)
{
    YDebug::setPrintProcessIdAndThreadId(true);
    enableCache();
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    const QByteArray ids = QStringLiteral("p%1/t%1 ").arg(getpid()).toLatin1();
    EXPECT_EQ("[FR <TS> " + ids + "ERROR] " + BANNER + "\n[FR <TS> " + ids + "ERROR] " + DROPPING
            + "\n[FR <TS> " + ids + "DBG1]  a \n[FR <TS> " + ids + "ERROR] Fault 00042: fire\r\n",
        log());
}

TEST_F(CacheLogger, CachedItemsAreTheBareTexts)
{
    enableCache();
    int value = 0;
    YDebug statement = YLOG_DBG1(_stream);
    statement << QChar(QLatin1Char('q')) << true << 2.5;
    statement.setHexMode(true);
    statement << 255 << static_cast<const void*>(&value) << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    const QByteArray pointer = "0x" + QByteArray::number(qulonglong(quintptr(&value)), 16);
    EXPECT_TRUE(log().contains("[FR <TS> DBG1]  q true 2.5 0xff " + pointer + " \n"))
        << log().constData();
}

TEST_F(CacheLogger, CapacityTwoDumpsTheLastTwoLines)
{
    enableCache(2);
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_DBG1(_stream) << "b" << yflush;
    YLOG_DBG1(_stream) << "c" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] ") + BANNER + "\n[FR <TS> ERROR] " + DROPPING
            + "\n[FR <TS> DBG1]  b \n[FR <TS> DBG1]  c \n[FR <TS> ERROR] Fault 00042: fire\r\n",
        log());
}

TEST_F(CacheLogger, SizeSetAfterSwitchingOnDoesNotChangeTheCapacity)
{
    enableCache();
    YDebug::setCacheLogSize(_stream, 2);
    EXPECT_EQ(2, YDebug::getCacheLogSize(_stream));
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_DBG1(_stream) << "b" << yflush;
    YLOG_DBG1(_stream) << "c" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    EXPECT_TRUE(log().contains(DROPPING
        + "\n[FR <TS> DBG1]  a \n[FR <TS> DBG1]  b \n"
          "[FR <TS> DBG1]  c \n"))
        << log().constData();
}

TEST_F(CacheLogger, TriggerWithAnEmptyBufferDoesNotRaiseTheVerbosity)
{
    enableCache();
    YLOG_EX(42, _stream, YDebug::ERROR) << "boom" << yflush;
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(_stream));
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] 00042: boom \r\n"), log());
}

TEST_F(CacheLogger, PaddedIdInTheListDoesNotMatch)
{
    enableCache();
    YDebug::setErrorIdListBufferTrigger(_stream, QStringLiteral("00042"));
    YLOG_DBG1(_stream) << "kept" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "boom" << yflush;
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(_stream));
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] 00042: boom \r\n"), log());
    // The line stayed in the cache: the unpadded id finds it.
    YDebug::setErrorIdListBufferTrigger(_stream, QStringLiteral("7,42"));
    YLOG_EX(42, _stream, YDebug::ERROR) << "again" << yflush;
    EXPECT_TRUE(log().contains(DROPPING + "\n[FR <TS> DBG1]  kept \n")) << log().constData();
}

TEST_F(CacheLogger, StatementWithoutAnIdNeverFiresAListOfIds)
{
    enableCache();
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_ERROR(_stream) << "42" << yflush;
    YLOG_EX(43, _stream, YDebug::ERROR) << "other" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] 42 \r\n[FR <TS> ERROR] 00043: other \r\n"), log());
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(_stream));
}

TEST_F(CacheLogger, HiddenStatementWithAListedIdFiresTheDump)
{
    enableCache();
    YLOG_DBG2(_stream) << "before" << yflush;
    YLOG_EX(42, _stream, YDebug::DBG1) << "hidden" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> DBG1] ") + BANNER + "\n[FR <TS> DBG1] " + DROPPING
            + "\n[FR <TS> DBG2]  before \n[FR <TS> DBG1] Fault 00042: hidden\r\n",
        log());
    EXPECT_EQ(YDebug::DBG3, YDebug::getDebugLevel(_stream));
}

TEST_F(CacheLogger, FaultItemEndingInALineFeedStartsANewLine)
{
    enableCache();
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "boom\n"
                                        << "x" << yflush;
    EXPECT_TRUE(log().endsWith("[FR <TS> ERROR] Fault 00042: boom\n[FR <TS> ERROR] 00042: x \r\n"))
        << log().constData();
}

TEST_F(CacheLogger, DumpRaisesTheLevelToFiveAndStopsCaching)
{
    enableCache();
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    EXPECT_EQ(YDebug::DBG3, YDebug::getDebugLevel(_stream));
    // While raised, everything up to DBG3 prints and the cache gets nothing, so that a second
    // trigger finds it empty.
    YLOG_DBG3(_stream) << "talkative" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "again" << yflush;
    EXPECT_TRUE(log().endsWith("Fault 00042: fire\r\n[FR <TS> DBG3] talkative \r\n"
                               "[FR <TS> ERROR] 00042: again \r\n"))
        << log().constData();
    // A statement before the period's end keeps the level.
    EXPECT_EQ(YDebug::DBG3, YDebug::getDebugLevel(_stream));
}

TEST_F(CacheLogger, FirstStatementAfterThePeriodRestoresTheLevel)
{
    YDebug::setDebugLevel(_stream, YDebug::WARNING);
    YDebug::setSecForVerbosityFive(_stream, 1);
    enableCache();
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    EXPECT_EQ(YDebug::DBG3, YDebug::getDebugLevel(_stream));
    QThread::msleep(1200);
    // Nothing but a statement ends the period.
    EXPECT_EQ(YDebug::DBG3, YDebug::getDebugLevel(_stream));
    // The statement that ends it is judged at the restored level: this one is hidden and, since
    // the value came from create, not cached either.
    YLOG_DBG3(_stream) << "late" << yflush;
    EXPECT_EQ(YDebug::WARNING, YDebug::getDebugLevel(_stream));
    EXPECT_FALSE(log().contains("late")) << log().constData();
    // From here on the cache works again.
    YLOG_DBG2(_stream) << "cached" << yflush;
    YLOG_EX(42, _stream, YDebug::ERROR) << "fire" << yflush;
    EXPECT_TRUE(log().endsWith(DROPPING
        + "\n[FR <TS> DBG2]  cached \n"
          "[FR <TS> ERROR] Fault 00042: fire\r\n"))
        << log().constData();
}

TEST_F(CacheLogger, CacheSwitchedOffLosesItsLines)
{
    enableCache();
    YLOG_DBG1(_stream) << "lost" << yflush;
    YDebug::setCacheLogifEnabledValue(_stream, false);
    YDebug::setCacheLogifEnabledValue(_stream, true);
    YLOG_EX(42, _stream, YDebug::ERROR) << "boom" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] 00042: boom \r\n"), log());
    EXPECT_EQ(YDebug::ERROR, YDebug::getDebugLevel(_stream));
}

TEST_F(CacheLogger, SwitchedOffCacheKeepsNothing)
{
    YLOG_DBG1(_stream) << "hidden" << yflush;
    enableCache();
    YLOG_EX(42, _stream, YDebug::ERROR) << "boom" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] 00042: boom \r\n"), log());
}

TEST_F(CacheLogger, HiddenTextReachesTheCacheOnlyThroughAFlush)
{
    enableCache();
    {
        YLOG_DBG1(_stream) << "never flushed";
    }
    YLOG_EX(42, _stream, YDebug::ERROR) << "boom" << yflush;
    EXPECT_EQ(QByteArray("[FR <TS> ERROR] 00042: boom \r\n"), log());
}

TEST_F(CacheLogger, IdOfMoreThanFiveDigitsMatchesAndPrintsWhole)
{
    enableCache();
    YDebug::setErrorIdListBufferTrigger(_stream, QStringLiteral("1,123456"));
    YLOG_DBG1(_stream) << "a" << yflush;
    YLOG_EX(123456, _stream, YDebug::WARNING) << "big" << yflush;
    EXPECT_TRUE(log().endsWith("[FR <TS> WARNING] Fault 123456: big\r\n")) << log().constData();
}

} // namespace
