// yledgerd as a process: under a stand-in service manager, in a terminal, and killed outright
// while four clients send it messages.
#include "ledger_test_support.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QElapsedTimer>
#include <QSet>
#include <QSqlError>
#include <QThread>

#include <memory>

using namespace ledgertest;

namespace {

QString tableName()
{
    return yovotest::uniqueName("ledger_test_");
}

int countLines(const QString& path)
{
    return yovotest::readFile(path).count('\n');
}

} // namespace

TEST(LedgerDaemon, ReportsReadyAndFeedsTheWatchdogUnderAServiceManager)
{
    yovotest::TempDir dir;
    NotifySocket manager;
    ASSERT_TRUE(manager.isBound());
    const QString table = tableName();
    Daemon daemon;
    ASSERT_TRUE(daemon.start(writeConfig(dir, 0, table), manager.path()));
    ASSERT_TRUE(manager.waitFor("READY=1")) << daemon.output().constData();
    EXPECT_TRUE(manager.waitFor("WATCHDOG=1", 5000));
    EXPECT_TRUE(daemon.waitListening());

    const ToolRun status = runTool({QStringLiteral("status"), QStringLiteral("--table"), table});
    EXPECT_EQ(0, status.exitCode) << status.err.constData();
    EXPECT_TRUE(status.out.startsWith("pid: " + QByteArray::number(daemon.pid()) + "\nport: "))
        << status.out.constData();
    EXPECT_TRUE(status.out.contains("\nstored: 0\n")) << status.out.constData();

    daemon.sendSignal(SIGTERM);
    EXPECT_TRUE(manager.waitFor("STOPPING=1"));
    EXPECT_EQ(0, daemon.wait());
    const QByteArray log = yovotest::readFile(logPath(dir, table));
    EXPECT_TRUE(log.contains("NOTICE] stopped after 0 messages")) << log.constData();
    // The daemon took its shared table with it.
    const ToolRun after = runTool({QStringLiteral("status"), QStringLiteral("--table"), table});
    EXPECT_EQ(3, after.exitCode);
    EXPECT_TRUE(after.err.contains("yledgerd is not running")) << after.err.constData();
}

TEST(LedgerDaemon, RunsInATerminalWithE)
{
    yovotest::TempDir dir;
    Daemon daemon;
    ASSERT_TRUE(daemon.start(writeConfig(dir, 0, tableName())));
    ASSERT_TRUE(daemon.waitListening()) << daemon.errors().constData();
    daemon.sendSignal(SIGTERM);
    EXPECT_EQ(0, daemon.wait()) << daemon.errors().constData();
    const QByteArray output = daemon.output();
    EXPECT_TRUE(output.startsWith("yledgerd: service is starting (as application) ...\n"
                                  "yledgerd: listening on port "))
        << output.constData();
    EXPECT_TRUE(output.endsWith("\nyledgerd: stopped\n")) << output.constData();
}

TEST(LedgerDaemon, RefusesToStartWithoutItsSettings)
{
    yovotest::TempDir dir;
    Daemon daemon;
    ASSERT_TRUE(daemon.start(dir.file(QStringLiteral("missing.ini"))));
    EXPECT_EQ(1, daemon.wait());
    const QByteArray errors = daemon.errors();
    EXPECT_TRUE(errors.startsWith("yledgerd: can't read the settings of "
        + QFile::encodeName(dir.file(QStringLiteral("missing.ini")))))
        << errors.constData();
}

TEST(LedgerDaemon, RefusesAPortThatIsNotANumber)
{
    yovotest::TempDir dir;
    Daemon daemon;
    const QString config = writeConfig(dir, 0, tableName());
    QFile file(config);
    ASSERT_TRUE(file.open(QIODevice::Append));
    file.write("[network]\nledger.port = http\n");
    file.close();
    ASSERT_TRUE(daemon.start(config));
    EXPECT_EQ(1, daemon.wait());
    EXPECT_TRUE(daemon.errors().startsWith("yledgerd: ledger.port is not a port number: http\n"));
}

TEST(LedgerDaemon, KilledMidRunLosesNoAcknowledgedMessage)
{
    const int CLIENTS = 4;
    const int MESSAGES = 1000;
    yovotest::TempDir dir;
    const unsigned short port = freePort();
    ASSERT_NE(0, port);
    const QString table = tableName();
    // A log of a megabyte at most, and long lines: the log rotates during the run.
    const QString config
        = writeConfig(dir, port, table, QStringLiteral("[logging]\nledger.rotation_mb = 1\n"));
    const int PADDING = 400;

    NotifySocket manager;
    auto daemon = std::make_unique<Daemon>();
    ASSERT_TRUE(daemon->start(config, manager.path()));
    ASSERT_TRUE(manager.waitFor("READY=1")) << daemon->errors().constData();

    QList<QProcess*> clients;
    QStringList ackFiles;
    for (int i = 0; i < CLIENTS; ++i) {
        ackFiles << dir.file(QStringLiteral("acks%1").arg(i));
        auto* client = new QProcess;
        client->start(yovotest::helperPath("ledger_load_client"),
            {QString::number(port), QStringLiteral("client%1").arg(i), QString::number(MESSAGES),
                ackFiles.last(), QString::number(PADDING)});
        clients << client;
    }
    std::unique_ptr<QProcess> guards[CLIENTS];
    for (int i = 0; i < CLIENTS; ++i)
        guards[i].reset(clients[i]);

    // Kill it outright once about a third of the messages are in.
    auto acknowledged = [&ackFiles] {
        int total = 0;
        for (const QString& file : ackFiles)
            total += countLines(file);
        return total;
    };
    QElapsedTimer timer;
    timer.start();
    while (acknowledged() < CLIENTS * MESSAGES / 3 && timer.elapsed() < 60000)
        QThread::msleep(20);
    daemon->sendSignal(SIGKILL);
    EXPECT_EQ(-1, daemon->wait());
    const int acknowledgedAtKill = acknowledged();
    ASSERT_GE(acknowledgedAtKill, CLIENTS * MESSAGES / 3);
    ASSERT_LT(acknowledgedAtKill, CLIENTS * MESSAGES);

    // A moment without a daemon, then a new one on the same files and port.
    QThread::msleep(300);
    daemon = std::make_unique<Daemon>();
    NotifySocket secondManager;
    ASSERT_TRUE(daemon->start(config, secondManager.path()));
    ASSERT_TRUE(secondManager.waitFor("READY=1")) << daemon->errors().constData();

    int retries = 0;
    for (int i = 0; i < CLIENTS; ++i) {
        ASSERT_TRUE(clients[i]->waitForFinished(120000));
        const QByteArray output = clients[i]->readAllStandardOutput();
        EXPECT_EQ(0, clients[i]->exitCode()) << output.constData();
        EXPECT_TRUE(output.startsWith("acked 1000 retries ")) << output.constData();
        retries += output.mid(int(strlen("acked 1000 retries "))).trimmed().toInt();
        EXPECT_EQ(MESSAGES, countLines(ackFiles[i]));
    }
    // Every client that was waiting for an answer at the kill had to send again.
    EXPECT_GT(retries, 0);
    daemon->sendSignal(SIGTERM);
    EXPECT_EQ(0, daemon->wait());

    const QString connectionName = yovotest::uniqueName("ledger_check_");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
        db.setDatabaseName(dir.file(QStringLiteral("ledger.db")));
        ASSERT_TRUE(db.open()) << db.lastError().text().toStdString();
        QSqlQuery query(db);
        ASSERT_TRUE(query.exec(QStringLiteral("select client, seq, payload from messages")));
        QHash<QString, QSet<int>> stored;
        int rows = 0;
        while (query.next()) {
            ++rows;
            const QString client = query.value(0).toString();
            const int seq = query.value(1).toInt();
            EXPECT_FALSE(stored[client].contains(seq)) << client.toStdString() << " " << seq;
            stored[client].insert(seq);
            const QString payload = QStringLiteral("payload %1 of %2 ").arg(seq).arg(client)
                + QString(PADDING, QLatin1Char('x'));
            EXPECT_EQ(payload.toStdString(), query.value(2).toString().toStdString());
        }
        EXPECT_EQ(CLIENTS * MESSAGES, rows);
        for (int i = 0; i < CLIENTS; ++i) {
            const QSet<int>& seqs = stored[QStringLiteral("client%1").arg(i)];
            EXPECT_EQ(MESSAGES, seqs.size());
            // Every acknowledgement a client received names a row that is there.
            for (const QByteArray& line : yovotest::readFile(ackFiles[i]).split('\n')) {
                if (line.isEmpty())
                    continue;
                const int seq = line.split(' ').value(0).toInt();
                EXPECT_TRUE(seqs.contains(seq)) << "client" << i << " seq " << seq;
            }
        }
    }
    QSqlDatabase::removeDatabase(connectionName);

    // The log rotated on the way, and the rotated part and the rest hold every message once:
    // one "stored" line per message, but for a message whose row was committed just before the
    // kill and whose line wasn't written yet; its retry then shows as "duplicate".
    const QStringList rotated
        = QDir(dir.path()).entryList({table + QStringLiteral("_*.log")}, QDir::Files, QDir::Name);
    EXPECT_GE(rotated.size(), 1);
    QByteArray log;
    for (const QString& file : rotated)
        log += yovotest::readFile(dir.file(file));
    log += yovotest::readFile(logPath(dir, table));
    EXPECT_EQ(2, log.count("NOTICE] starting, pid "));
    QHash<QByteArray, int> storedLines;
    QSet<QByteArray> duplicateLines;
    for (const QByteArray& line : log.split('\n')) {
        const int at = line.indexOf("DBG1] ");
        if (at < 0)
            continue;
        const QList<QByteArray> words = line.mid(at + 6).split(' ');
        if (words.size() < 3)
            continue;
        const QByteArray key = words[1] + ' ' + words[2];
        if (words[0] == "stored")
            ++storedLines[key];
        else if (words[0] == "duplicate")
            duplicateLines.insert(key);
    }
    int unlogged = 0;
    for (int i = 0; i < CLIENTS; ++i) {
        for (int seq = 1; seq <= MESSAGES; ++seq) {
            const QByteArray key = "client" + QByteArray::number(i) + ' ' + QByteArray::number(seq);
            const int count = storedLines.value(key);
            EXPECT_LE(count, 1) << key.constData();
            if (count == 0) {
                ++unlogged;
                EXPECT_TRUE(duplicateLines.contains(key)) << key.constData();
            }
        }
    }
    EXPECT_LE(unlogged, CLIENTS);
}
