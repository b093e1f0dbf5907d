// yledgerd holds every connection to ledger.allowed_masks, loopback included: a refused client
// sees its connection closed without an answer, nothing of it is stored, and the daemon goes on
// serving the clients that may talk to it. Two loopback addresses, 127.0.0.1 and 127.0.0.2,
// give an allowed and a refused client on one host.
#include "../../examples/ledger/ledger_common.h"
#include "ledger_test_support.h"
#include "message_frames.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QRegularExpression>
#include <QSqlError>
#include <QThread>

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>

#include <memory>
#include <vector>

using namespace ledgertest;

namespace {

// A client socket from `source` to the daemon's port on 127.0.0.1; -1 when it can't connect.
int connectFrom(const char* source, unsigned short port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    struct sockaddr_in local = {};
    local.sin_family = AF_INET;
    inet_pton(AF_INET, source, &local.sin_addr);
    struct sockaddr_in daemon = {};
    daemon.sin_family = AF_INET;
    daemon.sin_port = htons(port);
    inet_pton(AF_INET, "127.0.0.1", &daemon.sin_addr);
    if (bind(fd, reinterpret_cast<sockaddr*>(&local), sizeof(local)) != 0
        || connect(fd, reinterpret_cast<sockaddr*>(&daemon), sizeof(daemon)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

QByteArray storeFrame(int seq, const QString& text)
{
    YMessage request;
    request.setStringType(QStringLiteral(LEDGER_STORE));
    request.setIntData(seq);
    request.setStringData(text);
    return yovotest::frameOf(&request);
}

struct Exchange
{
    bool connected = false;
    // The daemon ended the connection (an orderly close or a reset) rather than leaving it open.
    bool closed = false;
    QByteArray received;
};

// Sends one store request and reads until the daemon closes the connection.
Exchange exchange(int fd, int seq, const QString& text)
{
    Exchange result;
    if (fd < 0)
        return result;
    result.connected = true;
    const QByteArray frame = storeFrame(seq, text);
    // A refused connection may be gone before the request is out: that is no failure here.
    send(fd, frame.constData(), size_t(frame.size()), MSG_NOSIGNAL);
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 15000) {
        struct pollfd item = {fd, POLLIN, 0};
        if (poll(&item, 1, 100) != 1)
            continue;
        char buffer[4096];
        const ssize_t count = recv(fd, buffer, sizeof(buffer), 0);
        if (count > 0) {
            result.received.append(buffer, int(count));
            continue;
        }
        result.closed = count == 0 || errno == ECONNRESET;
        break;
    }
    close(fd);
    return result;
}

Exchange storeFrom(const char* source, unsigned short port, int seq, const QString& text)
{
    return exchange(connectFrom(source, port), seq, text);
}

// The daemon's answer in a reply, or nothing when there is none.
std::unique_ptr<YMessage> answerIn(const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return nullptr;
    try {
        return yovotest::messageFrom(bytes);
    } catch (const YException&) {
        return nullptr;
    }
}

// Each client name with its sequence numbers, as the daemon stored them, or with the time of
// arrival it wrote.
QStringList storedRows(const QString& database, bool withTimes = false)
{
    QStringList rows;
    const QString connectionName = yovotest::uniqueName("ledger_masks_");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
        db.setDatabaseName(database);
        if (!db.open()) {
            rows << QStringLiteral("can't open: ") + db.lastError().text();
        } else {
            QSqlQuery query(db);
            query.exec(QStringLiteral("select client, seq, received from messages order by id"));
            while (query.next())
                rows << query.value(0).toString() + QLatin1Char(' ')
                        + query.value(withTimes ? 2 : 1).toString();
        }
    }
    QSqlDatabase::removeDatabase(connectionName);
    return rows;
}

struct RunningDaemon
{
    yovotest::TempDir dir;
    QString table = yovotest::uniqueName("ledger_masks_");
    Daemon daemon;
    unsigned short port = 0;

    bool start(const QString& masks)
    {
        const QString config = writeConfig(
            dir, 0, table, QStringLiteral("[network]\nledger.allowed_masks = %1\n").arg(masks));
        if (!daemon.start(config) || !daemon.waitListening())
            return false;
        const QByteArray output = daemon.output();
        const int at = output.indexOf("listening on port ") + int(strlen("listening on port "));
        port = static_cast<unsigned short>(output.mid(at, output.indexOf('\n', at) - at).toInt());
        return port != 0;
    }

    QByteArray log() { return yovotest::readFile(logPath(dir, table)); }
    QStringList rows(bool withTimes = false)
    {
        return storedRows(dir.file(QStringLiteral("ledger.db")), withTimes);
    }

    // The figure the status shows, once the main loop has published it (five times a second).
    QByteArray statusField(const QByteArray& name)
    {
        QThread::msleep(500);
        const ToolRun run = runTool({QStringLiteral("status"), QStringLiteral("--table"), table});
        for (const QByteArray& line : run.out.split('\n')) {
            if (line.startsWith(name + ": "))
                return line.mid(name.size() + 2);
        }
        return "missing in: " + run.out + run.err;
    }
};

void expectAcknowledged(const Exchange& reply, int seq)
{
    ASSERT_TRUE(reply.connected);
    const std::unique_ptr<YMessage> answer = answerIn(reply.received);
    ASSERT_NE(nullptr, answer) << reply.received.toHex().constData();
    EXPECT_EQ(QString::fromLatin1(LEDGER_ACK), answer->getStringType());
    EXPECT_EQ(seq, answer->getIntData());
    EXPECT_EQ(QString::fromLatin1(LEDGER_STORED), answer->getStringData());
}

void expectRefused(const Exchange& reply)
{
    ASSERT_TRUE(reply.connected);
    EXPECT_TRUE(reply.closed);
    EXPECT_TRUE(reply.received.isEmpty()) << reply.received.toHex().constData();
}

} // namespace

TEST(LedgerMasks, RefusesLoopbackThatItsMasksLeaveOut)
{
    RunningDaemon ledger;
    ASSERT_TRUE(ledger.start(QStringLiteral("10.0.0.0/8, 192.168.7.*")))
        << ledger.daemon.errors().constData();

    expectRefused(storeFrom("127.0.0.1", ledger.port, 1, QStringLiteral("outsider\thello")));
    EXPECT_EQ(QByteArray("1"), ledger.statusField("refused"));
    EXPECT_EQ(QByteArray("0"), ledger.statusField("requests"));

    ledger.daemon.sendSignal(SIGTERM);
    EXPECT_EQ(0, ledger.daemon.wait());
    EXPECT_EQ(QByteArray(), ledger.daemon.errors());
    EXPECT_EQ(QStringList(), ledger.rows());
    const QByteArray log = ledger.log();
    EXPECT_TRUE(
        log.contains("WARNING] refused a connection from 127.0.0.1: not in ledger.allowed_masks"))
        << log.constData();
    // The daemon's own wake-up at the stop is refused too, but quietly.
    EXPECT_EQ(1, log.count("refused a connection"));
    EXPECT_TRUE(log.contains("NOTICE] stopped after 0 messages")) << log.constData();
}

TEST(LedgerMasks, ServesLoopbackThatItsMasksName)
{
    RunningDaemon ledger;
    ASSERT_TRUE(ledger.start(QStringLiteral("10.0.0.0/8,127.0.0.1")))
        << ledger.daemon.errors().constData();

    const QDateTime before = QDateTime::currentDateTimeUtc().addMSecs(-1);
    expectAcknowledged(storeFrom("127.0.0.1", ledger.port, 1, QStringLiteral("insider\thello")), 1);
    EXPECT_EQ(QByteArray("0"), ledger.statusField("refused"));

    ledger.daemon.sendSignal(SIGTERM);
    EXPECT_EQ(0, ledger.daemon.wait());
    EXPECT_EQ(QByteArray(), ledger.daemon.errors());
    EXPECT_EQ(QStringList {QStringLiteral("insider 1")}, ledger.rows());
    EXPECT_FALSE(ledger.log().contains("refused"));
    // The time of arrival in UTC with milliseconds, as Qt's ISO form writes it.
    const QStringList times = ledger.rows(true);
    ASSERT_EQ(1, times.size());
    const QString received = times[0].section(QLatin1Char(' '), 1);
    EXPECT_TRUE(QRegularExpression(QStringLiteral(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z$)"))
                    .match(received)
                    .hasMatch())
        << received.toStdString();
    const QDateTime arrival = QDateTime::fromString(received, Qt::ISODateWithMs);
    EXPECT_EQ(received, arrival.toString(Qt::ISODateWithMs));
    EXPECT_LE(before, arrival);
    EXPECT_LE(arrival, QDateTime::currentDateTimeUtc());
}

TEST(LedgerMasks, KeepsServingAfterRefusals)
{
    RunningDaemon ledger;
    ASSERT_TRUE(ledger.start(QStringLiteral("127.0.0.1"))) << ledger.daemon.errors().constData();

    // A refused client, then an allowed one, one after the other.
    expectRefused(storeFrom("127.0.0.2", ledger.port, 1, QStringLiteral("outsider\tfirst")));
    expectAcknowledged(storeFrom("127.0.0.1", ledger.port, 1, QStringLiteral("insider\tfirst")), 1);

    // Several refused connections queued at once, with an allowed one behind them: the server
    // turns them all away in one go and serves the one it may.
    std::vector<int> queued;
    for (int i = 0; i < 8; ++i)
        queued.push_back(connectFrom("127.0.0.2", ledger.port));
    const int allowed = connectFrom("127.0.0.1", ledger.port);
    for (int i = 0; i < 8; ++i)
        expectRefused(exchange(queued[size_t(i)], 2 + i, QStringLiteral("outsider\tqueued")));
    expectAcknowledged(exchange(allowed, 2, QStringLiteral("insider\tsecond")), 2);

    // A refused client whose request goes out whole before it is closed, and the daemon after.
    expectRefused(storeFrom("127.0.0.2", ledger.port, 20, QStringLiteral("outsider\tlast")));
    expectAcknowledged(storeFrom("127.0.0.1", ledger.port, 3, QStringLiteral("insider\tthird")), 3);
    EXPECT_EQ(QByteArray("10"), ledger.statusField("refused"));
    EXPECT_EQ(QByteArray("3"), ledger.statusField("stored"));

    ledger.daemon.sendSignal(SIGTERM);
    EXPECT_EQ(0, ledger.daemon.wait());
    // Nothing on standard error: a refusal is no exception in the server's loop.
    EXPECT_EQ(QByteArray(), ledger.daemon.errors());
    EXPECT_EQ((QStringList {QStringLiteral("insider 1"), QStringLiteral("insider 2"),
                  QStringLiteral("insider 3")}),
        ledger.rows());
    const QByteArray log = ledger.log();
    EXPECT_EQ(10, log.count("refused a connection from 127.0.0.2: not in ledger.allowed_masks"))
        << log.constData();
    EXPECT_TRUE(log.contains("NOTICE] stopped after 3 messages")) << log.constData();
}
