// The client's side of the server tests, as a process of its own: connects with YNetworkPeer and
// exchanges messages as a daemon would.
//   many PORT COUNT          COUNT connections in a row, one message each (integer = index);
//                            prints "served N" with N the number of correct answers
//   one PORT TYPE INT DATA   one message; prints the answer's short form
#include "message.h"
#include "network_peer.h"
#include "yexception.h"

#include <QCoreApplication>
#include <QDataStream>
#include <QLoggingCategory>

#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

std::unique_ptr<YMessage> exchange(
    unsigned short port, const QString& type, int number, const QString& data)
{
    YNetworkPeer peer;
    peer.connect("127.0.0.1", port);
    QDataStream stream(&peer);
    stream.setVersion(QDataStream::Qt_4_8);
    YMessage message;
    message.setStringType(type);
    message.setIntData(number);
    message.setStringData(data);
    stream << &message;
    while (peer.bytesToWrite() > 0 && peer.waitForBytesWritten(30000)) { }
    YMessage* response = nullptr;
    stream >> response;
    return std::unique_ptr<YMessage>(response);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    // The peer reports every write through qDebug; the tests read only the summary.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    if (argc < 3)
        return 2;
    const unsigned short port = static_cast<unsigned short>(std::atoi(argv[2]));
    try {
        if (qstrcmp(argv[1], "many") == 0 && argc == 4) {
            const int count = std::atoi(argv[3]);
            int served = 0;
            for (int i = 0; i < count; ++i) {
                const std::unique_ptr<YMessage> answer
                    = exchange(port, QStringLiteral("many"), i, QStringLiteral("x"));
                if (answer->getIntData() == i + 1000
                    && answer->getStringType() == QLatin1String("re:many"))
                    ++served;
            }
            std::printf("served %d\n", served);
            return 0;
        }
        if (qstrcmp(argv[1], "one") == 0 && argc == 6) {
            const std::unique_ptr<YMessage> answer = exchange(
                port, QString::fromUtf8(argv[3]), std::atoi(argv[4]), QString::fromUtf8(argv[5]));
            std::printf("%s\n", answer->toShortString().toUtf8().constData());
            return 0;
        }
    } catch (const YException& e) {
        std::printf("exception: %s\n", e.what());
        return 1;
    }
    return 2;
}
