#include "db_test_support.h"
#include "ydb.h"
#include "ydb_mysql_lock.h"
#include "yexception.h"

#include <QElapsedTimer>
#include <QSqlDatabase>
#include <QThread>

#include <gtest/gtest.h>

using namespace yovotest;

namespace {

class MysqlLockTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        server = mariaDbServer();
        ASSERT_TRUE(server.valid) << "the MariaDB fixture did not run";
        ASSERT_TRUE(pool.initMySQL(
            server.host, server.user, server.password, server.database, server.port, QString()));
        name = uniqueName("lock");
        sideName = uniqueName("side");
        side = openSideConnection(server, sideName);
    }

    void TearDown() override
    {
        side = QSqlDatabase();
        closeSideConnection(sideName);
    }

    // The server's view: the id of the holder's connection, or null when free.
    QVariant holder()
    {
        return scalar(side, QStringLiteral("select IS_USED_LOCK('%1')").arg(name));
    }

    // KILL returns before the killed session has let go of its locks: the server frees them
    // when that session's thread notices, a moment later on a busy machine.
    bool holderGoneWithin(int milliseconds)
    {
        QElapsedTimer clock;
        clock.start();
        while (!holder().isNull()) {
            if (clock.elapsed() > milliseconds)
                return false;
            QThread::msleep(10);
        }
        return true;
    }

    MariaDbServer server;
    YDb pool;
    QString name;
    QString sideName;
    QSqlDatabase side;
};

} // namespace

TEST_F(MysqlLockTest, LockWithoutWaitTakesAFreeNameAndFailsOnATakenOne)
{
    LogCapture log;
    {
        YDbMysqlLock first(pool.getConnection(), name, log.stream());
        first.lock(0);
        EXPECT_FALSE(holder().isNull());

        YDbMysqlLock second(pool.getConnection(), name, log.stream());
        QElapsedTimer timer;
        timer.start();
        try {
            second.lock(0);
            FAIL() << "no exception";
        } catch (const YException& e) {
            EXPECT_EQ(QString::fromLatin1(e.what()),
                QStringLiteral("Unable to obtain lock: %1. ").arg(name));
        }
        EXPECT_LT(timer.elapsed(), 900);
    }
    EXPECT_TRUE(holder().isNull());
    const QByteArray text = maskTimestamps(log.text());
    const QByteArray lockName = name.toLatin1();
    EXPECT_TRUE(text.contains("DBG2] Locking " + lockName)) << text.toStdString();
    EXPECT_TRUE(text.contains("DBG2] Received lock " + lockName)) << text.toStdString();
    EXPECT_TRUE(text.contains("DBG2] Unlocking " + lockName)) << text.toStdString();
    EXPECT_FALSE(text.contains("ERROR]"));
    EXPECT_FALSE(text.contains("WARNING]"));
}

TEST_F(MysqlLockTest, SecondWaitsTimesOutAndGetsTheLockOnceTheFirstIsGone)
{
    auto* first = new YDbMysqlLock(pool.getConnection(), name, YDebug::STDERR);
    first->lock(5);
    YDbMysqlLock second(pool.getConnection(), name, YDebug::STDERR);
    QElapsedTimer timer;
    timer.start();
    try {
        second.lock(1);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(
            QString::fromLatin1(e.what()), QStringLiteral("Unable to obtain lock: %1. ").arg(name));
    }
    // The waiting is the server's.
    EXPECT_GE(timer.elapsed(), 900);
    delete first;
    EXPECT_TRUE(holder().isNull());
    EXPECT_NO_THROW(second.lock(1));
    EXPECT_FALSE(holder().isNull());
}

TEST_F(MysqlLockTest, TwoObjectsOnOneConnectionAreOneLock)
{
    YDbConnectionPtr connection = pool.getConnection();
    YDbMysqlLock a(connection, name, YDebug::STDERR);
    YDbMysqlLock b(connection, name, YDebug::STDERR);
    a.lock(0);
    EXPECT_NO_THROW(b.lock(0));
}

TEST_F(MysqlLockTest, ACopyReleasesTheSameName)
{
    YDbMysqlLock original(pool.getConnection(), name, YDebug::STDERR);
    original.lock(0);
    {
        YDbMysqlLock copy(original);
        EXPECT_FALSE(holder().isNull());
    }
    EXPECT_TRUE(holder().isNull());
}

TEST_F(MysqlLockTest, NeverLockedObjectSendsTheReleaseAndLogsNoError)
{
    LogCapture log;
    {
        YDbMysqlLock lock(pool.getConnection(), name, log.stream());
    }
    const QByteArray text = log.text();
    EXPECT_TRUE(text.contains("Unlocking " + name.toLatin1())) << text.toStdString();
    EXPECT_FALSE(text.contains("ERROR]")) << text.toStdString();
    EXPECT_FALSE(text.contains("WARNING]")) << text.toStdString();
}

TEST_F(MysqlLockTest, QuoteInTheNameBreaksTheStatement)
{
    LogCapture log;
    const QString broken = name + QStringLiteral("'x");
    {
        YDbMysqlLock lock(pool.getConnection(), broken, log.stream());
        try {
            lock.lock(0);
            FAIL() << "no exception";
        } catch (const YException& e) {
            EXPECT_TRUE(QString::fromLatin1(e.what()).startsWith(
                QStringLiteral("Unable to prepare query: %1. ").arg(broken)))
                << e.what();
            EXPECT_TRUE(QString::fromLatin1(e.what()).contains(QStringLiteral("SQL syntax")))
                << e.what();
        }
    }
    // The release fails the same way and is only logged, as a warning.
    const QByteArray text = maskTimestamps(log.text());
    EXPECT_TRUE(text.contains("WARNING] Unable to release server lock " + broken.toLatin1()
        + " . QSafeSqlQuery::exec -> error in query: SELECT RELEASE_LOCK('" + broken.toLatin1()
        + "')"))
        << text.toStdString();
}

TEST_F(MysqlLockTest, LockHeldAcrossAKillIsLostWithoutNotice)
{
    YDbConnectionPtr connection = pool.getConnection();
    YDbMysqlLock lock(connection, name, YDebug::STDERR);
    lock.lock(0);
    const QVariant id = holder();
    ASSERT_FALSE(id.isNull());
    execOrFail(side, QStringLiteral("KILL %1").arg(id.toLongLong()));
    EXPECT_TRUE(holderGoneWithin(10000));
    // The holder's next statement reconnects and succeeds; the lock is simply gone.
    YSafeSqlQuery query(connection->getDatabase());
    EXPECT_TRUE(query.exec(QStringLiteral("select 1")));
    EXPECT_TRUE(holder().isNull());
}
