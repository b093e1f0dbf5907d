#include "db_test_support.h"
#include "ydb.h"

#include <gtest/gtest.h>

using namespace yovotest;

namespace {

// Stops the server however the test ends, before its folder goes.
struct ServerGuard
{
    const QString folder;
    ~ServerGuard() { runMariaDbFixture(QStringLiteral("stop"), folder); }
};

} // namespace

TEST(YDbServerRestart, PoolSurvivesARestartOfTheServer)
{
    // A server of its own: restarting the shared one would disturb tests running beside this.
    TempDir dir;
    const ServerGuard guard {dir.path()};
    ASSERT_TRUE(runMariaDbFixture(QStringLiteral("start"), dir.path()));
    const MariaDbServer own = mariaDbServer(dir.path());
    ASSERT_TRUE(own.valid);
    {
        YDb pool;
        ASSERT_TRUE(
            pool.initMySQL(own.host, own.user, own.password, own.database, own.port, QString()));
        {
            YDbConnectionPtr connection = pool.getConnection();
            YSafeSqlQuery create(connection->getDatabase());
            create.exec(QStringLiteral("create table r (v int)"));
            create.exec(QStringLiteral("insert into r values (1)"));
        }
        ASSERT_TRUE(runMariaDbFixture(QStringLiteral("restart"), dir.path()));
        {
            YDbConnectionPtr connection = pool.getConnection();
            YSafeSqlQuery query(connection->getDatabase());
            EXPECT_TRUE(query.exec(QStringLiteral("insert into r values (2)")));
            EXPECT_TRUE(query.exec(QStringLiteral("select sum(v) from r")));
            ASSERT_TRUE(query.next());
            EXPECT_EQ(query.value(0).toInt(), 3);
        }
    }
}
