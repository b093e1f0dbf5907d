#include "network_peer.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QHostAddress>
#include <QTcpServer>

#include <memory>
#include <string>

TEST(NetworkPeerSlow, ReadingWithNothingSentTimesOutAndDisconnects)
{
    QTcpServer listener;
    ASSERT_TRUE(listener.listen(QHostAddress::LocalHost, 0));
    YNetworkPeer peer;
    peer.connect("127.0.0.1", listener.serverPort());
    ASSERT_TRUE(listener.waitForNewConnection(5000));
    std::unique_ptr<QTcpSocket> accepted(listener.nextPendingConnection());
    QElapsedTimer timer;
    timer.start();
    try {
        peer.receiveInt32();
        FAIL() << "no exception";
    } catch (const YException& e) {
        const std::string text = e.what();
        const std::string tail = " Network timeout error (30000)";
        EXPECT_EQ(tail, text.substr(text.size() - tail.size())) << text;
    }
    EXPECT_GE(timer.elapsed(), 29900);
    EXPECT_NE(QAbstractSocket::ConnectedState, peer.state());
}
