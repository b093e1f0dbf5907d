#include "db_test_support.h"

#include <QFile>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>

#include <gtest/gtest.h>

using namespace yovotest;

// Two processes share one SQLite file and increment one counter 5,000 times each; every locked
// statement and commit is retried by the library, and not one increment is lost or doubled.
TEST(YDbSqliteProcesses, TwoProcessesIncrementOneCounterExactly)
{
    TempDir dir;
    const QString file = dir.file(QStringLiteral("counter.db"));
    const QString name = uniqueName("counter");
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        database.setDatabaseName(file);
        ASSERT_TRUE(database.open());
        execOrFail(database, QStringLiteral("create table counter (value integer)"));
        execOrFail(database, QStringLiteral("insert into counter values (0)"));
        database.close();
    }
    const QString go = dir.file(QStringLiteral("go"));
    QProcess first;
    QProcess second;
    for (QProcess* process : {&first, &second}) {
        process->start(helperPath("ydb_counter_helper"),
            QStringList() << file << QStringLiteral("5000") << go);
    }
    for (QProcess* process : {&first, &second})
        ASSERT_TRUE(process->waitForStarted(10000));
    QFile start(go);
    ASSERT_TRUE(start.open(QIODevice::WriteOnly));
    start.close();
    QByteArray errors;
    for (QProcess* process : {&first, &second}) {
        ASSERT_TRUE(process->waitForFinished(600000));
        EXPECT_EQ(process->exitStatus(), QProcess::NormalExit);
        const QByteArray text = process->readAllStandardError();
        EXPECT_EQ(process->exitCode(), 0) << text.toStdString();
        errors += text;
    }
    // Without a busy wait inside SQLite, two writers that start together collide: the library's
    // retries, not luck, kept the count exact.
    EXPECT_GT(errors.count("DB is locked. Performing retry number:"), 0);
    {
        QSqlDatabase database = QSqlDatabase::database(name);
        EXPECT_EQ(scalar(database, QStringLiteral("select value from counter")).toInt(), 10000);
        database.close();
    }
    QSqlDatabase::removeDatabase(name);
}
