// removeDir of a folder that can't go: ten attempts, a second apart, then the error line.
#include "yglobals.h"

#include "test_support.h"

#include <QFile>

#include <gtest/gtest.h>

#include <unistd.h>

TEST(YGlobalsSlow, RemoveDirGivesUpAfterTenAttempts)
{
    yovotest::TempDir dir;
    const QString logPath = dir.file("globals.log");
    const YDebug::StreamId stream
        = YDebug::registerStream("GL", QFile::encodeName(logPath).constData());
    YDebug::setDebugLevel(stream, YDebug::DBG3);
    // The kernel's own folder of this process: nobody, not even root, can remove its entries.
    const QString path = QStringLiteral("/proc/%1/fdinfo").arg(getpid());
    EXPECT_FALSE(YGlobals::removeDir(path, stream));
    YDebug::unregisterStream(stream);

    const QList<QByteArray> lines
        = yovotest::maskTimestamps(yovotest::readFile(logPath)).split('\n');
    const QByteArray command = "rm -rf -- '" + path.toLatin1() + "'";
    ASSERT_EQ(lines.size(), 12);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(lines[i], "[GL <TS> DBG2] Executing: " + command + " \r");
    // rm ends with 1, which system() reports as the wait status 256.
    EXPECT_TRUE(lines[10].startsWith("[GL <TS> ERROR] Failed executing " + command + ". Code 256 "))
        << lines[10].toStdString();
    EXPECT_TRUE(lines[11].isEmpty());
}
