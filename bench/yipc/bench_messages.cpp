// The example message (stringType "a", intData 5, stringData "b", 61 bytes framed) written and
// read by the library, beside the same bytes written and read by hand with QDataStream; and
// request/response round trips through YMessageSimpleServer and YNetworkPeer on loopback, beside a
// plain C server and client that move the same 61 bytes each way.
#include "message.h"
#include "message_handler.h"
#include "message_simple_server.h"
#include "network_peer.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <QBuffer>
#include <QByteArray>
#include <QDataStream>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QTcpSocket>

#include <arpa/inet.h>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

YMessage* exampleMessage()
{
    YMessage* message = new YMessage;
    message->setStringType(QStringLiteral("a"));
    message->setIntData(5);
    message->setStringData(QStringLiteral("b"));
    return message;
}

// The frame of a message written field by field, as someone who knows the layout would.
void writeByHand(QDataStream& stream, const QString& objectName, const QString& stringType,
    int intData, const QString& stringData)
{
    QByteArray body;
    {
        QDataStream inner(&body, QIODevice::WriteOnly);
        inner.setVersion(QDataStream::Qt_4_8);
        inner << "YMessage";
        inner << quint32(10) << qint8(0) << objectName;
        inner << quint32(10) << qint8(0) << stringType;
        inner << quint32(2) << qint8(0) << qint32(intData);
        inner << quint32(10) << qint8(0) << stringData;
    }
    stream << quint32(body.size()) << body;
}

struct HandRead
{
    QString objectName;
    QString stringType;
    qint32 intData = 0;
    QString stringData;
};

void readByHand(QDataStream& stream, HandRead& out)
{
    quint32 length = 0;
    stream >> length;
    QByteArray body;
    stream >> body;
    QDataStream inner(&body, QIODevice::ReadOnly);
    inner.setVersion(QDataStream::Qt_4_8);
    char* name = nullptr;
    inner >> name;
    delete[] name;
    quint32 type;
    qint8 null;
    inner >> type >> null >> out.objectName;
    inner >> type >> null >> out.stringType;
    inner >> type >> null >> out.intData;
    inner >> type >> null >> out.stringData;
}

void BM_Write_YMessage(benchmark::State& state)
{
    const std::unique_ptr<YMessage> message(exampleMessage());
    QByteArray frame;
    for (auto _ : state) {
        frame.clear();
        QDataStream stream(&frame, QIODevice::WriteOnly);
        stream.setVersion(QDataStream::Qt_4_8);
        stream << message.get();
        benchmark::DoNotOptimize(frame.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Write_YMessage);

void BM_Write_HandWritten(benchmark::State& state)
{
    const std::unique_ptr<YMessage> message(exampleMessage());
    QByteArray frame;
    for (auto _ : state) {
        frame.clear();
        QDataStream stream(&frame, QIODevice::WriteOnly);
        stream.setVersion(QDataStream::Qt_4_8);
        writeByHand(stream, message->objectName(), message->getStringType(), message->getIntData(),
            message->getStringData());
        benchmark::DoNotOptimize(frame.data());
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Write_HandWritten);

QByteArray exampleFrame()
{
    const std::unique_ptr<YMessage> message(exampleMessage());
    QByteArray frame;
    QDataStream stream(&frame, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_4_8);
    stream << message.get();
    return frame;
}

void BM_Read_YMessage(benchmark::State& state)
{
    const QByteArray frame = exampleFrame();
    for (auto _ : state) {
        QBuffer buffer;
        buffer.setData(frame);
        buffer.open(QIODevice::ReadOnly);
        QDataStream stream(&buffer);
        stream.setVersion(QDataStream::Qt_4_8);
        YMessage* message = nullptr;
        stream >> message;
        benchmark::DoNotOptimize(message->getIntData());
        delete message;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Read_YMessage);

void BM_Read_HandWritten(benchmark::State& state)
{
    const QByteArray frame = exampleFrame();
    for (auto _ : state) {
        QBuffer buffer;
        buffer.setData(frame);
        buffer.open(QIODevice::ReadOnly);
        QDataStream stream(&buffer);
        stream.setVersion(QDataStream::Qt_4_8);
        // The same object the library hands out, so that both sides pay for one allocation.
        HandRead* read = new HandRead;
        readByHand(stream, *read);
        benchmark::DoNotOptimize(read->intData);
        delete read;
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_Read_HandWritten);

class EchoHandler : public YMessageHandler
{
public:
    YMessage* handleMessage(YMessage* message) override
    {
        YMessage* response = new YMessage;
        response->setStringType(message->getStringType());
        response->setIntData(message->getIntData() + 1);
        response->setStringData(message->getStringData());
        return response;
    }
};

void BM_RoundTrip_YovoLib(benchmark::State& state)
{
    EchoHandler handler;
    std::atomic<YMessageSimpleServer*> server {nullptr};
    std::atomic<quint16> port {0};
    std::thread thread([&] {
        YMessageSimpleServer local(0, QStringList());
        local.registerMessageHandler(QStringLiteral("YMessage"), &handler);
        server.store(&local);
        port.store(local.serverPort());
        local.start();
    });
    while (port.load() == 0)
        std::this_thread::yield();

    const std::unique_ptr<YMessage> message(exampleMessage());
    for (auto _ : state) {
        YNetworkPeer peer;
        peer.connect("127.0.0.1", port.load());
        QDataStream stream(&peer);
        stream.setVersion(QDataStream::Qt_4_8);
        stream << message.get();
        peer.flush();
        YMessage* response = nullptr;
        stream >> response;
        benchmark::DoNotOptimize(response->getIntData());
        delete response;
        peer.disconnect();
    }
    state.SetItemsProcessed(state.iterations());

    server.load()->stop();
    QTcpSocket wake;
    wake.connectToHost(QHostAddress::LocalHost, port.load());
    wake.waitForConnected(5000);
    wake.abort();
    thread.join();
}
BENCHMARK(BM_RoundTrip_YovoLib)->UseRealTime();

bool readAll(int fd, char* data, size_t size)
{
    while (size > 0) {
        const ssize_t got = ::read(fd, data, size);
        if (got <= 0)
            return false;
        data += got;
        size -= size_t(got);
    }
    return true;
}

void BM_RoundTrip_PlainC(benchmark::State& state)
{
    const QByteArray frame = exampleFrame();
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::listen(listener, 64);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    std::atomic<bool> running {true};
    std::thread server([&] {
        char request[61];
        while (running.load()) {
            const int client = ::accept(listener, nullptr, nullptr);
            if (client < 0)
                break;
            if (readAll(client, request, sizeof(request)))
                (void)!::write(client, frame.constData(), size_t(frame.size()));
            ::close(client);
        }
    });

    char reply[61];
    for (auto _ : state) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        (void)!::write(fd, frame.constData(), size_t(frame.size()));
        readAll(fd, reply, sizeof(reply));
        benchmark::DoNotOptimize(reply[60]);
        ::close(fd);
    }
    state.SetItemsProcessed(state.iterations());

    running.store(false);
    const int wake = ::socket(AF_INET, SOCK_STREAM, 0);
    ::connect(wake, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::close(wake);
    server.join();
    ::close(listener);
}
BENCHMARK(BM_RoundTrip_PlainC)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    // The peer reports every buffer it sends through qDebug; the figures are the point here.
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::ItemsPerSecond, yovo::bench::Reduction::Median);
    if (!yovo::bench::run(argc, argv, reporter))
        return 1;
    auto r = [&reporter](const char* name) { return reporter.figure(name); };
    auto ns = [](double perSecond) { return perSecond > 0 ? 1e9 / perSecond : 0.0; };
    if (r("BM_Write_YMessage") > 0 && r("BM_Write_HandWritten") > 0)
        std::printf("\nwrite: YMessage %.0f ns, by hand %.0f ns, ratio %.2f (aim <= 1.15)\n",
            ns(r("BM_Write_YMessage")), ns(r("BM_Write_HandWritten")),
            r("BM_Write_HandWritten") / r("BM_Write_YMessage"));
    if (r("BM_Read_YMessage") > 0 && r("BM_Read_HandWritten") > 0)
        std::printf("read: YMessage %.0f ns, by hand %.0f ns, ratio %.2f (aim <= 1.15)\n",
            ns(r("BM_Read_YMessage")), ns(r("BM_Read_HandWritten")),
            r("BM_Read_HandWritten") / r("BM_Read_YMessage"));
    if (r("BM_RoundTrip_YovoLib") > 0 && r("BM_RoundTrip_PlainC") > 0)
        std::printf("round trips per second: YovoLib %.0f, plain C %.0f, ratio %.2f (aim >= 0.8)\n",
            r("BM_RoundTrip_YovoLib"), r("BM_RoundTrip_PlainC"),
            r("BM_RoundTrip_YovoLib") / r("BM_RoundTrip_PlainC"));
    return 0;
}
