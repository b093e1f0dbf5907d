#include "db_test_support.h"
#include "ydb.h"
#include "ydb_table_copier.h"
#include "yexception.h"

#include <QDateTime>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QSqlRecord>

#include <gtest/gtest.h>

using namespace yovotest;

namespace {

class TableCopierTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        server = mariaDbServer();
        ASSERT_TRUE(server.valid) << "the MariaDB fixture did not run";
        ASSERT_TRUE(mysql.initMySQL(
            server.host, server.user, server.password, server.database, server.port, QString()));
        sqliteData.dbType = QStringLiteral("QSQLITE");
        sqliteData.dbName = dir.file(QStringLiteral("target.db"));
        sqliteData.withStatements = false;
        sqlite.reset(new YDb(&sqliteData));
        table = uniqueName("copy");
        sideName = uniqueName("side");
        side = openSideConnection(server, sideName);
        execOrFail(side,
            QStringLiteral("create table %1 (id int not null, name varchar(20), flag tinyint(1), "
                           "stamp timestamp null default null, note_nn text null, note text null, "
                           "happened datetime null, stamp_text timestamp null default null)")
                .arg(table));
        target = sqlite->getConnection();
        execOrFail(target->getDatabase(),
            QStringLiteral("create table %1 (id integer, name text, flag integer, stamp integer, "
                           "note_nn text not null, note text, happened text, stamp_text timestamp)")
                .arg(table));
    }

    void TearDown() override
    {
        execOrFail(side, QStringLiteral("drop table if exists %1").arg(table));
        side = QSqlDatabase();
        closeSideConnection(sideName);
        target = YDbConnectionPtr();
        sqlite.reset();
    }

    void insertSourceRows()
    {
        execOrFail(side,
            QStringLiteral("insert into %1 values "
                           "(1, 'first', 1, '2024-03-05 06:07:08', 'nn', 'note', "
                           "'2023-12-31 23:59:58', '2024-03-05 06:07:08'), "
                           "(2, 'second', 0, null, null, null, null, null), "
                           "(3, '', 1, '2001-09-09 01:46:40', '', '', '1999-01-01 00:00:00', "
                           "null)")
                .arg(table));
    }

    QList<QVariantList> targetRows()
    {
        QList<QVariantList> rows;
        QSqlQuery query(target->getDatabase());
        EXPECT_TRUE(query.exec(QStringLiteral("select * from %1 order by id").arg(table)));
        while (query.next()) {
            QVariantList row;
            for (int i = 0; i < query.record().count(); ++i)
                row << query.value(i);
            rows << row;
        }
        return rows;
    }

    MariaDbServer server;
    TempDir dir;
    YDb mysql;
    TestInitData sqliteData;
    std::unique_ptr<YDb> sqlite;
    YDbConnectionPtr target;
    QString table;
    QString sideName;
    QSqlDatabase side;
};

} // namespace

TEST(YDbTableCopier, TypeMapsFirstHitWins)
{
    LogCapture log(0);
    YDbTableCopier copier(log.stream());
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("varchar(20)")), QVariant::String);
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("CHAR(3)")), QVariant::String);
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("mediumtext")), QVariant::String);
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("tinyint(1)")), QVariant::Int);
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("bigint(20) unsigned")), QVariant::Int);
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("longblob")), QVariant::ByteArray);
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("bit(1)")), QVariant::Int);
    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("timestamp")), QVariant::DateTime);
    EXPECT_EQ(copier.qtTypeFromSqliteType(QStringLiteral("INTEGER")), QVariant::Int);
    EXPECT_EQ(copier.qtTypeFromSqliteType(QStringLiteral("TEXT")), QVariant::String);
    EXPECT_TRUE(log.text().isEmpty());

    EXPECT_EQ(copier.qtTypeFromMysqlType(QStringLiteral("datetime")), QVariant::String);
    EXPECT_EQ(copier.qtTypeFromSqliteType(QStringLiteral("real")), QVariant::String);
    EXPECT_EQ(maskTimestamps(log.text()).toStdString(),
        "[db <TS> ERROR] YDbTableCopier: Unknown mysql field type: datetime \r\n"
        "[db <TS> ERROR] YDbTableCopier: Unknown sqlite field type: real \r\n");
}

TEST(YDbTableCopier, ColumnInfoTextForm)
{
    YDbTableCopier::ColumnInfo column {3, QStringLiteral("name"), QVariant::String, true};
    EXPECT_EQ(column.toString(), QStringLiteral("3 name 10 1"));
}

TEST_F(TableCopierTest, ColumnInfoFromBothSidesWithTheirOppositeFlags)
{
    YDbTableCopier copier(YDebug::STDERR);
    const QList<YDbTableCopier::ColumnInfo> source
        = copier.getMysqlColumnsInfo(mysql.getConnection(), table);
    ASSERT_EQ(source.size(), 8);
    EXPECT_EQ(source.at(0).index, 0);
    EXPECT_EQ(source.at(0).name, QStringLiteral("id"));
    EXPECT_EQ(source.at(0).type, QVariant::Int);
    EXPECT_FALSE(source.at(0).flag); // not nullable
    EXPECT_EQ(source.at(1).name, QStringLiteral("name"));
    EXPECT_EQ(source.at(1).type, QVariant::String);
    EXPECT_TRUE(source.at(1).flag); // nullable
    EXPECT_EQ(source.at(2).type, QVariant::Int);
    EXPECT_EQ(source.at(3).type, QVariant::DateTime);
    EXPECT_EQ(source.at(6).type, QVariant::String);
    EXPECT_EQ(source.at(7).index, 7);

    const QList<YDbTableCopier::ColumnInfo> columns = copier.getSqliteColumnsInfo(target, table);
    ASSERT_EQ(columns.size(), 8);
    EXPECT_EQ(columns.at(4).index, 4);
    EXPECT_EQ(columns.at(4).name, QStringLiteral("note_nn"));
    EXPECT_EQ(columns.at(4).type, QVariant::String);
    EXPECT_TRUE(columns.at(4).flag); // not nullable
    EXPECT_FALSE(columns.at(5).flag);
    EXPECT_EQ(columns.at(3).type, QVariant::Int);
    EXPECT_EQ(columns.at(7).type, QVariant::DateTime);
}

TEST_F(TableCopierTest, EveryRowAndValueArrives)
{
    insertSourceRows();
    execOrFail(target->getDatabase(),
        QStringLiteral("insert into %1 values (99, 'old', 0, 0, 'x', 'y', 'z', null)").arg(table));
    LogCapture log;
    YDbTableCopier copier(log.stream());
    copier.copy(mysql.getConnection(), target, table, QString());

    const QList<QVariantList> rows = targetRows();
    ASSERT_EQ(rows.size(), 3);
    const qint64 firstStamp = scalar(
        side, QStringLiteral("select unix_timestamp(stamp) from %1 where id = 1").arg(table))
                                  .toLongLong();
    const qint64 thirdStamp = scalar(
        side, QStringLiteral("select unix_timestamp(stamp) from %1 where id = 3").arg(table))
                                  .toLongLong();

    const QVariantList& first = rows.at(0);
    EXPECT_EQ(first.at(0).toInt(), 1);
    EXPECT_EQ(first.at(1).toString(), QStringLiteral("first"));
    EXPECT_EQ(first.at(2).toInt(), 1);
    // A timestamp into an integer column: seconds since the epoch.
    EXPECT_EQ(first.at(3).toLongLong(), firstStamp);
    EXPECT_EQ(first.at(4).toString(), QStringLiteral("nn"));
    EXPECT_EQ(first.at(5).toString(), QStringLiteral("note"));
    // datetime is an unknown type, copied as the value it is.
    const QDateTime happened(QDate(2023, 12, 31), QTime(23, 59, 58));
    EXPECT_EQ(first.at(6).toDateTime(), happened) << first.at(6).toString().toStdString();
    // A timestamp into a timestamp column keeps its date and time.
    EXPECT_EQ(first.at(7).toDateTime(), QDateTime(QDate(2024, 3, 5), QTime(6, 7, 8)))
        << first.at(7).toString().toStdString();

    const QVariantList& second = rows.at(1);
    EXPECT_EQ(second.at(1).toString(), QStringLiteral("second"));
    EXPECT_EQ(second.at(2).toInt(), 0);
    // NULL into a NOT NULL text column: an empty string; into a nullable one: NULL.
    EXPECT_FALSE(second.at(4).isNull());
    EXPECT_EQ(second.at(4).toString(), QString());
    EXPECT_TRUE(second.at(5).isNull());
    EXPECT_TRUE(second.at(6).isNull());
    EXPECT_TRUE(second.at(7).isNull());

    const QVariantList& third = rows.at(2);
    EXPECT_EQ(third.at(1).toString(), QString());
    EXPECT_FALSE(third.at(1).isNull());
    EXPECT_EQ(third.at(3).toLongLong(), thirdStamp);
    EXPECT_EQ(third.at(4).toString(), QString());
    EXPECT_FALSE(third.at(5).isNull());

    const QByteArray text = maskTimestamps(log.text());
    EXPECT_TRUE(text.contains("DBG2] Copying table " + table.toLatin1() + " from mysql to sqlite"))
        << text.toStdString();
    EXPECT_TRUE(text.contains("DBG3] Source columns:")) << text.toStdString();
    EXPECT_TRUE(text.contains("DBG3] 0 id 2 0")) << text.toStdString();
    EXPECT_TRUE(text.contains("DBG3] Target columns:")) << text.toStdString();
    EXPECT_TRUE(text.contains("DBG3] 4 note_nn 10 1")) << text.toStdString();
    EXPECT_TRUE(text.contains("DBG3] Will convert empty value of note_nn to an empty string"))
        << text.toStdString();
    EXPECT_TRUE(text.contains("DBG2] Copied 3 rows")) << text.toStdString();
    EXPECT_TRUE(text.contains("ERROR] YDbTableCopier: Unknown mysql field type: datetime"))
        << text.toStdString();
}

TEST_F(TableCopierTest, ConditionSelectsButEveryTargetRowGoes)
{
    insertSourceRows();
    execOrFail(target->getDatabase(),
        QStringLiteral("insert into %1 values (99, 'old', 0, 0, 'x', 'y', 'z', null)").arg(table));
    YDbTableCopier copier(YDebug::STDERR);
    copier.copy(mysql.getConnection(), target, table, QStringLiteral("where id >= 2"));
    const QList<QVariantList> rows = targetRows();
    ASSERT_EQ(rows.size(), 2);
    EXPECT_EQ(rows.at(0).at(0).toInt(), 2);
    EXPECT_EQ(rows.at(1).at(0).toInt(), 3);
}

TEST_F(TableCopierTest, EmptySourceLeavesAnEmptyTarget)
{
    execOrFail(target->getDatabase(),
        QStringLiteral("insert into %1 values (99, 'old', 0, 0, 'x', 'y', 'z', null)").arg(table));
    YDbTableCopier copier(YDebug::STDERR);
    copier.copy(mysql.getConnection(), target, table, QString());
    EXPECT_TRUE(targetRows().isEmpty());
}

TEST_F(TableCopierTest, SqliteSourceIsNotImplemented)
{
    YDbTableCopier copier(YDebug::STDERR);
    try {
        copier.copy(target, mysql.getConnection(), table, QString());
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ(e.what(), "YDbTableCopier::copySQliteToMysql not implemented yet");
    }
}

TEST_F(TableCopierTest, MissingTablesGiveTheQueryErrors)
{
    YDbTableCopier copier(YDebug::STDERR);
    try {
        copier.copy(mysql.getConnection(), target, QStringLiteral("no_such_table"), QString());
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).startsWith(QStringLiteral(
            "QSafeSqlQuery::exec -> error in query: SHOW COLUMNS FROM no_such_table. [")))
            << e.what();
    }
    EXPECT_THROW(copier.copy(YDbConnectionPtr(), target, table, QString()), YException);
}
