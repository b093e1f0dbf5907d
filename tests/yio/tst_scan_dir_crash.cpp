#include "ini_test_util.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QRandomGenerator>

#include <csignal>
#include <thread>

using yovotest::helperPath;
using yovotest::readFile;
using yovotest::TempDir;
using yovotest::writeFile;

namespace {

QByteArray content(char value)
{
    // Large enough that writing it takes a while, so kills land in the middle of writes.
    QByteArray text = "; settings\n";
    for (int i = 0; i < 2000; ++i)
        text += "; padding line " + QByteArray::number(i) + " of a comment block\n";
    text += "k=";
    text += value;
    text += "\r\ntail=1";
    return text;
}

} // namespace

TEST(YScanDirCrash, KilledRewriterLeavesOldOrNewContent)
{
    TempDir dir;
    const QString path = dir.file("php.ini");
    const QByteArray a = content('A');
    const QByteArray b = content('B');
    writeFile(path, a);
    QRandomGenerator random(QRandomGenerator::global()->generate());
    int changed = 0;
    for (int round = 0; round < 200; ++round) {
        QProcess helper;
        helper.start(helperPath("ini_rewrite_helper"), {path});
        ASSERT_TRUE(helper.waitForStarted(10000));
        while (!helper.canReadLine())
            ASSERT_TRUE(helper.waitForReadyRead(10000)) << "the helper never got ready";
        std::this_thread::sleep_for(std::chrono::microseconds(random.bounded(0, 30000)));
        ASSERT_EQ(0, ::kill(pid_t(helper.processId()), SIGKILL));
        ASSERT_TRUE(helper.waitForFinished(10000));
        ASSERT_EQ(QProcess::CrashExit, helper.exitStatus())
            << helper.readAllStandardError().constData();
        const QByteArray now = readFile(path);
        ASSERT_TRUE(now == a || now == b) << "round " << round << ", " << now.size() << " bytes";
        if (now == b)
            ++changed;
    }
    // The helper got to write at all: otherwise this test could not fail.
    EXPECT_GT(changed, 0);
}
