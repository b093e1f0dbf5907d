// Shared by the cross-process tests and their helper program: self-checking values and a
// handle on a helper process that talks line by line.
#ifndef YOVOLIB_TESTS_SHM_TEST_UTIL_H
#define YOVOLIB_TESTS_SHM_TEST_UTIL_H

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QStringList>

#include <csignal>
#include <sys/types.h>

namespace shmtest {

inline quint32 fnv1a(const char* data, int size)
{
    quint32 h = 2166136261u;
    for (int i = 0; i < size; ++i) {
        h ^= quint8(data[i]);
        h *= 16777619u;
    }
    return h;
}

/// "<key>|<writer>|<seq>|<padding>|<checksum>": a value that tells whether it is whole, and who
/// wrote it when.
inline QByteArray makeValue(const QByteArray& key, int writer, quint64 seq, int padding)
{
    QByteArray body = key + '|' + QByteArray::number(writer) + '|' + QByteArray::number(seq) + '|'
        + QByteArray(padding, char('a' + seq % 26)) + '|';
    return body
        + QByteArray::number(fnv1a(body.constData(), body.size()), 16).rightJustified(8, '0');
}

struct ValueInfo
{
    int writer = -1;
    quint64 seq = 0;
};

/// True when `value` is one that makeValue() made for `key`.
inline bool checkValue(const QByteArray& key, const char* data, int size, ValueInfo* info)
{
    if (size < 9)
        return false;
    const QByteArray value(data, size);
    const int bodySize = size - 8;
    bool ok = false;
    const quint32 sum = value.mid(bodySize).toUInt(&ok, 16);
    if (!ok || sum != fnv1a(data, bodySize))
        return false;
    const QList<QByteArray> parts = value.left(bodySize).split('|');
    if (parts.size() != 5 || parts[0] != key || !parts[4].isEmpty())
        return false;
    info->writer = parts[1].toInt(&ok);
    if (!ok)
        return false;
    info->seq = parts[2].toULongLong(&ok);
    if (!ok)
        return false;
    const QByteArray& padding = parts[3];
    for (char c : padding) {
        if (c != char('a' + info->seq % 26))
            return false;
    }
    return true;
}

/// A helper program run as another process; it reads commands from its standard input and
/// answers one line each on its standard output.
class Peer
{
public:
    Peer() { _process.setProcessChannelMode(QProcess::ForwardedErrorChannel); }
    ~Peer()
    {
        if (_process.state() != QProcess::NotRunning) {
            _process.kill();
            _process.waitForFinished(5000);
        }
    }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    bool start(const QString& program, const QStringList& arguments)
    {
        _process.start(program, arguments);
        return _process.waitForStarted(10000);
    }
    /// The next line of output without its end, or "<none>" when none came in time.
    QByteArray line(int timeoutMs = 30000)
    {
        while (!_process.canReadLine()) {
            if (!_process.waitForReadyRead(timeoutMs))
                return _process.canReadLine() ? QByteArray(_process.readLine()).trimmed()
                                              : QByteArray("<none>");
        }
        return QByteArray(_process.readLine()).trimmed();
    }
    void send(const QByteArray& command)
    {
        _process.write(command + '\n');
        _process.waitForBytesWritten(10000);
    }
    QByteArray ask(const QByteArray& command)
    {
        send(command);
        return line();
    }
    /// Closes its input and waits for its end: the exit code, or -1 when it crashed or hung.
    int finish(int timeoutMs = 60000)
    {
        _process.closeWriteChannel();
        if (!_process.waitForFinished(timeoutMs)) {
            _process.kill();
            _process.waitForFinished(5000);
            return -1;
        }
        return _process.exitStatus() == QProcess::NormalExit ? _process.exitCode() : -1;
    }
    /// Output left after the last line read, up to its end.
    QByteArray rest() { return _process.readAllStandardOutput(); }
    void killHard()
    {
        ::kill(pid_t(_process.processId()), SIGKILL);
        _process.waitForFinished(10000);
    }
    qint64 pid() const { return _process.processId(); }

private:
    QProcess _process;
};

} // namespace shmtest

#endif // YOVOLIB_TESTS_SHM_TEST_UTIL_H
