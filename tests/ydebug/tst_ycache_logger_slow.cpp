// The raised verbosity after a cache dump with the period daemons use, 60 seconds: a statement
// within the period keeps level 5, the first statement after it restores the old level.
#include "test_support.h"

#include <yovolib/yovolib.h>

#include <gtest/gtest.h>

#include <QThread>

namespace {

TEST(CacheLoggerSlow, LevelIsRestoredSixtySecondsAfterADump)
{
    yovotest::TempDir tmp;
    const QString path = tmp.file(QStringLiteral("slow.log"));
    const YDebug::StreamId stream = YDebug::registerStream("SL", path.toLocal8Bit().constData());
    YDebug::setDebugLevel(stream, YDebug::NOTICE);
    YDebug::setSecForVerbosityFive(stream, 60);
    YDebug::setErrorIdListBufferTrigger(stream, QStringLiteral("42"));
    YDebug::setCacheLogifEnabledValue(stream, true);

    YLOG_DBG2(stream) << "hidden" << yflush;
    YLOG_EX(42, stream, YDebug::ERROR) << "fire" << yflush;
    EXPECT_EQ(YDebug::DBG3, YDebug::getDebugLevel(stream));

    QThread::sleep(30);
    YLOG_DBG3(stream) << "still raised" << yflush;
    EXPECT_EQ(YDebug::DBG3, YDebug::getDebugLevel(stream));

    QThread::sleep(31);
    YLOG_DBG3(stream) << "after the period" << yflush;
    EXPECT_EQ(YDebug::NOTICE, YDebug::getDebugLevel(stream));

    const QByteArray log = yovotest::maskTimestamps(yovotest::readFile(path));
    EXPECT_TRUE(log.endsWith("Fault 00042: fire\r\n[SL <TS> DBG3] still raised \r\n"))
        << log.constData();
    YDebug::unregisterStream(stream);
}

} // namespace
