// What the tests of yledgerd and yledger share: a stand-in for the service manager's notify
// socket, the daemon as a child process with its own settings, and runs of the tool.
#ifndef YLEDGER_TEST_SUPPORT_H
#define YLEDGER_TEST_SUPPORT_H

#include "test_support.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTcpServer>

#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

namespace ledgertest {

/// The datagram socket a service manager names in NOTIFY_SOCKET. It is read all the time, as
/// the manager reads it: a sender blocks once a few datagrams wait unread.
class NotifySocket
{
public:
    NotifySocket()
    {
        _path = _dir.file(QStringLiteral("notify"));
        _fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        const QByteArray name = QFile::encodeName(_path);
        std::strncpy(address.sun_path, name.constData(), sizeof(address.sun_path) - 1);
        _bound = bind(_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0;
        _reader = std::thread([this] { readLoop(); });
    }
    ~NotifySocket()
    {
        _stop = true;
        _reader.join();
        close(_fd);
    }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;
    bool isBound() const { return _bound; }
    const QString& path() const { return _path; }

    /// Waits for a datagram that contains `text`, after the one the last wait found.
    bool waitFor(const QByteArray& text, int timeoutMs = 15000)
    {
        QElapsedTimer timer;
        timer.start();
        std::unique_lock<std::mutex> lock(_mutex);
        do {
            while (_next < _received.size()) {
                if (_received[_next++].contains(text))
                    return true;
            }
            _arrived.wait_for(lock, std::chrono::milliseconds(50));
        } while (timer.elapsed() < timeoutMs);
        return false;
    }

private:
    void readLoop()
    {
        while (!_stop) {
            struct pollfd item = {_fd, POLLIN, 0};
            if (poll(&item, 1, 50) != 1)
                continue;
            char buffer[4096];
            const ssize_t count = recv(_fd, buffer, sizeof(buffer), 0);
            if (count <= 0)
                continue;
            std::lock_guard<std::mutex> lock(_mutex);
            _received.append(QByteArray(buffer, int(count)));
            _arrived.notify_all();
        }
    }

    yovotest::TempDir _dir;
    QString _path;
    int _fd;
    bool _bound;
    std::atomic<bool> _stop {false};
    std::mutex _mutex;
    std::condition_variable _arrived;
    QList<QByteArray> _received;
    int _next = 0;
    std::thread _reader;
};

/// A loopback port that was free a moment ago.
inline unsigned short freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

/// The daemon's log. Its name is unique too: the log's rotation takes a semaphore named after it.
inline QString logPath(const yovotest::TempDir& dir, const QString& table)
{
    return dir.file(table + QStringLiteral(".log"));
}

/// The settings of one test daemon, every file in the test's own folder.
inline QString writeConfig(const yovotest::TempDir& dir, unsigned short port, const QString& table,
    const QString& extra = QString())
{
    const QString path = dir.file(QStringLiteral("yledgerd.ini"));
    QFile file(path);
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(QStringLiteral("[network]\nledger.port = %1\n[logging]\nledger.log_level = 3\n"
                              "ledger.log_file = %2\n[storage]\nledger.database = %3\n"
                              "ledger.shared_table = %4\n%5")
                   .arg(port)
                   .arg(logPath(dir, table), dir.file(QStringLiteral("ledger.db")), table, extra)
                   .toLocal8Bit());
    return path;
}

/// yledgerd as a child process.
class Daemon
{
public:
    Daemon() { _process.setProcessChannelMode(QProcess::SeparateChannels); }
    ~Daemon()
    {
        if (_process.state() != QProcess::NotRunning) {
            _process.kill();
            _process.waitForFinished(10000);
        }
    }
    Daemon(const Daemon&) = delete;
    Daemon& operator=(const Daemon&) = delete;

    /// Under a service manager when `notifySocket` is given, otherwise with "-e".
    bool start(const QString& config, const QString& notifySocket = QString())
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(QStringLiteral("NOTIFY_SOCKET"));
        environment.remove(QStringLiteral("WATCHDOG_USEC"));
        environment.remove(QStringLiteral("WATCHDOG_PID"));
        QStringList arguments {QStringLiteral("--config"), config};
        if (notifySocket.isEmpty()) {
            arguments.prepend(QStringLiteral("-e"));
        } else {
            environment.insert(QStringLiteral("NOTIFY_SOCKET"), notifySocket);
            environment.insert(QStringLiteral("WATCHDOG_USEC"), QStringLiteral("1000000"));
        }
        _process.setProcessEnvironment(environment);
        _process.start(QStringLiteral(YLEDGERD), arguments);
        return _process.waitForStarted(10000);
    }

    /// Waits for the line that names the port; false when the daemon ended first.
    bool waitListening(int timeoutMs = 15000)
    {
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < timeoutMs) {
            _output += _process.readAllStandardOutput();
            if (_output.contains("listening on port"))
                return true;
            if (_process.state() == QProcess::NotRunning)
                return false;
            _process.waitForReadyRead(100);
        }
        return false;
    }

    qint64 pid() const { return _process.processId(); }
    void sendSignal(int signal) { ::kill(pid_t(_process.processId()), signal); }

    /// The exit code, or -1 when it didn't end in time or died of a signal.
    int wait(int timeoutMs = 30000)
    {
        if (!_process.waitForFinished(timeoutMs))
            return -1;
        return _process.exitStatus() == QProcess::NormalExit ? _process.exitCode() : -1;
    }

    QByteArray output()
    {
        _output += _process.readAllStandardOutput();
        return _output;
    }
    QByteArray errors() { return _process.readAllStandardError(); }

private:
    QProcess _process;
    QByteArray _output;
};

struct ToolRun
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

/// One run of yledger.
inline ToolRun runTool(const QStringList& arguments, int timeoutMs = 60000)
{
    QProcess process;
    process.start(QStringLiteral(YLEDGER), arguments);
    ToolRun run;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return run;
    }
    run.out = process.readAllStandardOutput();
    run.err = process.readAllStandardError();
    run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    return run;
}

} // namespace ledgertest

#endif // YLEDGER_TEST_SUPPORT_H
