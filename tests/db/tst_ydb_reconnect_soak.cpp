#include "db_test_support.h"
#include "ydb.h"
#include "ydb_config_reader.h"

#include <QSet>
#include <QSqlDatabase>

#include <gtest/gtest.h>

using namespace yovotest;

// The server thread of a pooled connection is killed 200 times; each following statement must
// succeed after exactly one reconnect and land exactly once.
TEST(YDbReconnectSoak, TwoHundredKillsTwoHundredReconnectsNoDuplicates)
{
    const MariaDbServer server = mariaDbServer();
    ASSERT_TRUE(server.valid) << "the MariaDB fixture did not run";
    const QString table = uniqueName("soak");
    const QString sideName = uniqueName("side");
    QSqlDatabase side = openSideConnection(server, sideName);
    execOrFail(
        side, QStringLiteral("create table %1 (v int not null, cid bigint not null)").arg(table));

    QString xml = QStringLiteral("<s><statement name=\"insert\" sql=\"insert into %1 (v, cid) "
                                 "values (?, connection_id())\"/>"
                                 "<statement name=\"id\" sql=\"select connection_id()\"/></s>")
                      .arg(table);
    YDbConfigReader::instance()->parse(
        QSharedPointer<QTextStream>::create(&xml, QIODevice::ReadOnly));
    {
        YDb pool;
        ASSERT_TRUE(pool.initMySQL(
            server.host, server.user, server.password, server.database, server.port, QString()));
        YDbConnectionPtr connection = pool.getConnection();
        YSafeSqlQuery idQuery = connection->createQuery(QStringLiteral("id"));
        YSafeSqlQuery insert = connection->createQuery(QStringLiteral("insert"));
        QSet<qint64> ids;
        int reconnects = 0;
        for (int i = 0; i < 200; ++i) {
            ASSERT_TRUE(idQuery.exec());
            ASSERT_TRUE(idQuery.next());
            const qint64 before = idQuery.value(0).toLongLong();
            ids.insert(before);
            execOrFail(side, QStringLiteral("KILL %1").arg(before));
            insert.bindValue(0, i);
            ASSERT_TRUE(insert.exec());
            ASSERT_TRUE(idQuery.exec());
            ASSERT_TRUE(idQuery.next());
            const qint64 after = idQuery.value(0).toLongLong();
            if (after != before)
                ++reconnects;
            ids.insert(after);
            // The row was written by the connection that is still in use: the statement that
            // reads the id afterwards, prepared before the kill, did not reconnect once more.
            ASSERT_EQ(
                scalar(side, QStringLiteral("select cid from %1 where v = %2").arg(table).arg(i))
                    .toLongLong(),
                after);
        }
        EXPECT_EQ(reconnects, 200);
        EXPECT_EQ(ids.size(), 201);
    }
    EXPECT_EQ(scalar(side, QStringLiteral("select count(*) from %1").arg(table)).toInt(), 200);
    EXPECT_EQ(
        scalar(side, QStringLiteral("select count(distinct v) from %1").arg(table)).toInt(), 200);
    EXPECT_EQ(
        scalar(side, QStringLiteral("select sum(v) from %1").arg(table)).toInt(), 199 * 200 / 2);
    execOrFail(side, QStringLiteral("drop table %1").arg(table));
    side = QSqlDatabase();
    closeSideConnection(sideName);
}
