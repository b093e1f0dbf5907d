// The periodic rotation of a log that another writer produces.
#include "test_support.h"

#include <yovolib/yovolib.h>

#include <gtest/gtest.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

namespace {

class PeriodicLogRotator : public ::testing::Test
{
protected:
    void SetUp() override
    {
        _logPath = _tmp.file(QStringLiteral("rotator.log"));
        _stream = YDebug::registerStream("ROT", _logPath.toLocal8Bit().constData());
        YDebug::setDebugLevel(_stream, YDebug::WARNING);
        _dir = _tmp.file(QStringLiteral("logs"));
        QDir().mkpath(_dir);
    }
    void TearDown() override { YDebug::unregisterStream(_stream); }

    QByteArray dir() const { return QFile::encodeName(_dir); }
    QString path(const QString& name) const { return _dir + QLatin1Char('/') + name; }
    static void writeFile(const QString& path, const QByteArray& content)
    {
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
    }
    // The rotated copies: app_ddMMyy_hhmmss.log.
    QStringList rotated(const QString& base) const
    {
        return QDir(_dir).entryList({base + QStringLiteral("_*.log")}, QDir::Files, QDir::Name);
    }
    QByteArray log() const { return yovotest::maskTimestamps(yovotest::readFile(_logPath)); }

    yovotest::TempDir _tmp;
    QString _logPath;
    QString _dir;
    YDebug::StreamId _stream;
};

std::string messageOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const YException& e) {
        return e.what();
    }
    return std::string();
}

TEST_F(PeriodicLogRotator, SecondRotatorForThePathThrowsWithTheAbsolutePath)
{
    YPeriodicLogRotator first(_stream, dir().constData(), "app.log", 1, 60);
    const std::string what
        = messageOf([&] { YPeriodicLogRotator second(_stream, dir().constData(), "app", 1, 60); });
    const std::string expected = QStringLiteral("File \"%1\" is already handled by a log rotator")
                                     .arg(path(QStringLiteral("app.log")))
                                     .toStdString();
    ASSERT_GE(what.size(), expected.size()) << what;
    EXPECT_EQ(expected, what.substr(what.size() - expected.size())) << what;
}

TEST_F(PeriodicLogRotator, WithoutExtensionFirstAndWithItSecondAlsoThrows)
{
    YPeriodicLogRotator first(_stream, dir().constData(), "app", 1, 60);
    const std::string what = messageOf(
        [&] { YPeriodicLogRotator second(_stream, dir().constData(), "app.log", 1, 60); });
    EXPECT_NE(std::string::npos,
        what.find(QStringLiteral("File \"%1\" is already handled by a log rotator")
                      .arg(path(QStringLiteral("app.log")))
                      .toStdString()))
        << what;
}

TEST_F(PeriodicLogRotator, RelativeFolderIsComparedByItsAbsolutePath)
{
    const QString saved = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(_dir));
    YPeriodicLogRotator first(_stream, ".", "app", 1, 60);
    const std::string what
        = messageOf([&] { YPeriodicLogRotator second(_stream, dir().constData(), "app", 1, 60); });
    QDir::setCurrent(saved);
    EXPECT_NE(std::string::npos,
        what.find(QStringLiteral("File \"%1\" is already handled by a log rotator")
                      .arg(path(QStringLiteral("app.log")))
                      .toStdString()))
        << what;
}

TEST_F(PeriodicLogRotator, ExtensionIsCutCaseSensitively)
{
    // "app.LOG" keeps its ending and names "app.LOG.log": another file than "app.log".
    YPeriodicLogRotator first(_stream, dir().constData(), "app.log", 1, 60);
    YPeriodicLogRotator* second = nullptr;
    ASSERT_NO_THROW(second = new YPeriodicLogRotator(_stream, dir().constData(), "app.LOG", 1, 60));
    writeFile(path(QStringLiteral("app.LOG.log")), "x");
    second->rotateLog(false);
    EXPECT_EQ(1, rotated(QStringLiteral("app.LOG")).size());
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("app.LOG.log"))));
    delete second;
}

TEST_F(PeriodicLogRotator, ForcedRotationOfASmallFileRotates)
{
    writeFile(path(QStringLiteral("app.log")), "small");
    YPeriodicLogRotator rotator(_stream, dir().constData(), "app", 1024, 60);
    const QString before = QDateTime::currentDateTime().toString(QStringLiteral("ddMMyy_hhmmss"));
    rotator.rotateLog(false);
    const QString after = QDateTime::currentDateTime().toString(QStringLiteral("ddMMyy_hhmmss"));
    const QStringList copies = rotated(QStringLiteral("app"));
    ASSERT_EQ(1, copies.size());
    EXPECT_TRUE(copies.first() == QStringLiteral("app_%1.log").arg(before)
        || copies.first() == QStringLiteral("app_%1.log").arg(after))
        << copies.first().toStdString();
    EXPECT_EQ(QByteArray("small"), yovotest::readFile(path(copies.first())));
    // Renamed away; nobody has made the file again.
    EXPECT_FALSE(QFile::exists(path(QStringLiteral("app.log"))));
    EXPECT_EQ(QByteArray(), log());
}

TEST_F(PeriodicLogRotator, SizeCheckRotatesFromTheLimitOn)
{
    YPeriodicLogRotator rotator(_stream, dir().constData(), "app.log", 1, 60);
    writeFile(path(QStringLiteral("app.log")), QByteArray(1023, 'a'));
    rotator.rotateLog(true);
    EXPECT_TRUE(rotated(QStringLiteral("app")).isEmpty());
    // The size is read afresh: no cached answer from the check before.
    writeFile(path(QStringLiteral("app.log")), QByteArray(1024, 'b'));
    rotator.rotateLog(true);
    const QStringList copies = rotated(QStringLiteral("app"));
    ASSERT_EQ(1, copies.size());
    EXPECT_EQ(QByteArray(1024, 'b'), yovotest::readFile(path(copies.first())));
}

TEST_F(PeriodicLogRotator, MissingFileIsLeftAloneUnlessTheLimitIsZero)
{
    YPeriodicLogRotator rotator(_stream, dir().constData(), "absent", 1, 60);
    rotator.rotateLog(true);
    EXPECT_EQ(QByteArray(), log());
    YPeriodicLogRotator zero(_stream, dir().constData(), "gone", 0, 60);
    zero.rotateLog(true);
    EXPECT_TRUE(log().contains("rotation of log failed")) << log().constData();
    EXPECT_TRUE(log().contains(QFile::encodeName(path(QStringLiteral("gone.log")))))
        << log().constData();
}

TEST_F(PeriodicLogRotator, SecondRotationInTheSameSecondFailsAndIsOnlyLogged)
{
    YPeriodicLogRotator rotator(_stream, dir().constData(), "app", 1, 60);
    // Both rotations must fall into one second; a turn of the second between them is retried.
    for (int attempt = 0; attempt < 10; ++attempt) {
        QDir(_dir).removeRecursively();
        QDir().mkpath(_dir);
        QFile::resize(_logPath, 0);
        const QString stamp
            = QDateTime::currentDateTime().toString(QStringLiteral("ddMMyy_hhmmss"));
        writeFile(path(QStringLiteral("app.log")), "first");
        rotator.rotateLog(false);
        writeFile(path(QStringLiteral("app.log")), "second");
        rotator.rotateLog(false);
        if (QDateTime::currentDateTime().toString(QStringLiteral("ddMMyy_hhmmss")) != stamp)
            continue;
        const QString target = path(QStringLiteral("app_%1.log").arg(stamp));
        EXPECT_EQ(
            QStringList {QStringLiteral("app_%1.log").arg(stamp)}, rotated(QStringLiteral("app")));
        EXPECT_EQ(QByteArray("first"), yovotest::readFile(target));
        EXPECT_EQ(QByteArray("second"), yovotest::readFile(path(QStringLiteral("app.log"))));
        const QRegularExpression expected(
            QStringLiteral("^\\[ROT <TS> WARNING\\] [^ ]*periodic_log_rotator\\.cpp:\\d+ rotation "
                           "of log failed \r\nfailed to rename YPeriodicLogRotator::rotateLog %1 "
                           "%2 \r\n$")
                .arg(QRegularExpression::escape(path(QStringLiteral("app.log"))),
                    QRegularExpression::escape(target)));
        EXPECT_TRUE(expected.match(QString::fromLatin1(log())).hasMatch()) << log().constData();
        return;
    }
    FAIL() << "no two rotations within one second in ten attempts";
}

TEST_F(PeriodicLogRotator, TaskChecksAtOnceAndThenEveryPeriod)
{
    writeFile(path(QStringLiteral("app.log")), QByteArray(2048, 'a'));
    // Lives to the end of the process, as a started rotator must.
    YPeriodicLogRotator* rotator = new YPeriodicLogRotator(_stream, dir().constData(), "app", 1, 1);
    rotator->start();
    for (int i = 0; i < 1000 && rotated(QStringLiteral("app")).size() < 1; ++i)
        QThread::msleep(10);
    ASSERT_EQ(1, rotated(QStringLiteral("app")).size());
    writeFile(path(QStringLiteral("app.log")), QByteArray(4096, 'b'));
    for (int i = 0; i < 1000 && rotated(QStringLiteral("app")).size() < 2; ++i)
        QThread::msleep(10);
    const QStringList copies = rotated(QStringLiteral("app"));
    ASSERT_EQ(2, copies.size());
    EXPECT_EQ(QByteArray(2048, 'a'), yovotest::readFile(path(copies.at(0))));
    EXPECT_EQ(QByteArray(4096, 'b'), yovotest::readFile(path(copies.at(1))));
}

} // namespace
