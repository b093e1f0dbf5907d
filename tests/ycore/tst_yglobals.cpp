#include "yglobals.h"

#include "test_support.h"
#include "yexception.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <gtest/gtest.h>

#include <csignal>
#include <sys/wait.h>

namespace {

void touch(const QString& path)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("x");
}

// Before the program ends nothing touches out; after it ended (a crash) out holds what it wrote.
QString thrownBy(const QString& command, int timeoutSeconds, QByteArray* err = nullptr,
    const QByteArray& expectedOut = QByteArray("untouched"))
{
    QByteArray out("untouched"), errors;
    try {
        YGlobals::execute(command, out, errors, YDebug::STDERR, timeoutSeconds, QStringList());
    } catch (YException& e) {
        if (err)
            *err = errors;
        EXPECT_EQ(out, expectedOut);
        return QString::fromUtf8(e.what());
    }
    return QStringLiteral("<nothing thrown>");
}

} // namespace

TEST(YGlobals, ExecuteReturnsExitCodeAndOutputs)
{
    QByteArray out, err;
    const int code = YGlobals::execute(
        "sh -c \"printf out; printf err >&2; exit 3\"", out, err, YDebug::STDERR, 10, {});
    EXPECT_EQ(code, 3);
    EXPECT_EQ(out, QByteArray("out"));
    EXPECT_EQ(err, QByteArray("err"));
}

TEST(YGlobals, ExecuteAddsEnvironmentEntriesToTheSystems)
{
    qputenv("YOVO_GLOBALS_INHERITED", "kept");
    QByteArray out, err;
    EXPECT_EQ(YGlobals::execute("sh -c \"echo $YOVO_GLOBALS_ADDED-$YOVO_GLOBALS_INHERITED\"", out,
                  err, YDebug::STDERR, 10, {"YOVO_GLOBALS_ADDED=abc"}),
        0);
    EXPECT_EQ(out, QByteArray("abc-kept\n"));
}

TEST(YGlobals, ExecuteLogsItsSteps)
{
    yovotest::LogFile log("GL", "globals.log");
    QByteArray out, err;
    YGlobals::execute("true", out, err, log.stream(), 10, {});
    EXPECT_EQ(log.text(),
        "[GL <TS> DBG2] Executing: true \r\n"
        "[GL <TS> DBG2] Waiting for process to terminate... \r\n"
        "[GL <TS> DBG2] Waiting for process to terminate...done \r\n");
}

TEST(YGlobals, ExecuteOfMissingProgramThrowsUnableToStart)
{
    const QString text = thrownBy("/no/such/program --flag", 10);
    EXPECT_TRUE(text.startsWith("Unable to start /no/such/program --flag. ")) << text.toStdString();
    EXPECT_TRUE(text.endsWith(". ")) << text.toStdString();
}

TEST(YGlobals, ExecuteOfEmptyCommandThrowsUnableToStart)
{
    EXPECT_TRUE(thrownBy("", 10).startsWith("Unable to start . "));
}

TEST(YGlobals, ExecuteThatOutlastsItsTimeOutThrowsTimedOut)
{
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(thrownBy("sleep 30", 1), QStringLiteral("sleep 30 timed out"));
    EXPECT_LT(timer.elapsed(), 20000);
}

TEST(YGlobals, ExecuteKillsAProgramThatIgnoresSigterm)
{
    yovotest::TempDir dir;
    const QString pidFile = dir.file("helper.pid");
    const QString command = yovotest::helperPath("ignore_term_helper") + " " + pidFile;
    EXPECT_EQ(thrownBy(command, 2), command + " timed out");
    bool ok = false;
    const int pid = yovotest::readFile(pidFile).trimmed().toInt(&ok);
    ASSERT_TRUE(ok);
    // Killed and reaped: no process of that id is left, not even a zombie.
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST(YGlobals, ExecuteOfACrashingProgramThrows)
{
    QByteArray err;
    const QString text
        = thrownBy("sh -c \"printf partial; printf boom >&2; kill -SEGV $$\"", 10, &err, "partial");
    EXPECT_TRUE(text.startsWith("Process crashed with exit code ")) << text.toStdString();
    EXPECT_TRUE(text.endsWith(". boom")) << text.toStdString();
    EXPECT_EQ(err, QByteArray("boom"));
}

TEST(YGlobals, RemoveDirOfMissingPathRunsNothing)
{
    yovotest::LogFile log("GL", "globals.log");
    yovotest::TempDir dir;
    const QString path = dir.file("missing");
    EXPECT_TRUE(YGlobals::removeDir(path, log.stream()));
    EXPECT_EQ(log.text(),
        "[GL <TS> DBG2] " + QFile::encodeName(path) + " doesn't exists - no need to remove \r\n");
}

TEST(YGlobals, RemoveDirRemovesATreeWhoseNameTheShellWouldExpand)
{
    yovotest::LogFile log("GL", "globals.log");
    yovotest::TempDir dir;
    const QString path = dir.file("it's $HOME `true`");
    ASSERT_TRUE(QDir().mkpath(path + "/a/b"));
    touch(path + "/a/b/f");
    touch(dir.file("neighbour"));
    EXPECT_TRUE(YGlobals::removeDir(path, log.stream()));
    EXPECT_FALSE(QFileInfo::exists(path));
    EXPECT_TRUE(QFileInfo::exists(dir.file("neighbour")));
    EXPECT_EQ(log.text(),
        "[GL <TS> DBG2] Executing: rm -rf -- '" + QFile::encodeName(dir.path())
            + "/it'\\''s $HOME `true`' \r\n");
}

TEST(YGlobals, RemoveDirRemovesADanglingLink)
{
    yovotest::TempDir dir;
    const QString link = dir.file("link");
    ASSERT_TRUE(QFile::link(dir.file("nowhere"), link));
    EXPECT_TRUE(YGlobals::removeDir(link, YDebug::STDERR));
    EXPECT_FALSE(QFileInfo(link).isSymLink());
}

TEST(YGlobals, GlobFindsFilesAtAnyDepthWithAnUnanchoredMatch)
{
    yovotest::TempDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.file("x/y")));
    touch(dir.file("top.ini"));
    touch(dir.file("x/y/deep.ini"));
    touch(dir.file("x/a.ini.bak"));
    touch(dir.file("x/other.txt"));
    touch(dir.file("x/UPPER.INI"));
    ASSERT_TRUE(QDir().mkpath(dir.file("x/folder.ini")));
    std::set<QString> found {QStringLiteral("kept")};
    YGlobals::glob(dir.path(), found, "*.ini");
    EXPECT_EQ(found,
        (std::set<QString> {
            "kept", dir.file("top.ini"), dir.file("x/y/deep.ini"), dir.file("x/a.ini.bak")}));
}

TEST(YGlobals, GlobWithoutFilterFindsAllFiles)
{
    yovotest::TempDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.file("x")));
    touch(dir.file("a"));
    touch(dir.file("x/b"));
    std::set<QString> found;
    YGlobals::glob(dir.path(), found, QString());
    EXPECT_EQ(found, (std::set<QString> {dir.file("a"), dir.file("x/b")}));
}

TEST(YGlobals, ToNativePathKeepsSlashes)
{
    EXPECT_EQ(YGlobals::toNativePath("/a/b"), "/a/b");
}

TEST(YGlobals, CanEnterDirectory)
{
    yovotest::TempDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.file("sub")));
    touch(dir.file("file"));
    EXPECT_TRUE(YGlobals::canEnterDirectory(dir.file("sub")));
    EXPECT_FALSE(YGlobals::canEnterDirectory(dir.file("missing")));
    EXPECT_FALSE(YGlobals::canEnterDirectory(dir.file("file")));
}

TEST(YGlobals, CanEnterDirectoryOfAnEntryTestsItsFolder)
{
    yovotest::TempDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.file("sub")));
    // Neither entry is an enterable folder, yet the folder that holds them is.
    EXPECT_TRUE(YGlobals::canEnterDirectory(QFileInfo(dir.file("missing"))));
    EXPECT_TRUE(YGlobals::canEnterDirectory(QFileInfo(dir.file("sub/missing"))));
    EXPECT_FALSE(YGlobals::canEnterDirectory(QFileInfo(dir.file("gone/missing"))));
}
