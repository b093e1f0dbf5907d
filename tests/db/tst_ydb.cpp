#include "db_test_support.h"
#include "ydb.h"
#include "ydb_config_reader.h"
#include "yexception.h"

#include <QFile>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

using namespace yovotest;

namespace {

const char CATALOGUE[] = "<statements>"
                         "<statement name=\"create\" sql=\"create table t (v text)\"/>"
                         "<statement name=\"insert\" sql=\"insert into t (v) values (:v)\"/>"
                         "<statement name=\"count\" sql=\"select count(*) from t\"/>"
                         "</statements>";

struct SqlitePool
{
    TempDir dir;
    TestInitData data;

    explicit SqlitePool(const QString& options = QString())
    {
        data.dbType = QStringLiteral("QSQLITE");
        data.dbName = dir.file(QStringLiteral("pool.db"));
        data.connectOpts = options;
        data.statementsXml = QString::fromLatin1(CATALOGUE);
    }
};

// The number at the end of a pooled connection's name.
int connectionNumber(const YDb& pool, YDbConnection* connection)
{
    const QString name = connection->getDatabase().connectionName();
    EXPECT_TRUE(name.startsWith(pool.getBaseConnName())) << name.toStdString();
    return name.mid(pool.getBaseConnName().size()).toInt();
}

// A driver that only records what it was opened with: it shows which parameters reach a driver
// that the pool knows by no special name.
struct OpenedWith
{
    QString database, user, password, host, options;
    int port = 0;
    int opens = 0;
};
OpenedWith openedWith;

class RecordingDriver : public QSqlDriver
{
public:
    bool hasFeature(DriverFeature) const override { return false; }
    bool open(const QString& database, const QString& user, const QString& password,
        const QString& host, int port, const QString& options) override
    {
        openedWith.database = database;
        openedWith.user = user;
        openedWith.password = password;
        openedWith.host = host;
        openedWith.port = port;
        openedWith.options = options;
        ++openedWith.opens;
        setOpen(true);
        return true;
    }
    void close() override { setOpen(false); }
    QSqlResult* createResult() const override { return nullptr; }
};

class ThrowingInitData : public TestInitData
{
public:
    QString getDbType() override { throw YException("no type today"); }
};

} // namespace

TEST(YDb, DefaultConstructedPoolIsEmptyAndNotInitialized)
{
    YDb pool;
    EXPECT_FALSE(pool.isInitialized());
    EXPECT_FALSE(pool.isSqlite());
    EXPECT_TRUE(pool.getBaseConnName().isEmpty());
    EXPECT_TRUE(pool.getDbType().isEmpty());
    EXPECT_TRUE(pool.getDbName().isEmpty());
    EXPECT_TRUE(pool.getUserName().isEmpty());
    EXPECT_TRUE(pool.getPassword().isEmpty());
    EXPECT_TRUE(pool.getHostName().isEmpty());
    EXPECT_TRUE(pool.getConnectOpts().isEmpty());
    EXPECT_EQ(pool.getPort(), 0u);
}

TEST(YDb, GetConnectionOnAnUninitializedPoolThrows)
{
    YDb pool;
    try {
        pool.getConnection();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).startsWith(
            QStringLiteral("Failed to allocate  connection, reason: ")))
            << e.what();
    }
    EXPECT_FALSE(pool.testConnection());
}

TEST(YDb, InitCopiesTheSettingsAndRegistersTheBaseName)
{
    TestInitData data;
    data.dbType = QStringLiteral("QSQLITE");
    data.dbName = QStringLiteral("/nowhere/x.db");
    data.userName = QStringLiteral("u");
    data.password = QStringLiteral("p");
    data.connectOpts = QStringLiteral("QSQLITE_BUSY_TIMEOUT=10");
    data.hostName = QStringLiteral("h");
    data.port = 4711;
    YDb pool(&data);
    ASSERT_TRUE(pool.isInitialized());
    EXPECT_TRUE(pool.isSqlite());
    EXPECT_EQ(pool.getDbType(), QStringLiteral("QSQLITE"));
    EXPECT_EQ(pool.getDbName(), QStringLiteral("/nowhere/x.db"));
    EXPECT_EQ(pool.getUserName(), QStringLiteral("u"));
    EXPECT_EQ(pool.getPassword(), QStringLiteral("p"));
    EXPECT_EQ(pool.getConnectOpts(), QStringLiteral("QSQLITE_BUSY_TIMEOUT=10"));
    EXPECT_EQ(pool.getHostName(), QStringLiteral("h"));
    EXPECT_EQ(pool.getPort(), 4711u);

    const QString expected = QStringLiteral("^baseConnection[0-9A-Za-z]{15}%1$")
                                 .arg(static_cast<long>(syscall(SYS_gettid)));
    EXPECT_TRUE(QRegularExpression(expected).match(pool.getBaseConnName()).hasMatch())
        << pool.getBaseConnName().toStdString();
    ASSERT_TRUE(QSqlDatabase::contains(pool.getBaseConnName()));
    QSqlDatabase base = QSqlDatabase::database(pool.getBaseConnName(), false);
    EXPECT_FALSE(base.isOpen());
    EXPECT_EQ(base.databaseName(), QStringLiteral("/nowhere/x.db"));
    EXPECT_EQ(base.connectOptions(), QStringLiteral("QSQLITE_BUSY_TIMEOUT=10"));
    // SQLite takes no user, host or port.
    EXPECT_TRUE(base.userName().isEmpty());
    EXPECT_TRUE(base.hostName().isEmpty());
}

TEST(YDb, TwoPoolsHaveDifferentBaseNames)
{
    SqlitePool a;
    SqlitePool b;
    YDb first(&a.data);
    YDb second(&b.data);
    EXPECT_NE(first.getBaseConnName(), second.getBaseConnName());
}

TEST(YDb, InitFailureIsLoggedAndLeavesThePoolUninitialized)
{
    LogCapture log(0);
    const YDebug::StreamId previous = YDb::YDbLog;
    YDb::YDbLog = log.stream();
    ThrowingInitData data;
    YDb pool(&data);
    YDb::YDbLog = previous;
    EXPECT_FALSE(pool.isInitialized());
    EXPECT_TRUE(log.text().contains("Failed to initialize database layer, reason: no type today"))
        << log.text().toStdString();
}

TEST(YDb, ConsecutiveNamesAndFirstInFirstOutFreeList)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    YDbConnectionPtr first = pool.getConnection();
    YDbConnectionPtr second = pool.getConnection();
    ASSERT_TRUE(first && second);
    EXPECT_NE(first.Get(), second.Get());
    EXPECT_EQ(connectionNumber(pool, second.Get()), connectionNumber(pool, first.Get()) + 1);

    YDbConnection* firstRaw = first.Get();
    YDbConnection* secondRaw = second.Get();
    first = YDbConnectionPtr();
    second = YDbConnectionPtr();
    YDbConnectionPtr next = pool.getConnection();
    EXPECT_EQ(next.Get(), firstRaw);
    YDbConnectionPtr after = pool.getConnection();
    EXPECT_EQ(after.Get(), secondRaw);
    // A connection from the free list stays open and isn't re-opened.
    EXPECT_TRUE(next->getDatabase().isOpen());
}

TEST(YDb, DoubleReleaseChangesNothing)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    YDbConnection* raw = nullptr;
    {
        YDbConnectionPtr connection = pool.getConnection();
        raw = connection.Get();
    }
    pool.releaseConnection(raw);
    pool.releaseConnection(raw);
    YDbConnectionPtr a = pool.getConnection();
    YDbConnectionPtr b = pool.getConnection();
    EXPECT_EQ(a.Get(), raw);
    EXPECT_NE(b.Get(), raw);
}

TEST(YDb, ReleaseOfAnUnknownConnectionChangesNothing)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    YDbConnectionPtr used = pool.getConnection();
    QSqlDatabase stranger
        = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), uniqueName("stranger"));
    auto* unknown = new YDbConnection(stranger);
    pool.releaseConnection(unknown);
    pool.releaseConnection(nullptr);
    YDbConnectionPtr next = pool.getConnection();
    EXPECT_NE(next.Get(), unknown);
    EXPECT_NE(next.Get(), used.Get());
    delete unknown;
}

TEST(YDb, ReadOnlyConnectionNeverCreatesTheFile)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    ASSERT_FALSE(QFile::exists(setup.data.dbName));
    YDbConnectionPtr reader = pool.getReadOnlyConnection();
    EXPECT_FALSE(reader);
    EXPECT_TRUE(!reader);
    EXPECT_FALSE(QFile::exists(setup.data.dbName));

    YDbConnectionPtr writer = pool.getConnection();
    ASSERT_TRUE(writer);
    EXPECT_TRUE(QFile::exists(setup.data.dbName));
    writer->createQuery(QStringLiteral("create")).exec();

    YDbConnectionPtr secondReader = pool.getReadOnlyConnection();
    ASSERT_TRUE(secondReader);
    EXPECT_NE(secondReader.Get(), writer.Get());
}

TEST(YDb, ReadOnlyRequestIsServedByAnyFreeConnection)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    YDbConnection* raw = pool.getConnection().Get();
    YDbConnectionPtr reader = pool.getReadOnlyConnection();
    EXPECT_EQ(reader.Get(), raw);
    // Nothing makes it read-only: it writes like any other.
    EXPECT_TRUE(reader->createQuery(QStringLiteral("create")).exec());
}

TEST(YDb, EmptyOrNotApplicableOptionsLeaveSqliteOptionsUnset)
{
    for (const QString& options : {QString(), QStringLiteral("N/A")}) {
        SqlitePool setup(options);
        YDb pool(&setup.data);
        EXPECT_TRUE(
            QSqlDatabase::database(pool.getBaseConnName(), false).connectOptions().isEmpty());
        YDbConnectionPtr connection = pool.getConnection();
        EXPECT_TRUE(connection->getDatabase().connectOptions().isEmpty());
    }
    SqlitePool setup(QStringLiteral("QSQLITE_BUSY_TIMEOUT=1"));
    YDb pool(&setup.data);
    YDbConnectionPtr connection = pool.getConnection();
    EXPECT_EQ(connection->getDatabase().connectOptions(), QStringLiteral("QSQLITE_BUSY_TIMEOUT=1"));
}

TEST(YDb, OptionsOfOtherTypesArePassedOnAsTheyStand)
{
    TestInitData data;
    data.dbType = QStringLiteral("QMYSQL");
    data.connectOpts = QStringLiteral("N/A");
    data.dbName = QStringLiteral("d");
    data.userName = QStringLiteral("u");
    data.password = QStringLiteral("p");
    data.hostName = QStringLiteral("h");
    data.port = 3307;
    YDb pool(&data);
    QSqlDatabase base = QSqlDatabase::database(pool.getBaseConnName(), false);
    EXPECT_EQ(base.connectOptions(), QStringLiteral("N/A"));
    EXPECT_EQ(base.databaseName(), QStringLiteral("d"));
    EXPECT_EQ(base.userName(), QStringLiteral("u"));
    EXPECT_EQ(base.password(), QStringLiteral("p"));
    EXPECT_EQ(base.hostName(), QStringLiteral("h"));
    EXPECT_EQ(base.port(), 3307);
}

TEST(YDb, AnyOtherDriverGetsItsParametersOnlyOnTheBaseConnection)
{
    QSqlDatabase::registerSqlDriver(
        QStringLiteral("YRECORDING"), new QSqlDriverCreator<RecordingDriver>());
    TestInitData data;
    data.dbType = QStringLiteral("YRECORDING");
    data.dbName = QStringLiteral("d");
    data.userName = QStringLiteral("u");
    data.password = QStringLiteral("p");
    data.hostName = QStringLiteral("h");
    data.connectOpts = QStringLiteral("o=1");
    data.port = 99;
    YDb pool(&data);
    QSqlDatabase base = QSqlDatabase::database(pool.getBaseConnName(), false);
    EXPECT_EQ(base.databaseName(), QStringLiteral("d"));
    EXPECT_EQ(base.connectOptions(), QStringLiteral("o=1"));
    EXPECT_EQ(base.port(), 99);
    EXPECT_EQ(openedWith.opens, 0);

    YDbConnectionPtr connection = pool.getConnection();
    EXPECT_EQ(openedWith.opens, 1);
    // User and password come with open(); nothing else was set on the new connection.
    EXPECT_EQ(openedWith.user, QStringLiteral("u"));
    EXPECT_EQ(openedWith.password, QStringLiteral("p"));
    EXPECT_TRUE(openedWith.database.isEmpty());
    EXPECT_TRUE(openedWith.host.isEmpty());
    EXPECT_TRUE(openedWith.options.isEmpty());
    EXPECT_EQ(openedWith.port, -1);
    // QtSql owns the creator; registering the name without one frees it.
    QSqlDatabase::registerSqlDriver(QStringLiteral("YRECORDING"), nullptr);
}

TEST(YDb, Db2GetsNoConnectOptionsAndFailsWithTheDriversError)
{
    TestInitData data;
    data.dbType = QStringLiteral("QDB2");
    data.connectOpts = QStringLiteral("SOME_OPTION=1");
    data.dbName = QStringLiteral("d");
    YDb pool(&data);
    ASSERT_TRUE(pool.isInitialized());
    QSqlDatabase base = QSqlDatabase::database(pool.getBaseConnName(), false);
    EXPECT_TRUE(base.connectOptions().isEmpty());

    QString driverError;
    {
        QSqlDatabase reference
            = QSqlDatabase::addDatabase(QStringLiteral("QDB2"), uniqueName("db2ref"));
        reference.open();
        driverError = reference.lastError().text();
    }
    try {
        pool.getConnection();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Failed to allocate QDB2 connection, reason: ") + driverError);
    }
    EXPECT_FALSE(pool.testConnection());
}

TEST(YDb, SqliteOpenFailureNamesTheDatabase)
{
    TestInitData data;
    data.dbType = QStringLiteral("QSQLITE");
    data.dbName = QStringLiteral("/nonexistent-folder-%1/x.db").arg(getpid());
    YDb pool(&data);
    QString driverError;
    {
        QSqlDatabase reference
            = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), uniqueName("sqliteref"));
        reference.setDatabaseName(data.dbName);
        reference.open();
        driverError = reference.lastError().text();
    }
    const QStringList before = QSqlDatabase::connectionNames();
    try {
        pool.getConnection();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QString::fromLatin1(e.what()),
            QStringLiteral("Failed to allocate connection, reason: ") + driverError
                + QStringLiteral(" in db ") + data.dbName);
    }
    // The failed name stays registered.
    EXPECT_EQ(QSqlDatabase::connectionNames().size(), before.size() + 1);
    // No file, so no attempt to open one.
    EXPECT_FALSE(pool.getReadOnlyConnection());
    EXPECT_THROW(pool.getTemporaryConnection(), YException);
    EXPECT_FALSE(pool.testConnection());
}

TEST(YDb, TestConnectionLeavesOneMoreNameAndNoPooledConnection)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    const int before = QSqlDatabase::connectionNames().size();
    EXPECT_TRUE(pool.testConnection());
    EXPECT_EQ(QSqlDatabase::connectionNames().size(), before + 1);
    YDbConnectionPtr connection = pool.getConnection();
    // A new connection: testConnection put nothing on the free list.
    EXPECT_EQ(QSqlDatabase::connectionNames().size(), before + 2);
}

TEST(YDb, TemporaryConnectionNameGoesWithItsLastHandle)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    QString temporaryName;
    {
        YDbConnectionPtr temporary = pool.getTemporaryConnection();
        ASSERT_TRUE(temporary);
        EXPECT_TRUE(temporary->isTemporary());
        temporaryName = temporary->getDatabase().connectionName();
        YDbConnectionPtr copy = temporary;
        EXPECT_TRUE(QSqlDatabase::connectionNames().contains(temporaryName));
    }
    EXPECT_FALSE(QSqlDatabase::connectionNames().contains(temporaryName));

    QString pooledName;
    {
        YDbConnectionPtr pooled = pool.getConnection();
        EXPECT_FALSE(pooled->isTemporary());
        pooledName = pooled->getDatabase().connectionName();
    }
    EXPECT_TRUE(QSqlDatabase::connectionNames().contains(pooledName));
    // A temporary connection isn't on the free list afterwards either.
    YDbConnectionPtr next = pool.getConnection();
    EXPECT_EQ(next->getDatabase().connectionName(), pooledName);
}

TEST(YDb, DestructionRemovesEveryNameOfThePool)
{
    const QStringList before = QSqlDatabase::connectionNames();
    // A handle that outlives its pool dangles: this one is built in place and never destroyed,
    // so that a connection is still on the used list when the pool goes.
    alignas(YDbConnectionPtr) unsigned char storage[sizeof(YDbConnectionPtr)];
    {
        SqlitePool setup;
        YDb pool(&setup.data);
        YDbConnectionPtr idle = pool.getConnection();
        YDbConnectionPtr other = pool.getConnection();
        idle = YDbConnectionPtr();
        new (storage) YDbConnectionPtr(other);
        other = YDbConnectionPtr();
        EXPECT_EQ(QSqlDatabase::connectionNames().size(), before.size() + 3);
    }
    EXPECT_EQ(QSqlDatabase::connectionNames(), before);
}

TEST(YDb, SqlSafeStringQuotesAndEscapesForSqlite)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    YDbConnectionPtr connection = pool.getConnection();
    EXPECT_EQ(
        YDb::sqlSafeString(connection, QStringLiteral("it's"), false), QStringLiteral("'it''s'"));
    EXPECT_EQ(
        YDb::sqlSafeString(connection, QStringLiteral("it's"), true), QStringLiteral("it''s"));
    EXPECT_EQ(YDb::sqlSafeString(connection, QStringLiteral("'"), true), QStringLiteral("''"));
    // A null value gets no quotes from the driver and stays as formatted.
    EXPECT_EQ(YDb::sqlSafeString(connection, QString(), true), QStringLiteral("NULL"));
    EXPECT_EQ(YDb::sqlSafeString(connection, QString(), false), QStringLiteral("NULL"));
    EXPECT_TRUE(YDb::sqlSafeString(YDbConnectionPtr(), QStringLiteral("x"), true).isEmpty());
}

TEST(YDb, SqlSafeStringRoundTripsQuotesAndBackslashes)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    YDbConnectionPtr connection = pool.getConnection();
    const QString value = QStringLiteral("a\\b'c'); drop table t; --\\'");
    ASSERT_TRUE(connection->createQuery(QStringLiteral("create")).exec());
    YSafeSqlQuery insert(connection->getDatabase());
    EXPECT_TRUE(insert.exec(QStringLiteral("insert into t (v) values (%1)")
                                .arg(YDb::sqlSafeString(connection, value, false))));
    YSafeSqlQuery select(connection->getDatabase());
    select.exec(QStringLiteral("select v from t"));
    ASSERT_TRUE(select.next());
    EXPECT_EQ(select.value(0).toString(), value);
    EXPECT_FALSE(select.next());
}

TEST(YDb, SqlSafeStringWithNulByteGivesAnErrorAndNoInjection)
{
    SqlitePool setup;
    YDb pool(&setup.data);
    YDbConnectionPtr connection = pool.getConnection();
    QString value = QStringLiteral("a'");
    value.append(QChar(0));
    value.append(QStringLiteral("'); drop table t; --"));
    const QString literal = YDb::sqlSafeString(connection, value, false);
    EXPECT_EQ(
        literal, QStringLiteral("'a''") + QChar(0) + QStringLiteral("''); drop table t; --'"));
    ASSERT_TRUE(connection->createQuery(QStringLiteral("create")).exec());
    // SQLite ends a statement at a NUL: the literal is cut off and the statement fails, whole.
    YSafeSqlQuery insert(connection->getDatabase());
    const QString text = QStringLiteral("insert into t (v) values (%1)").arg(literal);
    try {
        insert.exec(text);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).startsWith(QStringLiteral(
            "QSafeSqlQuery::exec -> error in query: insert into t (v) values ('a''")))
            << e.what();
    }
    YSafeSqlQuery count = connection->createQuery(QStringLiteral("count"));
    EXPECT_TRUE(count.exec());
    ASSERT_TRUE(count.next());
    EXPECT_EQ(count.value(0).toInt(), 0);
}
