#include "db_test_support.h"
#include "ydb.h"
#include "ydb_config_reader.h"
#include "yexception.h"

#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

#include <gtest/gtest.h>

#include <cstdlib>

using namespace yovotest;

namespace {

const char CATALOGUE[]
    = "<statements>"
      "<statement name=\"create\" sql=\"create table t (v integer primary key)\"/>"
      "<statement name=\"insert\" sql=\"insert into t (v) values (:v)\"/>"
      "<statement name=\"count\" sql=\"select count(*) from t\"/>"
      "<statement name=\"broken\" sql=\"selec nothing frm nowhere\"/>"
      "<statement name=\"missing\" sql=\"insert into nothere values (1)\"/>"
      "</statements>";

class SqliteFixture : public ::testing::Test
{
protected:
    void SetUp() override
    {
        data.dbType = QStringLiteral("QSQLITE");
        data.dbName = dir.file(QStringLiteral("connection.db"));
        // No busy waiting inside SQLite: a lock shows at once as "database is locked".
        data.connectOpts = QStringLiteral("QSQLITE_BUSY_TIMEOUT=0");
        data.statementsXml = QString::fromLatin1(CATALOGUE);
        pool.reset(new YDb(&data));
        ASSERT_TRUE(pool->isInitialized());
        YDbConnectionPtr connection = pool->getConnection();
        ASSERT_TRUE(connection->createQuery(QStringLiteral("create")).exec());
    }

    void TearDown() override
    {
        if (!blockerName.isEmpty())
            closeSideConnection(blockerName);
        pool.reset();
    }

    // A second, plain connection to the same file, which holds a lock of the given strength.
    void block(const char* begin, const char* then = nullptr)
    {
        blockerName = uniqueName("blocker");
        QSqlDatabase blocker = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), blockerName);
        blocker.setDatabaseName(data.dbName);
        blocker.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=0"));
        ASSERT_TRUE(blocker.open());
        execOrFail(blocker, QString::fromLatin1(begin));
        if (then != nullptr) {
            QSqlQuery query(blocker);
            ASSERT_TRUE(query.exec(QString::fromLatin1(then)));
            while (query.next()) { }
        }
    }

    int rows()
    {
        YDbConnectionPtr connection = pool->getConnection();
        YSafeSqlQuery count = connection->createQuery(QStringLiteral("count"));
        count.exec();
        return count.next() ? count.value(0).toInt() : -1;
    }

    TempDir dir;
    TestInitData data;
    std::unique_ptr<YDb> pool;
    QString blockerName;
};

QStringList capturedMessages;

void captureMessage(QtMsgType, const QMessageLogContext&, const QString& message)
{
    capturedMessages << message;
}

struct MessageCapture
{
    MessageCapture()
    {
        capturedMessages.clear();
        _previous = qInstallMessageHandler(captureMessage);
    }
    ~MessageCapture() { qInstallMessageHandler(_previous); }
    QStringList queries() const { return capturedMessages.filter(QStringLiteral("YSafeSqlQuery")); }

private:
    QtMessageHandler _previous;
};

} // namespace

TEST(YDbRefCount, CountsUpAndDown)
{
    YDbRefCount count;
    EXPECT_EQ(count.GetRefCount(), 0);
    count.IncRef();
    count.IncRef();
    EXPECT_EQ(count.GetRefCount(), 2);
    count.DecRef();
    EXPECT_EQ(count.GetRefCount(), 1);
}

TEST_F(SqliteFixture, DroppingTheSecondCopyReturnsTheConnection)
{
    YDbConnection* raw = nullptr;
    {
        YDbConnectionPtr first = pool->getConnection();
        raw = first.Get();
        auto* second = new YDbConnectionPtr(first);
        EXPECT_EQ(raw->getRefCount().GetRefCount(), 2);
        first = YDbConnectionPtr();
        EXPECT_EQ(raw->getRefCount().GetRefCount(), 1);
        // Still in use: the pool hands out another one.
        YDbConnectionPtr other = pool->getConnection();
        EXPECT_NE(other.Get(), raw);
        delete second;
        EXPECT_EQ(raw->getRefCount().GetRefCount(), 0);
    }
    YDbConnectionPtr again = pool->getConnection();
    EXPECT_EQ(again.Get(), raw);
}

TEST_F(SqliteFixture, AssigningTheSameConnectionChangesNoCount)
{
    YDbConnectionPtr a = pool->getConnection();
    YDbConnectionPtr b = a;
    EXPECT_EQ(a->getRefCount().GetRefCount(), 2);
    YDbConnectionPtr& alias = a;
    a = alias;
    EXPECT_EQ(a->getRefCount().GetRefCount(), 2);
    a = b;
    b = a;
    EXPECT_EQ(a->getRefCount().GetRefCount(), 2);
    EXPECT_EQ(a.Get(), b.Get());
    EXPECT_TRUE(static_cast<bool>(a));
    EXPECT_FALSE(!a);

    YDbConnectionPtr empty;
    EXPECT_TRUE(!empty);
    EXPECT_EQ(empty.Get(), nullptr);
    empty = a;
    EXPECT_EQ(a->getRefCount().GetRefCount(), 3);
    empty = YDbConnectionPtr();
    EXPECT_EQ(a->getRefCount().GetRefCount(), 2);
}

TEST(YDbConnectionPtr, StandAloneConnectionIsDeletedAndItsNameRemovedOnRequest)
{
    TempDir dir;
    const QString kept = uniqueName("kept");
    const QString removed = uniqueName("removed");
    for (const QString& name : {kept, removed}) {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        database.setDatabaseName(dir.file(name));
        ASSERT_TRUE(database.open());
    }
    {
        YDbConnectionPtr a(new YDbConnection(QSqlDatabase::database(kept, false)), false);
        YDbConnectionPtr b(new YDbConnection(QSqlDatabase::database(removed, false)), true);
        EXPECT_TRUE(a->isSQlite());
        EXPECT_EQ(a->getYdb(), nullptr);
    }
    EXPECT_TRUE(QSqlDatabase::contains(kept));
    // The connection was deleted, which closed the database.
    EXPECT_FALSE(QSqlDatabase::database(kept, false).isOpen());
    EXPECT_FALSE(QSqlDatabase::contains(removed));
    QSqlDatabase::removeDatabase(kept);
}

TEST(YDbConnection, SqliteFlagFollowsThePoolOrTheDriver)
{
    const QString name = uniqueName("flag");
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
    {
        YDbConnection pooledWithoutPool(database, nullptr, nullptr, false);
        EXPECT_FALSE(pooledWithoutPool.isSQlite());
        YDbConnection standAlone(database);
        EXPECT_TRUE(standAlone.isSQlite());
        EXPECT_FALSE(standAlone.isTemporary());
        standAlone.makeTemporary(true);
        EXPECT_TRUE(standAlone.isTemporary());
        EXPECT_FALSE(standAlone.isInTransaction());
    }
    database = QSqlDatabase();
    QSqlDatabase::removeDatabase(name);
}

TEST_F(SqliteFixture, PooledConnectionIsSqlite)
{
    YDbConnectionPtr connection = pool->getConnection();
    EXPECT_TRUE(connection->isSQlite());
    EXPECT_EQ(connection->getYdb(), pool.get());
}

TEST_F(SqliteFixture, BeginTwiceSendsOneTransaction)
{
    YDbConnectionPtr connection = pool->getConnection();
    connection->beginTransaction();
    EXPECT_TRUE(connection->isInTransaction());
    // The driver is inside a transaction now: a second BEGIN would fail, and none is sent.
    EXPECT_NO_THROW(connection->beginTransaction());
    EXPECT_FALSE(connection->databaseRef().transaction());
    YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
    insert.bindValue(QStringLiteral(":v"), 1);
    insert.exec();
    connection->commit();
    EXPECT_FALSE(connection->isInTransaction());
    EXPECT_EQ(rows(), 1);
}

TEST_F(SqliteFixture, BeginOnAClosedDatabaseThrows)
{
    YDbConnectionPtr connection = pool->getConnection();
    connection->databaseRef().close();
    try {
        connection->beginTransaction();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Begin transaction operation failed, reason: ")
                + connection->lastError().text());
    }
    EXPECT_FALSE(connection->isInTransaction());
}

TEST_F(SqliteFixture, FailedCommitKeepsTheTransactionFlag)
{
    YDbConnectionPtr connection = pool->getConnection();
    connection->beginTransaction();
    // Ended behind the connection's back, so that the driver's commit fails.
    YSafeSqlQuery(connection->getDatabase()).exec(QStringLiteral("COMMIT"));
    try {
        connection->commit();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Commit operation failed, reason: ") + connection->lastError().text());
        EXPECT_TRUE(QString::fromLatin1(e.what()).contains(QStringLiteral("no transaction")));
    }
    EXPECT_TRUE(connection->isInTransaction());
    connection->rollback();
    EXPECT_FALSE(connection->isInTransaction());
    // Rollback never throws, not even without a transaction.
    EXPECT_NO_THROW(connection->rollback());
}

TEST_F(SqliteFixture, CommitWithRetriesThrowsAtOnceOnOtherErrors)
{
    YDbConnectionPtr connection = pool->getConnection();
    connection->beginTransaction();
    YSafeSqlQuery(connection->getDatabase()).exec(QStringLiteral("COMMIT"));
    QElapsedTimer timer;
    timer.start();
    try {
        connection->commitWithRetries(3);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).startsWith(
            QStringLiteral("Commit operation failed, reason: ")));
    }
    EXPECT_LT(timer.elapsed(), 400);
    EXPECT_TRUE(connection->isInTransaction());
    connection->rollback();
}

TEST_F(SqliteFixture, CommitWithRetriesOnALockThatStaysSleepsAfterEveryAttempt)
{
    block("BEGIN", "select * from t");
    YDbConnectionPtr connection = pool->getConnection();
    connection->beginTransaction();
    YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
    insert.bindValue(QStringLiteral(":v"), 7);
    insert.exec();
    QElapsedTimer timer;
    timer.start();
    try {
        connection->commitWithRetries(3);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Commit operation failed, reason: ") + connection->lastError().text());
        EXPECT_TRUE(QString::fromLatin1(e.what()).contains(QStringLiteral("database is locked")));
    }
    const qint64 elapsed = timer.elapsed();
    // Three attempts, three sleeps of 500 ms: the last attempt is followed by one too.
    EXPECT_GE(elapsed, 1500);
    EXPECT_LT(elapsed, 2400);
    EXPECT_TRUE(connection->isInTransaction());

    closeSideConnection(blockerName);
    blockerName.clear();
    connection->commitWithRetries(1);
    EXPECT_FALSE(connection->isInTransaction());
    EXPECT_EQ(rows(), 1);
}

TEST_F(SqliteFixture, ExecWithoutRetriesThrowsAtTheFirstLock)
{
    block("BEGIN IMMEDIATE");
    YDbConnectionPtr connection = pool->getConnection();
    YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
    insert.bindValue(QStringLiteral(":v"), 1);
    LogCapture log;
    QElapsedTimer timer;
    timer.start();
    try {
        insert.exec(log.stream(), 0);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("QSafeSqlQuery::exec -> error in query: %1. [%2]")
                .arg(insert.executedQuery(), insert.lastError().text()));
        EXPECT_TRUE(QString::fromLatin1(e.what()).contains(QStringLiteral("database is locked")));
    }
    EXPECT_LT(timer.elapsed(), 400);
    EXPECT_FALSE(log.text().contains("DB is locked"));
}

TEST_F(SqliteFixture, ExecRetriesWhileLockedAndLogsEachRetry)
{
    block("BEGIN IMMEDIATE");
    YDbConnectionPtr connection = pool->getConnection();
    YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
    insert.bindValue(QStringLiteral(":v"), 1);
    LogCapture log;
    QElapsedTimer timer;
    timer.start();
    EXPECT_THROW(insert.exec(log.stream(), 2), YException);
    const qint64 elapsed = timer.elapsed();
    // Three attempts, two sleeps.
    EXPECT_GE(elapsed, 1000);
    EXPECT_LT(elapsed, 1400);
    const QByteArray text = maskTimestamps(log.text());
    EXPECT_EQ(text.toStdString(),
        std::string("[db <TS> DBG3] DB is locked. Performing retry number: 1 \r\n"
                    "[db <TS> DBG3] DB is locked. Performing retry number: 2 \r\n"));
}

TEST_F(SqliteFixture, ExecWithRetriesPassesOtherErrorsAtOnce)
{
    YDbConnectionPtr connection = pool->getConnection();
    YSafeSqlQuery first = connection->createQuery(QStringLiteral("insert"));
    first.bindValue(QStringLiteral(":v"), 5);
    EXPECT_TRUE(first.exec(YDebug::STDERR, 3));
    YSafeSqlQuery duplicate = connection->createQuery(QStringLiteral("insert"));
    duplicate.bindValue(QStringLiteral(":v"), 5);
    QElapsedTimer timer;
    timer.start();
    EXPECT_THROW(duplicate.exec(YDebug::STDERR, 3), YException);
    EXPECT_LT(timer.elapsed(), 400);
    EXPECT_EQ(rows(), 1);
}

TEST_F(SqliteFixture, ExecOfTextThrowsWithTheText)
{
    YDbConnectionPtr connection = pool->getConnection();
    const QString text = QStringLiteral("insert into nothere values (1)");
    QSqlQuery reference(connection->getDatabase());
    reference.exec(text);
    YSafeSqlQuery query(connection->getDatabase());
    try {
        query.exec(text);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("QSafeSqlQuery::exec -> error in query: insert into nothere values "
                           "(1). [%1]")
                .arg(reference.lastError().text()));
    }
}

TEST_F(SqliteFixture, CreateQueryErrors)
{
    YDbConnectionPtr connection = pool->getConnection();
    try {
        connection->createQuery(QStringLiteral("nope"));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ(e.what(), "No such query: nope");
    }
    QSqlQuery reference(connection->getDatabase());
    reference.prepare(QStringLiteral("selec nothing frm nowhere"));
    try {
        connection->createQuery(QStringLiteral("broken"));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Sql query prepared failed: ") + reference.lastError().text());
    }

    const QString name = uniqueName("standalone");
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
        YDbConnection standAlone(database);
        try {
            standAlone.createQuery(QStringLiteral("count"));
            FAIL() << "no exception";
        } catch (const YException& e) {
            EXPECT_STREQ(e.what(), "NULL ConfigReader, can not create SqlQuery");
        }
        // Without a catalogue, reading one does nothing.
        standAlone.readDbConfig(QSharedPointer<QTextStream>());
    }
    QSqlDatabase::removeDatabase(name);
}

TEST_F(SqliteFixture, DestructionRollsBackOrCommitsAnOpenTransaction)
{
    for (const bool commitOnDestruction : {false, true}) {
        const QString name = uniqueName("txn");
        {
            QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), name);
            database.setDatabaseName(data.dbName);
            ASSERT_TRUE(database.open());
            YDbConnection connection(
                database, nullptr, YDbConfigReader::instance(), commitOnDestruction);
            connection.beginTransaction();
            YSafeSqlQuery insert = connection.createQuery(QStringLiteral("insert"));
            insert.bindValue(QStringLiteral(":v"), commitOnDestruction ? 2 : 1);
            insert.exec();
        }
        QSqlDatabase::removeDatabase(name);
        EXPECT_EQ(rows(), commitOnDestruction ? 1 : 0);
    }
}

TEST_F(SqliteFixture, QueryLoggingOnlyWithTheVariableSetToOne)
{
    YDbConnectionPtr connection = pool->getConnection();
    {
        setenv("YS_SQL_DEBUG", "2", 1);
        MessageCapture capture;
        YSafeSqlQuery count = connection->createQuery(QStringLiteral("count"));
        count.exec();
        count.exec(YDebug::STDERR, 1);
        EXPECT_TRUE(capture.queries().isEmpty()) << capture.queries().join('\n').toStdString();
    }
    {
        setenv("YS_SQL_DEBUG", "1", 1);
        MessageCapture capture;
        YSafeSqlQuery count = connection->createQuery(QStringLiteral("count"));
        count.exec();
        EXPECT_EQ(capture.queries(),
            QStringList() << QStringLiteral("YSafeSqlQuery: select count(*) from t"));
        capturedMessages.clear();
        count.exec(YDebug::STDERR, 1);
        // The retrying form logs a successful statement twice.
        EXPECT_EQ(capture.queries().size(), 2);
        capturedMessages.clear();
        YSafeSqlQuery plain(connection->getDatabase());
        EXPECT_THROW(plain.exec(QStringLiteral("select * from nothere")), YException);
        // A failed statement is logged as well.
        EXPECT_EQ(capture.queries().size(), 1);
    }
    unsetenv("YS_SQL_DEBUG");
}
