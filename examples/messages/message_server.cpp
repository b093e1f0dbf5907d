// A daemon's message service in a few lines: handlers registered by class name, then the blocking
// loop of YMessageSimpleServer. Each request gets one response on its own connection.
//   message_server [PORT]     0 or nothing picks a free port; the first line printed names it
#include <yovolib/yovolib.h>

#include <QCoreApplication>
#include <QDateTime>

#include <cstdio>
#include <cstdlib>

namespace {

// Answers "time" with the server's clock, "sum" with the running total of the numbers it was
// sent, and "quit" with "bye", after which the server ends.
class DemoHandler : public YMessageHandler
{
public:
    explicit DemoHandler(YMessageSimpleServer& server)
        : _server(server)
    {
    }

    YMessage* handleMessage(YMessage* message) override
    {
        YLOG_NOTICE(YDebug::STDOUT) << "request" << message->toShortString() << yflush;
        YMessage* response = new YMessage;
        response->setStringType(QStringLiteral("re:") + message->getStringType());
        response->setIntData(0);
        if (message->getStringType() == QLatin1String("sum")) {
            _total += message->getIntData();
            response->setIntData(_total);
            response->setStringData(QStringLiteral("running total"));
        } else if (message->getStringType() == QLatin1String("time")) {
            response->setStringData(QDateTime::currentDateTimeUtc().toString(Qt::ISODate));
        } else if (message->getStringType() == QLatin1String("quit")) {
            response->setStringData(QStringLiteral("bye"));
            _server.stop();
        } else {
            response->setStringData(QStringLiteral("unknown request: ") + message->getStringData());
        }
        return response;
    }

private:
    YMessageSimpleServer& _server;
    int _total = 0;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::NOTICE);
    const unsigned int port = argc > 1 ? unsigned(std::atoi(argv[1])) : 0u;
    try {
        // The masks build the verifier a daemon can ask; the loop itself serves every address.
        YMessageSimpleServer server(port, QStringList() << QStringLiteral("127.0.0.1"));
        DemoHandler handler(server);
        server.registerMessageHandler(QStringLiteral("YMessage"), &handler);
        std::printf("%u\n", unsigned(server.serverPort()));
        std::fflush(stdout);
        server.start();
        server.deregisterMessageHandler(QStringLiteral("YMessage"));
    } catch (const YException& e) {
        std::fprintf(stderr, "message_server: %s\n", e.what());
        return 1;
    }
    std::printf("message_server: done\n");
    return 0;
}
