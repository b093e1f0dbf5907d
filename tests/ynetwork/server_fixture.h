#ifndef YOVOLIB_TESTS_SERVER_FIXTURE_H
#define YOVOLIB_TESTS_SERVER_FIXTURE_H

#include "message.h"
#include "message_handler.h"
#include "message_simple_server.h"
#include "test_support.h"
#include "yexception.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QProcess>
#include <QTcpSocket>

#include <atomic>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

// Answers "re:<type>", the integer plus 1000 and the same text, and remembers every integer it
// was given. A message typed "throw" makes it throw instead.
class EchoHandler : public YMessageHandler
{
public:
    YMessage* handleMessage(YMessage* message) override
    {
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _served.push_back(message->getIntData());
        }
        if (message->getStringType() == QLatin1String("throw"))
            throw YException("the handler refused");
        if (message->getStringType() == QLatin1String("silent"))
            return nullptr;
        YMessage* response = new YMessage;
        response->setStringType(QStringLiteral("re:") + message->getStringType());
        response->setIntData(message->getIntData() + 1000);
        response->setStringData(message->getStringData());
        return response;
    }
    std::vector<int> served()
    {
        std::lock_guard<std::mutex> lock(_mutex);
        return _served;
    }

private:
    std::mutex _mutex;
    std::vector<int> _served;
};

// A YMessageSimpleServer on a port of its own, looping on a thread of its own, as a daemon runs
// it. Stopping takes one more connection, as the loop's wait has no time-out.
class ServerThread
{
public:
    explicit ServerThread(YMessageHandler* handler)
    {
        std::promise<quint16> port;
        std::future<quint16> ready = port.get_future();
        _thread = std::thread([this, handler, &port] {
            YMessageSimpleServer server(0, QStringList());
            server.registerMessageHandler(QStringLiteral("YMessage"), handler);
            _server.store(&server);
            port.set_value(server.serverPort());
            server.start();
            server.deregisterMessageHandler(QStringLiteral("YMessage"));
            _server.store(nullptr);
        });
        _port = ready.get();
    }
    ~ServerThread() { stop(); }
    ServerThread(const ServerThread&) = delete;
    ServerThread& operator=(const ServerThread&) = delete;

    quint16 port() const { return _port; }

    void stop()
    {
        if (!_thread.joinable())
            return;
        _server.load()->stop();
        QTcpSocket wake;
        wake.connectToHost(QHostAddress::LocalHost, _port);
        wake.waitForConnected(5000);
        wake.abort();
        _thread.join();
    }

private:
    std::thread _thread;
    std::atomic<YMessageSimpleServer*> _server {nullptr};
    quint16 _port = 0;
};

inline QString peerScript()
{
    return QStringLiteral(YOVO_TEST_SOURCE_DIR "/message_peer.py");
}

// Runs the Python peer to its end and gives its standard output.
inline QByteArray runPeer(const QStringList& arguments, int timeoutMs = 60000)
{
    QProcess process;
    process.start(QStringLiteral("python3"), QStringList() << peerScript() << arguments);
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return QByteArray("<timed out>");
    }
    return process.readAllStandardOutput();
}

inline int openDescriptors()
{
    return int(QDir(QStringLiteral("/proc/self/fd"))
                   .entryList(QDir::NoDotAndDotDot | QDir::System | QDir::Files | QDir::Dirs)
                   .size());
}

inline long residentKiB()
{
    QFile status(QStringLiteral("/proc/self/status"));
    status.open(QIODevice::ReadOnly);
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toLong();
    return -1;
}

#endif // YOVOLIB_TESTS_SERVER_FIXTURE_H
