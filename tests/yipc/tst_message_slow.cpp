#include "message.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>

#include <memory>

TEST(YMessageSlow, SilentPeerTimesOutAfterThirtySeconds)
{
    QTcpServer listener;
    ASSERT_TRUE(listener.listen(QHostAddress::LocalHost, 0));
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHost, listener.serverPort());
    ASSERT_TRUE(client.waitForConnected(5000));
    ASSERT_TRUE(listener.waitForNewConnection(5000));
    std::unique_ptr<QTcpSocket> accepted(listener.nextPendingConnection());

    QDataStream stream(accepted.get());
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
    QTcpServer listener;
    ASSERT_TRUE(listener.listen(QHostAddress::LocalHost, 0));
    QTcpSocket client;
    client.connectToHost(QHostAddress::LocalHost, listener.serverPort());
    ASSERT_TRUE(client.waitForConnected(5000));
    ASSERT_TRUE(listener.waitForNewConnection(5000));
    std::unique_ptr<QTcpSocket> accepted(listener.nextPendingConnection());
    client.write(QByteArray::fromHex("0000003500000035000000"));
    ASSERT_TRUE(client.waitForBytesWritten(5000));

    QDataStream stream(accepted.get());
    YMessage* message = nullptr;
    QElapsedTimer timer;
    timer.start();
    EXPECT_THROW(stream >> message, YException);
    EXPECT_GE(timer.elapsed(), 29900);
    // Only the length word was taken.
    EXPECT_EQ(7, accepted->bytesAvailable());
}
