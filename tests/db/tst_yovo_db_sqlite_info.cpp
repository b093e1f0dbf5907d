#include "db_test_support.h"
#include "yexception.h"
#include "yovo_db_sqlite_info.h"

#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <gtest/gtest.h>

using namespace yovotest;

TEST(YovoDbSQliteInfo, FileNamesUnderTheDataFolder)
{
    const YovoDbSQliteInfo info(QStringLiteral("/srv"));
    const char* const files[] = {"deployment.db", "monitor.db", "jobqueue.db", "ysd.db", "geo.db",
        "statistics.db", "gui.db", "codetracing.db", "devbar.db"};
    for (int i = 0; i < 9; ++i) {
        EXPECT_EQ(info.dbFileName(static_cast<YovoDbSQliteInfo::DAEMON_TYPE>(i)),
            QStringLiteral("/srv/data/db/") + QLatin1String(files[i]));
    }
    EXPECT_EQ(info.dbFileName(YovoDbSQliteInfo::DEVBAR), QStringLiteral("/srv/data/db/devbar.db"));
    // The directory is taken as it stands; only the template's separators are the platform's.
    EXPECT_EQ(YovoDbSQliteInfo(QStringLiteral("D:\\srv")).dbFileName(YovoDbSQliteInfo::DEVBAR),
        QStringLiteral("D:\\srv/data/db/devbar.db"));
}

TEST(YovoDbSQliteInfo, InvalidTypeThrowsAndLargerValuesGiveTheFolder)
{
    const YovoDbSQliteInfo info(QStringLiteral("/srv"));
    try {
        info.dbFileName(YovoDbSQliteInfo::INVALID);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ(e.what(), "YovoDbSQliteInfo::dbFileName: Invalid database type");
    }
    EXPECT_EQ(info.dbFileName(static_cast<YovoDbSQliteInfo::DAEMON_TYPE>(10)),
        QStringLiteral("/srv/data/db/"));
    EXPECT_EQ(info.dbFileName(static_cast<YovoDbSQliteInfo::DAEMON_TYPE>(12345)),
        QStringLiteral("/srv/data/db/"));
}

TEST(YovoDbSQliteInfo, CopiesAndTheProcessWideObject)
{
    YovoDbSQliteInfo info(QStringLiteral("/a"));
    YovoDbSQliteInfo copy(info);
    EXPECT_EQ(copy.getYovoInstallDir(), QStringLiteral("/a"));
    YovoDbSQliteInfo other(QStringLiteral("/b"));
    other = info;
    EXPECT_EQ(other.getYovoInstallDir(), QStringLiteral("/a"));
    other.setYovoInstallDir(QStringLiteral("/c"));
    EXPECT_EQ(other.dbFileName(YovoDbSQliteInfo::GUI), QStringLiteral("/c/data/db/gui.db"));

    YovoDbSQliteInfo& first = YovoDbSQliteInfo::get(QStringLiteral("/first"));
    YovoDbSQliteInfo& second = YovoDbSQliteInfo::get(QStringLiteral("/second"));
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(second.getYovoInstallDir(), QStringLiteral("/first"));
    YovoDbSQliteInfo::setLogStream(YDebug::STDOUT);
}

TEST(YovoDbSQliteInfo, ConnectionOpensWithAMinuteOfBusyTimeOut)
{
    TempDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.file(QStringLiteral("data/db"))));
    const YovoDbSQliteInfo info(dir.path());
    const QString name = uniqueName("monitor");
    {
        QSqlDatabase database = info.connection(YovoDbSQliteInfo::MONITOR, name);
        EXPECT_TRUE(database.isOpen());
        EXPECT_EQ(database.connectionName(), name);
        EXPECT_EQ(database.databaseName(), dir.file(QStringLiteral("data/db/monitor.db")));
        EXPECT_EQ(database.connectOptions(), QStringLiteral("QSQLITE_BUSY_TIMEOUT=60000"));
        execOrFail(database, QStringLiteral("create table m (v int)"));
    }
    EXPECT_TRUE(QFile::exists(dir.file(QStringLiteral("data/db/monitor.db"))));
    QSqlDatabase::removeDatabase(name);
}

TEST(YovoDbSQliteInfo, SecondConnectionUnderOneNameReplacesTheFirst)
{
    TempDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.file(QStringLiteral("data/db"))));
    const YovoDbSQliteInfo info(dir.path());
    const QString name = uniqueName("replace");
    const int before = QSqlDatabase::connectionNames().size();
    {
        QSqlDatabase first = info.connection(YovoDbSQliteInfo::GEO, name);
        EXPECT_TRUE(first.isOpen());
    }
    {
        QSqlDatabase second = info.connection(YovoDbSQliteInfo::GUI, name);
        EXPECT_EQ(second.databaseName(), dir.file(QStringLiteral("data/db/gui.db")));
        EXPECT_EQ(QSqlDatabase::connectionNames().size(), before + 1);
        EXPECT_EQ(QSqlDatabase::database(name, false).databaseName(),
            dir.file(QStringLiteral("data/db/gui.db")));
    }
    QSqlDatabase::removeDatabase(name);
}

TEST(YovoDbSQliteInfo, EmptyNameUsesTheDefaultConnection)
{
    TempDir dir;
    ASSERT_TRUE(QDir().mkpath(dir.file(QStringLiteral("data/db"))));
    const YovoDbSQliteInfo info(dir.path());
    {
        QSqlDatabase database = info.connection(YovoDbSQliteInfo::YSD, QString());
        EXPECT_EQ(database.connectionName(), QLatin1String(QSqlDatabase::defaultConnection));
        EXPECT_TRUE(QSqlDatabase::database().isOpen());
    }
    QSqlDatabase::removeDatabase(QLatin1String(QSqlDatabase::defaultConnection));
}

TEST(YovoDbSQliteInfo, MissingFolderThrowsWithTheFullPath)
{
    const QString missing = QStringLiteral("/nonexistent-%1").arg(uniqueName("dir"));
    const YovoDbSQliteInfo info(missing);
    const QString name = uniqueName("missing");
    try {
        info.connection(YovoDbSQliteInfo::JOBQUEUE, name);
        FAIL() << "no exception";
    } catch (const YException& e) {
        const QString error = QSqlDatabase::database(name, false).lastError().text();
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Unable to connect to sqlite database: %1/data/db/jobqueue.db. %2")
                .arg(missing, error));
    }
    EXPECT_THROW(info.connection(YovoDbSQliteInfo::INVALID, name), YException);
    QSqlDatabase::removeDatabase(name);
}
