#include "db_test_support.h"
#include "ydb.h"
#include "ydb_config_reader.h"
#include "yexception.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTextStream>

#include <gtest/gtest.h>

using namespace yovotest;

namespace {

class MariaDbTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        server = mariaDbServer();
        ASSERT_TRUE(server.valid) << "the MariaDB fixture did not run";
        table = uniqueName("t");
        sideName = uniqueName("side");
        side = openSideConnection(server, sideName);
        execOrFail(side,
            QStringLiteral("create table %1 (id int primary key auto_increment, v varchar(200))")
                .arg(table));
        readCatalogue(
            QStringLiteral("<s>"
                           "<statement name=\"insert\" sql=\"insert into %1 (v) values (:v)\"/>"
                           "<statement name=\"count\" sql=\"select count(*) from %1\"/>"
                           "<statement name=\"id\" sql=\"select connection_id()\"/>"
                           "</s>")
                .arg(table));
    }

    void TearDown() override
    {
        execOrFail(side, QStringLiteral("drop table if exists %1").arg(table));
        side = QSqlDatabase();
        closeSideConnection(sideName);
    }

    static void readCatalogue(const QString& xml)
    {
        QString text = xml;
        YDbConfigReader::instance()->parse(
            QSharedPointer<QTextStream>::create(&text, QIODevice::ReadOnly));
    }

    void initPool(YDb& pool, const QString& options = QString())
    {
        ASSERT_TRUE(pool.initMySQL(
            server.host, server.user, server.password, server.database, server.port, options));
    }

    static qint64 connectionId(YDbConnectionPtr& connection)
    {
        YSafeSqlQuery query = connection->createQuery(QStringLiteral("id"));
        query.exec();
        return query.next() ? query.value(0).toLongLong() : -1;
    }

    void kill(qint64 id) { execOrFail(side, QStringLiteral("KILL %1").arg(id)); }

    int rows()
    {
        return scalar(side, QStringLiteral("select count(*) from %1").arg(table)).toInt();
    }

    // The text that QtSql gives for opening with these settings, for comparison.
    QString referenceOpenError(
        const QString& user, const QString& password, const QString& database, unsigned int port)
    {
        const QString name = uniqueName("reference");
        QString text;
        {
            QSqlDatabase reference = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), name);
            reference.setHostName(server.host);
            reference.setPort(static_cast<int>(port));
            reference.setDatabaseName(database);
            EXPECT_FALSE(reference.open(user, password));
            text = reference.lastError().text();
        }
        QSqlDatabase::removeDatabase(name);
        return text;
    }

    MariaDbServer server;
    QString table;
    QString sideName;
    QSqlDatabase side;
};

} // namespace

TEST_F(MariaDbTest, InitMySqlConnectsThroughTheDrizzleName)
{
    YDb pool;
    initPool(pool, QStringLiteral("MYSQL_OPT_CONNECT_TIMEOUT=5"));
    EXPECT_TRUE(pool.isInitialized());
    EXPECT_FALSE(pool.isSqlite());
    EXPECT_EQ(pool.getDbType(), QStringLiteral("DRIZZLE"));
    QSqlDatabase base = QSqlDatabase::database(pool.getBaseConnName(), false);
    EXPECT_EQ(base.driverName(), QStringLiteral("DRIZZLE"));
    EXPECT_EQ(base.databaseName(), server.database);
    EXPECT_EQ(base.userName(), server.user);
    EXPECT_EQ(base.hostName(), server.host);
    EXPECT_EQ(base.port(), static_cast<int>(server.port));
    // The options go to each connection, not to the base registration.
    EXPECT_TRUE(base.connectOptions().isEmpty());

    YDbConnectionPtr connection = pool.getConnection();
    EXPECT_FALSE(connection->isSQlite());
    EXPECT_EQ(
        connection->getDatabase().connectOptions(), QStringLiteral("MYSQL_OPT_CONNECT_TIMEOUT=5"));
    YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
    insert.bindValue(QStringLiteral(":v"), QStringLiteral("x"));
    EXPECT_TRUE(insert.exec());
    EXPECT_EQ(rows(), 1);
    EXPECT_TRUE(pool.testConnection());
}

TEST_F(MariaDbTest, NotApplicableOptionsArePassedOnForMySql)
{
    YDb pool;
    initPool(pool, QStringLiteral("N/A"));
    YDbConnectionPtr connection = pool.getConnection();
    EXPECT_EQ(connection->getDatabase().connectOptions(), QStringLiteral("N/A"));
    EXPECT_GT(connectionId(connection), 0);
}

TEST_F(MariaDbTest, InitWithTheQtDriverName)
{
    TestInitData data;
    data.dbType = QStringLiteral("QMYSQL");
    data.hostName = server.host;
    data.port = server.port;
    data.userName = server.user;
    data.password = server.password;
    data.dbName = server.database;
    data.withStatements = false;
    YDb pool(&data);
    ASSERT_TRUE(pool.isInitialized());
    YDbConnectionPtr connection = pool.getConnection();
    EXPECT_GT(connectionId(connection), 0);
}

TEST_F(MariaDbTest, WrongPasswordGivesTheDriversError)
{
    YDb pool;
    ASSERT_TRUE(pool.initMySQL(server.host, server.user, QStringLiteral("wrong"), server.database,
        server.port, QString()));
    const QString expected
        = referenceOpenError(server.user, QStringLiteral("wrong"), server.database, server.port);
    EXPECT_TRUE(expected.contains(QStringLiteral("Access denied"))) << expected.toStdString();
    try {
        pool.getConnection();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Failed to allocate DRIZZLE connection, reason: ") + expected);
    }
    EXPECT_FALSE(pool.testConnection());
    EXPECT_THROW(pool.getTemporaryConnection(), YException);
    EXPECT_THROW(pool.getReadOnlyConnection(), YException);
}

TEST_F(MariaDbTest, UnknownDatabaseGivesTheDriversError)
{
    YDb pool;
    ASSERT_TRUE(pool.initMySQL(server.host, server.user, server.password,
        QStringLiteral("no_such_db"), server.port, QString()));
    const QString expected = referenceOpenError(
        server.user, server.password, QStringLiteral("no_such_db"), server.port);
    EXPECT_FALSE(expected.isEmpty());
    try {
        pool.getConnection();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Failed to allocate DRIZZLE connection, reason: ") + expected);
    }
}

TEST_F(MariaDbTest, ServerThatIsDownGivesTheDriversError)
{
    // A port that was free a moment ago: nothing listens there.
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    const unsigned int port = probe.serverPort();
    probe.close();
    YDb pool;
    ASSERT_TRUE(pool.initMySQL(
        server.host, server.user, server.password, server.database, port, QString()));
    const QString expected
        = referenceOpenError(server.user, server.password, server.database, port);
    try {
        pool.getConnection();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Failed to allocate DRIZZLE connection, reason: ") + expected);
    }
    EXPECT_FALSE(pool.testConnection());
}

// The driver doubles a quote and a backslash; a NUL byte stays inside the literal, which the server
// takes whole because the statement travels with its length.
TEST_F(MariaDbTest, SqlSafeStringUsesTheDriversEscaping)
{
    YDb pool;
    initPool(pool);
    YDbConnectionPtr connection = pool.getConnection();
    EXPECT_EQ(
        YDb::sqlSafeString(connection, QStringLiteral("it's"), false), QStringLiteral("'it''s'"));
    EXPECT_EQ(
        YDb::sqlSafeString(connection, QStringLiteral("it's"), true), QStringLiteral("it''s"));
    EXPECT_EQ(
        YDb::sqlSafeString(connection, QStringLiteral("a\\b"), true), QStringLiteral("a\\\\b"));
    EXPECT_EQ(YDb::sqlSafeString(connection, QString(), true), QStringLiteral("NULL"));

    QString value = QStringLiteral("a\\b'c\"d");
    value.append(QChar(0));
    value.append(QStringLiteral("e'); drop table %1; -- \\").arg(table));
    YSafeSqlQuery insert(connection->getDatabase());
    EXPECT_TRUE(insert.exec(QStringLiteral("insert into %1 (v) values (%2)")
                                .arg(table, YDb::sqlSafeString(connection, value, false))));
    EXPECT_EQ(rows(), 1);
    EXPECT_EQ(scalar(side, QStringLiteral("select v from %1").arg(table)).toString(), value);
}

TEST_F(MariaDbTest, ExecReconnectsOnceAfterTheServerThreadWasKilled)
{
    YDb pool;
    initPool(pool);
    YDbConnectionPtr connection = pool.getConnection();
    const qint64 first = connectionId(connection);
    YSafeSqlQuery prepared = connection->createQuery(QStringLiteral("insert"));
    kill(first);
    prepared.bindValue(QStringLiteral(":v"), QStringLiteral("after kill"));
    EXPECT_TRUE(prepared.exec());
    EXPECT_EQ(rows(), 1);
    const qint64 second = connectionId(connection);
    EXPECT_NE(second, first);
    EXPECT_GT(second, 0);
    EXPECT_EQ(scalar(side, QStringLiteral("select v from %1").arg(table)).toString(),
        QStringLiteral("after kill"));
}

TEST_F(MariaDbTest, OtherPreparedQueriesFollowWithoutAnotherReconnect)
{
    YDb pool;
    initPool(pool);
    YDbConnectionPtr connection = pool.getConnection();
    YSafeSqlQuery id = connection->createQuery(QStringLiteral("id"));
    YSafeSqlQuery a = connection->createQuery(QStringLiteral("insert"));
    YSafeSqlQuery b = connection->createQuery(QStringLiteral("insert"));
    ASSERT_TRUE(id.exec() && id.next());
    const qint64 first = id.value(0).toLongLong();
    kill(first);
    a.bindValue(QStringLiteral(":v"), QStringLiteral("a"));
    EXPECT_TRUE(a.exec());
    ASSERT_TRUE(id.exec() && id.next());
    const qint64 second = id.value(0).toLongLong();
    EXPECT_NE(second, first);
    // b was prepared on the killed connection too; it is prepared again on the new one, and the
    // new connection's session stays.
    YSafeSqlQuery(connection->getDatabase()).exec(QStringLiteral("set @mark = 42"));
    b.bindValue(QStringLiteral(":v"), QStringLiteral("b"));
    EXPECT_TRUE(b.exec());
    ASSERT_TRUE(id.exec() && id.next());
    EXPECT_EQ(id.value(0).toLongLong(), second);
    EXPECT_EQ(scalar(connection->getDatabase(), QStringLiteral("select @mark")).toInt(), 42);
    EXPECT_EQ(rows(), 2);
}

TEST_F(MariaDbTest, ExecOfTextReconnectsOnce)
{
    YDb pool;
    initPool(pool);
    YDbConnectionPtr connection = pool.getConnection();
    const qint64 first = connectionId(connection);
    kill(first);
    YSafeSqlQuery query(connection->getDatabase());
    EXPECT_TRUE(query.exec(QStringLiteral("insert into %1 (v) values ('t')").arg(table)));
    EXPECT_EQ(rows(), 1);
    EXPECT_NE(connectionId(connection), first);
}

TEST_F(MariaDbTest, CreateQueryAndBeginTransactionReconnect)
{
    YDb pool;
    initPool(pool);
    YDbConnectionPtr connection = pool.getConnection();
    qint64 id = connectionId(connection);
    kill(id);
    // The prepare meets the dead connection first.
    const qint64 afterPrepare = connectionId(connection);
    EXPECT_NE(afterPrepare, id);
    kill(afterPrepare);
    connection->beginTransaction();
    EXPECT_TRUE(connection->isInTransaction());
    YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
    insert.bindValue(QStringLiteral(":v"), QStringLiteral("in transaction"));
    insert.exec();
    connection->commit();
    EXPECT_EQ(rows(), 1);
    EXPECT_NE(connectionId(connection), afterPrepare);
}

TEST_F(MariaDbTest, KillInsideATransactionReportsTheErrorAndRepeatsNothing)
{
    YDb pool;
    initPool(pool);
    YDbConnectionPtr connection = pool.getConnection();
    const qint64 id = connectionId(connection);
    connection->beginTransaction();
    for (int i = 0; i < 3; ++i) {
        YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
        insert.bindValue(QStringLiteral(":v"), QStringLiteral("row %1").arg(i));
        insert.exec();
    }
    kill(id);
    try {
        connection->commit();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).startsWith(
            QStringLiteral("Commit operation failed, reason: ")))
            << e.what();
        EXPECT_TRUE(YSafeSqlQuery::isConnectionLost(connection->lastError()))
            << connection->lastError().text().toStdString();
    }
    // The server rolled the transaction back; nothing was sent again behind the caller's back.
    EXPECT_EQ(rows(), 0);
    EXPECT_TRUE(connection->isInTransaction());

    // The caller repeats the whole transaction once: each row arrives exactly once.
    connection->rollback();
    connection->beginTransaction();
    for (int i = 0; i < 3; ++i) {
        YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
        insert.bindValue(QStringLiteral(":v"), QStringLiteral("row %1").arg(i));
        insert.exec();
    }
    connection->commit();
    EXPECT_EQ(rows(), 3);
    EXPECT_EQ(
        scalar(side, QStringLiteral("select count(distinct v) from %1").arg(table)).toInt(), 3);
}

TEST_F(MariaDbTest, ExecErrorsOtherThanALostConnectionAreNotRetried)
{
    YDb pool;
    initPool(pool);
    YDbConnectionPtr connection = pool.getConnection();
    const qint64 id = connectionId(connection);
    YSafeSqlQuery query(connection->getDatabase());
    try {
        query.exec(QStringLiteral("insert into %1 (nope) values (1)").arg(table));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).startsWith(
            QStringLiteral("QSafeSqlQuery::exec -> error in query: insert into %1 (nope) values "
                           "(1). [")
                .arg(table)))
            << e.what();
    }
    EXPECT_EQ(connectionId(connection), id);
}
