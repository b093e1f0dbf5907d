// What the daemon and its clients agree on: request and answer types, the shared status record,
// and one request and its answer over a fresh connection.
#ifndef YLEDGER_LEDGER_COMMON_H
#define YLEDGER_LEDGER_COMMON_H

#include <yovolib/yovolib.h>

#include <QByteArray>
#include <QDataStream>
#include <QList>
#include <QPair>
#include <QString>

#include <memory>

#define LEDGER_STORE "store"
#define LEDGER_PING "ping"
#define LEDGER_ACK "ack"
#define LEDGER_PONG "pong"
#define LEDGER_ERROR "error"
#define LEDGER_STORED "stored"
#define LEDGER_DUPLICATE "duplicate"
#define LEDGER_STATUS_KEY QByteArray("status")

/// The status the daemon publishes: one "name=value" line per figure, in a fixed order, so that
/// readers in other languages can take it apart too. "refused" counts the connections that the
/// allowed masks turned away.
inline QByteArray ledgerStatusRecord(qint64 pid, unsigned int port, qint64 startedAt,
    quint64 stored, quint64 duplicates, quint64 errors, quint64 requests, qint64 lastMinute,
    quint64 refused)
{
    return QByteArray("pid=") + QByteArray::number(pid) + "\nport=" + QByteArray::number(port)
        + "\nstarted=" + QByteArray::number(startedAt) + "\nstored=" + QByteArray::number(stored)
        + "\nduplicates=" + QByteArray::number(duplicates)
        + "\nerrors=" + QByteArray::number(errors) + "\nrequests=" + QByteArray::number(requests)
        + "\nrequests_last_minute=" + QByteArray::number(lastMinute)
        + "\nrefused=" + QByteArray::number(refused) + "\n";
}

/// The record's lines as name and value; malformed lines are left out.
inline QList<QPair<QByteArray, QByteArray>> parseLedgerStatus(const QByteArray& record)
{
    QList<QPair<QByteArray, QByteArray>> fields;
    for (const QByteArray& line : record.split('\n')) {
        const int equals = line.indexOf('=');
        if (equals > 0)
            fields.append(qMakePair(line.left(equals), line.mid(equals + 1)));
    }
    return fields;
}

/// Sends one message on a new connection and returns the answer; throws YException when the
/// daemon can't be reached or hangs up without answering.
inline std::unique_ptr<YMessage> ledgerRequest(
    const char* host, unsigned short port, const QString& type, int number, const QString& text)
{
    YNetworkPeer peer;
    peer.connect(host, port);
    QDataStream stream(&peer);
    stream.setVersion(QDataStream::Qt_4_8);
    YMessage request;
    request.setStringType(type);
    request.setIntData(number);
    request.setStringData(text);
    stream << &request;
    peer.flush();
    YMessage* answer = nullptr;
    stream >> answer;
    std::unique_ptr<YMessage> response(answer);
    peer.disconnect();
    if (!response)
        throw YException(QStringLiteral("no answer"), __FILE__, __LINE__);
    return response;
}

#endif // YLEDGER_LEDGER_COMMON_H
