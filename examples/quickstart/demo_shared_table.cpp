#include "demos.h"

#include <yovolib/yovolib.h>

#include <QCoreApplication>
#include <QProcess>

#include <unistd.h>

namespace {

const unsigned int MAX_READERS = 4;
const char* const PEER_COMMAND = "shared-table";

// The rows both processes know about.
const char* const ROWS[][2] = {
    {"config/port", "8080"},
    {"config/workers", "4"},
    {"orders/1", "3 x espresso"},
};

void printRow(QTextStream& out, YMMapHash& table, const QByteArray& key)
{
    QByteArray value;
    out << "  " << key << " = "
        << (table.value(key, value) ? QString::fromLatin1(value) : QStringLiteral("(missing)"))
        << "\n";
}

} // namespace

/// The second process of demoSharedTable: attaches the table by name, reads it under a reader
/// locker and adds a row under a writer locker. Arguments: "shared-table" <table> <tokens> <gate>.
int demoSharedTablePeer(DemoContext& context, const QStringList& arguments)
{
    QTextStream& out = context.out;
    if (arguments.size() != 4 || arguments[0] != QLatin1String(PEER_COMMAND)) {
        out << "shared table peer: expected shared-table <table> <tokens> <gate>\n";
        return 2;
    }
    // Every process names the same pair of semaphores with the same count.
    YSemaphore tokens(MAX_READERS, arguments[2]);
    YOneLockSemaphore gate(arguments[3]);
    YMMapHash table;
    if (!table.attach(arguments[1].toLocal8Bit().constData())) {
        out << "peer: can't attach the table: " << table.errorString() << "\n";
        return 1;
    }
    out << "peer " << getpid() << " attached the table and reads it:\n";
    {
        YReaderLocker reader(&tokens, &gate);
        if (!reader.isLocked())
            return 1;
        for (const auto& row : ROWS)
            printRow(out, table, row[0]);
    }
    {
        YWriterLocker writer(&tokens, &gate);
        if (!writer.isLocked())
            return 1;
        table.insert("orders/2", "1 x tea");
        table.insert("peer/pid", QByteArray::number(getpid()));
    }
    out << "peer added orders/2 and peer/pid\n";
    out.flush();
    return 0;
}

/// Shares a small table between this process and a second instance of this program: a named
/// segment holds the table, and two named semaphores make the reader and writer lock.
int demoSharedTable(DemoContext& context)
{
    QTextStream& out = context.out;
    const QString suffix = QString::number(getpid());
    const QString tableName = QStringLiteral("yovolib_qs_table_") + suffix;
    const QString tokensName = QStringLiteral("yovolib_qs_tokens_") + suffix;
    const QString gateName = QStringLiteral("yovolib_qs_gate_") + suffix;

    YSemaphore tokens(MAX_READERS, tokensName);
    YOneLockSemaphore gate(gateName);
    YMMapHash table;
    if (!table.create(tableName.toLocal8Bit().constData(), 64 * 1024)) {
        out << "can't create the table: " << table.errorString() << "\n";
        return 1;
    }
    {
        YWriterLocker writer(&tokens, &gate);
        if (!writer.isLocked()) {
            out << "no writer lock\n";
            return 1;
        }
        for (const auto& row : ROWS)
            table.insert(row[0], row[1]);
    }
    out << "process " << getpid() << " created table '" << tableName << "' with "
        << table.getEntriesCount() << " rows\n";

    QProcess peer;
    peer.setProcessChannelMode(QProcess::MergedChannels);
    peer.start(context.programPath, {QLatin1String(PEER_COMMAND), tableName, tokensName, gateName});
    const bool started = peer.waitForStarted(10000);
    const qint64 peerProcessId = peer.processId();
    const bool finished = started && peer.waitForFinished(30000);
    out << QString::fromLocal8Bit(peer.readAll());
    if (!finished || peer.exitStatus() != QProcess::NormalExit || peer.exitCode() != 0) {
        out << "the peer failed\n";
        if (peer.state() != QProcess::NotRunning)
            peer.kill();
        return 1;
    }

    QByteArray order, peerPid;
    bool ok;
    {
        YReaderLocker reader(&tokens, &gate);
        ok = reader.isLocked() && table.value("orders/2", order)
            && table.value("peer/pid", peerPid);
        out << "back in process " << getpid() << ", the table holds " << table.getEntriesCount()
            << " rows, " << table.getAllocator().memUsage() << " of "
            << table.getAllocator().memSize() << " bytes used:\n";
        for (const char* key :
            {"config/port", "config/workers", "orders/1", "orders/2", "peer/pid"})
            printRow(out, table, key);
    }
    ok = ok && order == "1 x tea" && peerPid.toLongLong() == peerProcessId;
    tokens.remove();
    gate.remove();
    // The segment goes away with its last user, this process, when `table` is destroyed.
    out << (ok ? "shared table demo: ok\n" : "shared table demo: FAILED\n");
    return ok ? 0 : 1;
}
