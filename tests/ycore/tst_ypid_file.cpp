#include "yglobals.h"
#include "yovo_server_info.h"
#include "ypid_file.h"

#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

namespace {

// An installation under a fresh folder, with its tmp folder made.
class Installation
{
public:
    Installation()
        : info(_dir.path(), QStringLiteral("nginx"))
    {
        QDir().mkpath(info.getTmp());
    }
    QString pidPath(const QString& name) const { return info.getTmp() + '/' + name; }
    void write(const QString& name, const QByteArray& content) const
    {
        QFile file(pidPath(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

private:
    yovotest::TempDir _dir;

public:
    YovoServerInfo info;
};

} // namespace

TEST(YPidFile, DefaultIsInvalidAndRemoveDoesNothing)
{
    YPidFile file;
    EXPECT_FALSE(file.isValid());
    file.remove();
    EXPECT_FALSE(YPidFile(QString(), YDebug::STDERR).isValid());
}

TEST(YPidFile, CopiedTwiceIsRemovedOnlyWhenTheLastCopyDies)
{
    Installation inst;
    inst.write("a.pid", "1\n");
    const QString path = inst.pidPath("a.pid");
    {
        YPidFile first(path, YDebug::STDERR);
        EXPECT_TRUE(first.isValid());
        {
            YPidFile second(first);
            YPidFile third;
            third = second;
            EXPECT_TRUE(third.isValid());
        }
        EXPECT_TRUE(QFileInfo::exists(path));
    }
    EXPECT_FALSE(QFileInfo::exists(path));
}

TEST(YPidFile, AssignmentReleasesTheOldBody)
{
    Installation inst;
    inst.write("old.pid", "1\n");
    inst.write("new.pid", "2\n");
    YPidFile holder(inst.pidPath("old.pid"), YDebug::STDERR);
    holder = YPidFile(inst.pidPath("new.pid"), YDebug::STDERR);
    EXPECT_FALSE(QFileInfo::exists(inst.pidPath("old.pid")));
    EXPECT_TRUE(QFileInfo::exists(inst.pidPath("new.pid")));
    YPidFile& alias = holder;
    holder = alias;
    EXPECT_TRUE(QFileInfo::exists(inst.pidPath("new.pid")));
}

TEST(YPidFile, RemoveLogsAndDeletesNow)
{
    yovotest::LogFile log("PF", "pid.log");
    Installation inst;
    inst.write("r.pid", "1\n");
    YPidFile file(inst.pidPath("r.pid"), log.stream());
    file.remove();
    EXPECT_FALSE(QFileInfo::exists(inst.pidPath("r.pid")));
    EXPECT_EQ(log.text(),
        "[PF <TS> DBG2] Removing pid file " + QFile::encodeName(inst.pidPath("r.pid")) + " \r\n");
}

TEST(YPidFile, FailedRemoveIsAWarning)
{
    yovotest::LogFile log("PF", "pid.log");
    Installation inst;
    // A folder that holds something can't be removed as a file.
    ASSERT_TRUE(QDir().mkpath(inst.pidPath("busy.pid") + "/inside"));
    {
        YPidFile file(inst.pidPath("busy.pid"), log.stream());
    }
    EXPECT_TRUE(QFileInfo::exists(inst.pidPath("busy.pid")));
    const QByteArray text = log.text();
    const QByteArray path = QFile::encodeName(inst.pidPath("busy.pid"));
    EXPECT_TRUE(text.startsWith("[PF <TS> DBG2] Removing pid file " + path
        + " \r\n"
          "[PF <TS> WARNING] "
          "Cannot remove pid "
          "file "
        + path + " . "))
        << text.toStdString();
}

TEST(YGlobalsPid, NamesOfThePidFiles)
{
    EXPECT_EQ(YGlobals::PID_RESTART_AGENT, QStringLiteral("utils_restart.pid"));
    EXPECT_EQ(YGlobals::PID_PAGECACHE_CLEANER, QStringLiteral("pagecache_cleaner.pid"));
}

TEST(YGlobalsPid, CreateWritesTheProcessIdAndANewline)
{
    Installation inst;
    YPidFile file = YGlobals::createPidFile(YDebug::STDERR, inst.info, "me.pid");
    EXPECT_TRUE(file.isValid());
    EXPECT_EQ(yovotest::readFile(inst.pidPath("me.pid")), QByteArray::number(getpid()) + "\n");
    EXPECT_EQ(YGlobals::getPidOf(YDebug::STDERR, inst.info, "me.pid"), int(getpid()));
}

TEST(YGlobalsPid, SecondCreateLeavesTheSecondProcessesId)
{
    Installation inst;
    YPidFile mine = YGlobals::createPidFile(YDebug::STDERR, inst.info, "shared.pid");
    const pid_t child = fork();
    if (child == 0) {
        // The child's handle is never destroyed, so the file stays as the child wrote it.
        new YPidFile(YGlobals::createPidFile(YDebug::STDERR, inst.info, "shared.pid"));
        _exit(0);
    }
    ASSERT_GT(child, 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(yovotest::readFile(inst.pidPath("shared.pid")), QByteArray::number(child) + "\n");
    EXPECT_EQ(YGlobals::getPidOf(YDebug::STDERR, inst.info, "shared.pid"), int(child));
}

TEST(YGlobalsPid, CreateInAMissingFolderIsInvalidAndLogged)
{
    yovotest::LogFile log("PF", "pid.log");
    yovotest::TempDir dir;
    const YovoServerInfo info(dir.file("absent"), QStringLiteral("nginx"));
    YPidFile file = YGlobals::createPidFile(log.stream(), info, "x.pid");
    EXPECT_FALSE(file.isValid());
    QFile probe(info.getTmp() + "/x.pid");
    probe.open(QIODevice::WriteOnly);
    EXPECT_EQ(log.text(),
        "[PF <TS> ERROR] Cannot create pid file " + QFile::encodeName(info.getTmp() + "/x.pid")
            + " " + probe.errorString().toLocal8Bit() + " \r\n");
}

TEST(YGlobalsPid, GetPidOfReadsNumbersEmptyAndMissingFiles)
{
    yovotest::LogFile log("PF", "pid.log");
    Installation inst;
    inst.write("twelve.pid", "12\n");
    inst.write("empty.pid", "");
    inst.write("foreign.pid", "not a pid\n");
    EXPECT_EQ(YGlobals::getPidOf(log.stream(), inst.info, "twelve.pid"), 12);
    EXPECT_EQ(YGlobals::getPidOf(log.stream(), inst.info, "empty.pid"), 0);
    EXPECT_EQ(YGlobals::getPidOf(log.stream(), inst.info, "foreign.pid"), 0);
    EXPECT_EQ(YGlobals::getPidOf(log.stream(), inst.info, "missing.pid"), -1);
    EXPECT_EQ(log.text(),
        "[PF <TS> DBG2] pid file " + QFile::encodeName(inst.pidPath("missing.pid"))
            + " does not exist \r\n");
}

TEST(YGlobalsPid, GetPidOfAnUnreadableFileIsMinusOne)
{
    yovotest::LogFile log("PF", "pid.log");
    Installation inst;
    // A folder in its place exists and can't be opened as a file.
    ASSERT_TRUE(QDir().mkpath(inst.pidPath("dir.pid")));
    EXPECT_EQ(YGlobals::getPidOf(log.stream(), inst.info, "dir.pid"), -1);
    EXPECT_TRUE(log.text().startsWith(
        "[PF <TS> ERROR] Cannot open pid file " + QFile::encodeName(inst.pidPath("dir.pid")) + " "))
        << log.text().toStdString();
}
