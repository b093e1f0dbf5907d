// One of the clients of the end-to-end test: sends `count` messages with sequence numbers 1 to
// count, each until it is acknowledged, and writes every acknowledged number to the ack file the
// moment the acknowledgement arrives. A message that gets no acknowledgement (the daemon died or
// isn't up yet) is sent again.
//   ledger_load_client PORT CLIENT COUNT ACKFILE [PADDING]
// The payload is "payload <seq> of <client>", then a blank and PADDING times "x".
// Prints "acked N retries R" and exits 0 when every message was acknowledged.
#include "../../examples/ledger/ledger_common.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QLoggingCategory>
#include <QThread>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::ERROR);
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::ERROR);
    if (argc != 5 && argc != 6) {
        std::fprintf(stderr, "usage: ledger_load_client PORT CLIENT COUNT ACKFILE [PADDING]\n");
        return 2;
    }
    const unsigned short port = static_cast<unsigned short>(std::atoi(argv[1]));
    const QString client = QString::fromLocal8Bit(argv[2]);
    const int count = std::atoi(argv[3]);
    const QString padding(argc == 6 ? std::atoi(argv[5]) : 0, QLatin1Char('x'));
    QFile acks(QString::fromLocal8Bit(argv[4]));
    if (!acks.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        std::fprintf(stderr, "can't write %s\n", argv[4]);
        return 2;
    }
    int acked = 0;
    int retries = 0;
    for (int seq = 1; seq <= count; ++seq) {
        QElapsedTimer failingFor;
        failingFor.start();
        for (;;) {
            try {
                const std::unique_ptr<YMessage> answer
                    = ledgerRequest("127.0.0.1", port, QStringLiteral(LEDGER_STORE), seq,
                        client + QLatin1Char('\t')
                            + QStringLiteral("payload %1 of %2 ").arg(seq).arg(client) + padding);
                if (answer->getStringType() == QLatin1String(LEDGER_ACK)
                    && answer->getIntData() == seq) {
                    acks.write(
                        QByteArray::number(seq) + ' ' + answer->getStringData().toLatin1() + '\n');
                    acks.flush();
                    ++acked;
                    break;
                }
            } catch (const YException&) {
            }
            ++retries;
            if (failingFor.elapsed() > 60000) {
                std::printf("acked %d retries %d gave up at %d\n", acked, retries, seq);
                return 1;
            }
            QThread::msleep(20);
        }
    }
    std::printf("acked %d retries %d\n", acked, retries);
    return acked == count ? 0 : 1;
}
