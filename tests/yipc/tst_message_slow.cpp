#include "message.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

namespace {

// Both ends of a loopback connection: the client and the socket the listener accepted.
struct Loopback
{
    QTcpServer listener;
    QTcpSocket client;
    std::unique_ptr<QTcpSocket> accepted;
};

void connectLoopback(Loopback* link)
{
    ASSERT_TRUE(link->listener.listen(QHostAddress::LocalHost, 0));
    link->client.connectToHost(QHostAddress::LocalHost, link->listener.serverPort());
    ASSERT_TRUE(link->client.waitForConnected(5000));
    ASSERT_TRUE(link->listener.waitForNewConnection(5000));
    link->accepted.reset(link->listener.nextPendingConnection());
}

} // namespace

TEST(YMessageSlow, SilentPeerTimesOutAfterThirtySeconds)
{
    Loopback link;
    ASSERT_NO_FATAL_FAILURE(connectLoopback(&link));
    QTcpSocket* accepted = link.accepted.get();

    QDataStream stream(accepted);
    YMessage* message = nullptr;
    QElapsedTimer timer;
    timer.start();
    try {
        stream >> message;
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_EQ(QStringLiteral("Error while waiting for read: ") + accepted->errorString(),
            QString::fromLocal8Bit(e.what()));
        EXPECT_EQ(QAbstractSocket::SocketTimeoutError, accepted->error());
    }
    EXPECT_GE(timer.elapsed(), 29900);
    EXPECT_LT(timer.elapsed(), 40000);
    EXPECT_EQ(nullptr, message);
}

TEST(YMessageSlow, PeerThatStopsAfterTheLengthWordTimesOut)
{
    Loopback link;
    ASSERT_NO_FATAL_FAILURE(connectLoopback(&link));
    QTcpSocket* accepted = link.accepted.get();
    link.client.write(QByteArray::fromHex("0000003500000035000000"));
    ASSERT_TRUE(link.client.waitForBytesWritten(5000));

    QDataStream stream(accepted);
    YMessage* message = nullptr;
    QElapsedTimer timer;
    timer.start();
    EXPECT_THROW(stream >> message, YException);
    EXPECT_GE(timer.elapsed(), 29900);
    // Only the length word was taken.
    EXPECT_EQ(7, accepted->bytesAvailable());
}
