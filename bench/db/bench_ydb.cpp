// Database calls of YovoLib side by side with bare QtSql on the same connection, for SQLite and
// for MariaDB: a catalogue statement through YSafeSqlQuery against the same prepared statement
// through QSqlQuery, and a pooled getConnection/release against opening a QSqlDatabase per call.
// The MariaDB cases start a private server with the tests' fixture script and stop it at the end.
// The closing table gives the overhead per call in microseconds and in percent of the bare call.

#include "ydb.h"
#include "ydb_config_reader.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTextStream>

#include <cstdio>
#include <memory>
#include <string>

namespace {

const char CATALOGUE[]
    = "<s><statement name=\"select\" sql=\"select v from bench where id = ?\"/></s>";

class InitData : public YDbInitData
{
public:
    QString type, name, user, password, host;
    unsigned int port = 0;
    QString getUserName() override { return user; }
    QString getDbType() override { return type; }
    QString getDbName() override { return name; }
    QString getPassword() override { return password; }
    QString getConnectOpts() override { return QString(); }
    QString getHostName() override { return host; }
    unsigned int getPort() override { return port; }
    QSharedPointer<QTextStream> getStatements() override
    {
        return QSharedPointer<QTextStream>::create(&_xml, QIODevice::ReadOnly);
    }

private:
    QString _xml = QString::fromLatin1(CATALOGUE);
};

// One database under test: a pool, and the settings to open a bare QSqlDatabase alike.
struct Target
{
    InitData data;
    std::unique_ptr<YDb> pool;
    bool ready = false;
};

QTemporaryDir* workDir = nullptr;
Target sqlite;
Target mariadb;
QString serverDir;

bool runFixture(const char* action)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(QStringLiteral(YOVO_DB_FIXTURE_SCRIPT),
        QStringList() << QLatin1String(action) << serverDir);
    return process.waitForFinished(120000) && process.exitCode() == 0;
}

void fillTable(YDbConnectionPtr connection)
{
    YSafeSqlQuery query(connection->getDatabase());
    query.exec(QStringLiteral("create table bench (id int primary key, v varchar(40))"));
    for (int i = 0; i < 100; ++i)
        query.exec(QStringLiteral("insert into bench values (%1, 'value %1')").arg(i));
}

void setUp()
{
    workDir = new QTemporaryDir();
    sqlite.data.type = QStringLiteral("QSQLITE");
    sqlite.data.name = workDir->filePath(QStringLiteral("bench.db"));
    sqlite.pool.reset(new YDb(&sqlite.data));
    fillTable(sqlite.pool->getConnection());
    sqlite.ready = true;

    serverDir = workDir->filePath(QStringLiteral("mariadb"));
    if (!runFixture("start")) {
        std::fprintf(stderr, "MariaDB did not start: its cases are skipped\n");
        return;
    }
    QFile env(serverDir + QStringLiteral("/server.env"));
    env.open(QIODevice::ReadOnly);
    for (const QByteArray& line : env.readAll().split('\n')) {
        const QString value = QString::fromUtf8(line.mid(line.indexOf('=') + 1));
        if (line.startsWith("port="))
            mariadb.data.port = value.toUInt();
        else if (line.startsWith("user="))
            mariadb.data.user = value;
        else if (line.startsWith("password="))
            mariadb.data.password = value;
        else if (line.startsWith("database="))
            mariadb.data.name = value;
        else if (line.startsWith("host="))
            mariadb.data.host = value;
    }
    mariadb.data.type = QStringLiteral("QMYSQL");
    mariadb.pool.reset(new YDb(&mariadb.data));
    fillTable(mariadb.pool->getConnection());
    mariadb.ready = true;
}

void tearDown()
{
    sqlite.pool.reset();
    mariadb.pool.reset();
    if (mariadb.ready)
        runFixture("stop");
    delete workDir;
}

Target& targetOf(const benchmark::State& state)
{
    return state.range(0) == 0 ? sqlite : mariadb;
}

void SafeQuery(benchmark::State& state)
{
    Target& target = targetOf(state);
    if (!target.ready) {
        state.SkipWithError("no server");
        return;
    }
    YDbConnectionPtr connection = target.pool->getConnection();
    YSafeSqlQuery query = connection->createQuery(QStringLiteral("select"));
    int id = 0;
    for (auto _ : state) {
        query.bindValue(0, id++ % 100);
        query.exec();
        query.next();
        benchmark::DoNotOptimize(query.value(0));
    }
}

void BareQuery(benchmark::State& state)
{
    Target& target = targetOf(state);
    if (!target.ready) {
        state.SkipWithError("no server");
        return;
    }
    YDbConnectionPtr connection = target.pool->getConnection();
    QSqlQuery query(connection->getDatabase());
    query.prepare(YDbConfigReader::instance()->getStatement(QStringLiteral("select")));
    int id = 0;
    for (auto _ : state) {
        query.bindValue(0, id++ % 100);
        query.exec();
        query.next();
        benchmark::DoNotOptimize(query.value(0));
    }
}

void PooledConnection(benchmark::State& state)
{
    Target& target = targetOf(state);
    if (!target.ready) {
        state.SkipWithError("no server");
        return;
    }
    for (auto _ : state) {
        YDbConnectionPtr connection = target.pool->getConnection();
        benchmark::DoNotOptimize(connection.Get());
    }
}

void OpenPerCall(benchmark::State& state)
{
    Target& target = targetOf(state);
    if (!target.ready) {
        state.SkipWithError("no server");
        return;
    }
    const QString name = QStringLiteral("bench_open_per_call");
    for (auto _ : state) {
        {
            QSqlDatabase database = QSqlDatabase::addDatabase(target.data.type, name);
            database.setDatabaseName(target.data.name);
            database.setHostName(target.data.host);
            database.setPort(static_cast<int>(target.data.port));
            if (!database.open(target.data.user, target.data.password))
                state.SkipWithError("open failed");
            database.close();
        }
        QSqlDatabase::removeDatabase(name);
    }
}

BENCHMARK(SafeQuery)->Arg(0)->Arg(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(BareQuery)->Arg(0)->Arg(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(PooledConnection)->Arg(0)->Arg(1)->Repetitions(5)->ReportAggregatesOnly(true);
BENCHMARK(OpenPerCall)->Arg(0)->Arg(1)->Repetitions(5)->ReportAggregatesOnly(true);

} // namespace

int main(int argc, char** argv)
{
    if (!yovo::bench::initialize(argc, argv))
        return 1;
    setUp();
    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::RealTime, yovo::bench::Reduction::Median);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    tearDown();

    std::printf("\nMedians per call; real time, and in brackets this process's CPU time.\n");
    std::printf(
        "%-8s %-32s %20s %20s %18s\n", "database", "pair", "YovoLib us", "bare us", "overhead us");
    const char* const names[] = {"SQLite", "MariaDB"};
    const std::pair<const char*, const char*> pairs[]
        = {{"SafeQuery", "BareQuery"}, {"PooledConnection", "OpenPerCall"}};
    for (int arg = 0; arg < 2; ++arg) {
        for (const auto& pair : pairs) {
            const std::string suffix = "/" + std::to_string(arg);
            const yovo::bench::Result* ours = reporter.find(pair.first + suffix);
            const yovo::bench::Result* bare = reporter.find(pair.second + suffix);
            if (ours == nullptr || bare == nullptr)
                continue;
            const double oursUs = ours->realNs / 1000.0;
            const double bareUs = bare->realNs / 1000.0;
            const double oursCpu = ours->cpuNs / 1000.0;
            const double bareCpu = bare->cpuNs / 1000.0;
            std::printf("%-8s %-32s %9.3f (%8.3f) %9.3f (%8.3f) %8.3f (%7.3f)\n", names[arg],
                (std::string(pair.first) + " vs " + pair.second).c_str(), oursUs, oursCpu, bareUs,
                bareCpu, oursUs - bareUs, oursCpu - bareCpu);
        }
    }
    return 0;
}
