#include "server_fixture.h"

#include "network_peer.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QDataStream>
#include <QLoggingCategory>
#include <QTcpServer>

#include <memory>
#include <string>

namespace {

// A listener on loopback and the connection it accepted from the peer under test.
class Listener
{
public:
    Listener() { _server.listen(QHostAddress::LocalHost, 0); }
    quint16 port() const { return _server.serverPort(); }
    QTcpSocket* accept()
    {
        if (!_server.waitForNewConnection(5000))
            return nullptr;
        _accepted.reset(_server.nextPendingConnection());
        return _accepted.get();
    }
    QByteArray read(int count)
    {
        QByteArray data;
        while (data.size() < count && _accepted->waitForReadyRead(5000))
            data += _accepted->readAll();
        return data;
    }

private:
    QTcpServer _server;
    std::unique_ptr<QTcpSocket> _accepted;
};

bool endsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size()
        && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

class NetworkPeer : public testing::Test
{
protected:
    void SetUp() override { QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false")); }
};

} // namespace

TEST_F(NetworkPeer, SendInt32WritesNetworkOrder)
{
    Listener listener;
    YNetworkPeer peer;
    peer.connect("127.0.0.1", listener.port());
    ASSERT_NE(nullptr, listener.accept());
    peer.sendInt32(1);
    peer.sendInt32(-2);
    EXPECT_EQ(QByteArray::fromHex("00000001fffffffe"), listener.read(8));
}

TEST_F(NetworkPeer, ReceiveInt32ReadsNetworkOrder)
{
    Listener listener;
    YNetworkPeer peer;
    peer.connect("127.0.0.1", listener.port());
    QTcpSocket* accepted = listener.accept();
    ASSERT_NE(nullptr, accepted);
    accepted->write(QByteArray::fromHex("0102030480000000"));
    accepted->waitForBytesWritten(5000);
    EXPECT_EQ(0x01020304, peer.receiveInt32());
    EXPECT_EQ(int(0x80000000u), peer.receiveInt32());
}

TEST_F(NetworkPeer, BuffersGoWholeBothWays)
{
    Listener listener;
    YNetworkPeer peer;
    peer.connect("127.0.0.1", listener.port());
    QTcpSocket* accepted = listener.accept();
    ASSERT_NE(nullptr, accepted);
    QByteArray big(300000, '\0');
    for (int i = 0; i < big.size(); ++i)
        big[i] = char(i * 7);
    peer.sendBuffer(big.constData(), quint64(big.size()));
    EXPECT_EQ(big, listener.read(big.size()));
    accepted->write(big);
    while (accepted->bytesToWrite() > 0 && accepted->waitForBytesWritten(5000)) { }
    QByteArray back(big.size(), '\0');
    peer.receiveBuffer(back.data(), quint64(back.size()));
    EXPECT_EQ(big, back);
}

TEST_F(NetworkPeer, SecondConnectThrowsAndKeepsTheConnection)
{
    Listener listener;
    YNetworkPeer peer;
    peer.connect("127.0.0.1", listener.port());
    ASSERT_NE(nullptr, listener.accept());
    try {
        peer.connect("127.0.0.1", listener.port());
        FAIL() << "no exception";
    } catch (const YException& e) {
        const std::string text = e.what();
        EXPECT_EQ(0u,
            text.find("Connection error to 127.0.0.1:" + std::to_string(listener.port()) + " ("))
            << text;
        EXPECT_TRUE(endsWith(text, " The socket is already connected. Please disconnect first.)"))
            << text;
    }
    EXPECT_EQ(QAbstractSocket::ConnectedState, peer.state());
    peer.sendInt32(9);
    EXPECT_EQ(QByteArray::fromHex("00000009"), listener.read(4));
}

TEST_F(NetworkPeer, UrlOfAnotherSchemeThrows)
{
    YNetworkPeer peer;
    try {
        peer.connect(QUrl(QStringLiteral("http://127.0.0.1:80/")));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(endsWith(e.what(), " Unsupported protocol: http")) << e.what();
        EXPECT_NE(nullptr, e.getFile());
    }
}

TEST_F(NetworkPeer, TcpUrlConnects)
{
    Listener listener;
    YNetworkPeer peer;
    peer.connect(QUrl(QStringLiteral("tcp://127.0.0.1:%1").arg(listener.port())));
    ASSERT_NE(nullptr, listener.accept());
    EXPECT_EQ(QAbstractSocket::ConnectedState, peer.state());
}

TEST_F(NetworkPeer, RefusedConnectionSaysSo)
{
    quint16 port = 0;
    {
        Listener closed;
        port = closed.port();
    }
    YNetworkPeer peer;
    try {
        peer.connect("127.0.0.1", port);
        FAIL() << "no exception";
    } catch (const YException& e) {
        const std::string text = e.what();
        EXPECT_EQ(0u, text.find("Connection error to 127.0.0.1:" + std::to_string(port) + " ("))
            << text;
        EXPECT_NE(std::string::npos, text.find(" connect() failed: Connection refused)")) << text;
    }
    EXPECT_EQ(QAbstractSocket::UnconnectedState, peer.state());
}

TEST_F(NetworkPeer, UnknownHostSaysSo)
{
    YNetworkPeer peer;
    try {
        peer.connect("no-such-host.invalid", 1);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_NE(std::string::npos, std::string(e.what()).find("Can't resolve host")) << e.what();
    }
}

TEST_F(NetworkPeer, ClosedPeerEndsAReceiveAndDisconnects)
{
    Listener listener;
    YNetworkPeer peer;
    peer.connect("127.0.0.1", listener.port());
    QTcpSocket* accepted = listener.accept();
    ASSERT_NE(nullptr, accepted);
    accepted->write("ab");
    accepted->waitForBytesWritten(5000);
    accepted->disconnectFromHost();
    try {
        peer.receiveInt32();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(endsWith(e.what(),
            " Network error while waiting for read: The remote host closed the connection"))
            << e.what();
    }
    EXPECT_NE(QAbstractSocket::ConnectedState, peer.state());
}

TEST_F(NetworkPeer, DisconnectAndConnectAgain)
{
    Listener listener;
    YNetworkPeer peer;
    peer.connect("127.0.0.1", listener.port());
    ASSERT_NE(nullptr, listener.accept());
    peer.disconnect();
    EXPECT_EQ(QAbstractSocket::UnconnectedState, peer.state());
    peer.connect("127.0.0.1", listener.port());
    ASSERT_NE(nullptr, listener.accept());
    peer.sendInt32(3);
    EXPECT_EQ(QByteArray::fromHex("00000003"), listener.read(4));
}

TEST_F(NetworkPeer, PythonPeerReadsWhatThePeerSendsAndAnswers)
{
    QProcess python;
    python.start(QStringLiteral("python3"), QStringList() << peerScript() << "server");
    while (!python.canReadLine())
        ASSERT_TRUE(python.waitForReadyRead(30000));
    const unsigned short port = static_cast<unsigned short>(python.readLine().trimmed().toUInt());
    ASSERT_NE(0, port);

    YNetworkPeer peer;
    peer.connect("127.0.0.1", port);
    QDataStream stream(&peer);
    stream.setVersion(QDataStream::Qt_4_8);
    YMessage message;
    message.setObjectName("me");
    message.setStringType("query");
    message.setIntData(41);
    message.setStringData(QString::fromUtf8("añb"));
    stream << &message;
    while (peer.bytesToWrite() > 0 && peer.waitForBytesWritten(30000)) { }
    YMessage* answer = nullptr;
    stream >> answer;
    std::unique_ptr<YMessage> owned(answer);
    ASSERT_TRUE(python.waitForFinished(30000));
    EXPECT_EQ(QString::fromUtf8("received me|query:41:añb\n"),
        QString::fromUtf8(python.readAllStandardOutput()));
    EXPECT_EQ(QString::fromUtf8("python:42:bña"), owned->toShortString());
    EXPECT_TRUE(owned->objectName().isNull());
}
