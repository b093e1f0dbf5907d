// One request and its response, as a daemon's client sends them: connect a YNetworkPeer, write
// the message on a QDataStream over it, read the answer from the same stream.
//   message_client PORT TYPE [NUMBER] [TEXT]
#include <yovolib/yovolib.h>

#include <QCoreApplication>
#include <QDataStream>
#include <QLoggingCategory>

#include <cstdio>
#include <cstdlib>
#include <memory>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    if (argc < 3) {
        std::fprintf(stderr, "usage: message_client PORT TYPE [NUMBER] [TEXT]\n");
        return 2;
    }
    try {
        YNetworkPeer peer;
        peer.connect("127.0.0.1", static_cast<unsigned short>(std::atoi(argv[1])));
        QDataStream stream(&peer);
        stream.setVersion(QDataStream::Qt_4_8);

        YMessage request;
        request.setStringType(QString::fromLocal8Bit(argv[2]));
        request.setIntData(argc > 3 ? std::atoi(argv[3]) : 0);
        request.setStringData(argc > 4 ? QString::fromLocal8Bit(argv[4]) : QString());
        stream << &request;
        peer.flush();

        YMessage* answer = nullptr;
        stream >> answer;
        const std::unique_ptr<YMessage> response(answer);
        std::printf("%s -> %s\n", request.toShortString().toLocal8Bit().constData(),
            response->toShortString().toLocal8Bit().constData());
        peer.disconnect();
    } catch (const YException& e) {
        std::fprintf(stderr, "message_client: %s\n", e.what());
        return 1;
    }
    return 0;
}
