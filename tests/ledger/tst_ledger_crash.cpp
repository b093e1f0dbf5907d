// A fault in a running yledgerd, asked for through its debug console, leaves a minidump that a
// debugger opens and a log line that names it.
#include "ledger_test_support.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QStandardPaths>

using namespace ledgertest;

TEST(LedgerCrash, CrashFromTheConsoleLeavesADumpThatLldbOpens)
{
#if defined(YOVO_SANITIZE_UNDEFINED)
    GTEST_SKIP() << "the undefined-behaviour sanitizer stops a store through a null pointer "
                    "itself, before any signal";
#endif
    yovotest::TempDir dir;
    const QString tmp = dir.file(QStringLiteral("tmp"));
    ASSERT_TRUE(QDir().mkpath(tmp));
    const QString table = yovotest::uniqueName("ledger_crash_");
    const QString program = yovotest::helperPath("yledgerd_crashable");

    QProcess daemon;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.remove(QStringLiteral("NOTIFY_SOCKET"));
    // The dumps go to the temporary folder's "yovo_dump".
    environment.insert(QStringLiteral("TMPDIR"), tmp);
    daemon.setProcessEnvironment(environment);
    daemon.start(program,
        {QStringLiteral("-e"), QStringLiteral("--config"), writeConfig(dir, 0, table),
            QStringLiteral("--console")});
    ASSERT_TRUE(daemon.waitForStarted(10000));
    QByteArray output;
    while (!output.contains("listening on port") && daemon.waitForReadyRead(15000))
        output += daemon.readAllStandardOutput();
    ASSERT_TRUE(output.contains("listening on port")) << output.constData();
    const qint64 pid = daemon.processId();

    daemon.write("counters()\n");
    daemon.write("crash()\n");
    ASSERT_TRUE(daemon.waitForFinished(60000));
    output += daemon.readAllStandardOutput();
    EXPECT_EQ(QProcess::CrashExit, daemon.exitStatus());
    EXPECT_TRUE(output.contains("pid=" + QByteArray::number(pid) + "\n")) << output.constData();

    const QString dump = tmp + QStringLiteral("/yovo_dump/p%1.mdmp").arg(pid);
    ASSERT_TRUE(QFile::exists(dump)) << dump.toStdString();
    EXPECT_GT(QFileInfo(dump).size(), 1024);
    const QByteArray log = yovotest::readFile(logPath(dir, table));
    EXPECT_TRUE(log.contains("has exited unexpectedly. Minidump is at " + QFile::encodeName(dump)))
        << log.constData();

    const QString lldb = QStandardPaths::findExecutable(QStringLiteral("lldb"));
    ASSERT_FALSE(lldb.isEmpty()) << "lldb not found (Debian package lldb)";
    QProcess debugger;
    debugger.setProcessChannelMode(QProcess::MergedChannels);
    debugger.start(lldb,
        {QStringLiteral("--batch"), QStringLiteral("-c"), dump, program, QStringLiteral("-o"),
            QStringLiteral("bt 12")});
    ASSERT_TRUE(debugger.waitForFinished(120000));
    const QByteArray backtrace = debugger.readAll();
    // The faulting frame is the console's command, called from the console's loop.
    EXPECT_TRUE(backtrace.contains("stop reason = signal SIGSEGV")) << backtrace.constData();
    const int top = backtrace.indexOf("frame #0: ");
    ASSERT_GE(top, 0) << backtrace.constData();
    const QByteArray frame = backtrace.mid(top, backtrace.indexOf('\n', top) - top);
    EXPECT_TRUE(frame.contains("yledgerd_crashable`")) << frame.constData();
    EXPECT_TRUE(frame.contains("LedgerConsole::")) << frame.constData();
    EXPECT_TRUE(frame.contains("ledger_daemon.cpp:")) << frame.constData();
    EXPECT_TRUE(backtrace.contains("YDebugConsole::run()")) << backtrace.constData();
}
