#include "shm_test_util.h"
#include "test_support.h"

#include "ynamed_pipe.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <atomic>
#include <cerrno>
#include <memory>
#include <thread>

namespace {

QByteArray pipeName()
{
    return yovotest::uniqueName("pipe").toLatin1();
}

QString peerPath()
{
    return yovotest::helperPath("yshm_peer");
}

// Waits for the next client the way a daemon's loop does.
YNamedPipe* acceptOne(YNamedPipeConnectionsServer& server, void** pending, int attempts = 300)
{
    for (int i = 0; i < attempts; ++i) {
        if (YNamedPipe* pipe = server.waitForNewConnection(100, pending)) {
            *pending = YNamedPipe::invalidHandle();
            return pipe;
        }
        if (server.getLastErrorCode() != YNamedPipe::TIMED_OUT)
            return nullptr;
    }
    return nullptr;
}

// A client and the server end of its connection, both in this process.
struct Connected
{
    explicit Connected(const QByteArray& name)
        : server(name.constData())
        , client(name.constData())
    {
        void* pending = YNamedPipe::invalidHandle();
        EXPECT_EQ(nullptr, server.waitForNewConnection(0, &pending));
        EXPECT_TRUE(client.connect(0));
        serverEnd.reset(server.waitForNewConnection(5000, &pending));
    }
    YNamedPipeConnectionsServer server;
    YNamedPipeClient client;
    std::unique_ptr<YNamedPipe> serverEnd;
};

} // namespace

TEST(YNamedPipe, PathsFollowThePipeFormat)
{
    YNamedPipeClient client("abc", QByteArray());
    EXPECT_STREQ("\\\\.\\pipe\\abc", client.getPipePath());
    YNamedPipeConnectionsServer server("abc");
    EXPECT_STREQ("\\\\.\\pipe\\abc", server.getPipePath());
    YNamedPipeServer end("\\\\.\\pipe\\whole");
    EXPECT_STREQ("\\\\.\\pipe\\whole", end.getPipePath());
    EXPECT_EQ(0, client.getLastErrorCode());
    EXPECT_FALSE(client.isConnected());
}

TEST(YNamedPipe, ReadMsgOfTheLargestSizeFailsWithoutReading)
{
    YNamedPipeClient client(pipeName().constData(), QByteArray());
    client.setLastError(1234);
    QByteArray out = "untouched";
    EXPECT_FALSE(client.readMsg(0xFFFFFFFFu, out, 5));
    EXPECT_EQ(QByteArray("untouched"), out);
    EXPECT_EQ(1234, client.getLastErrorCode());
}

TEST(YNamedPipe, ConnectWithoutServerFailsAtOnce)
{
    YNamedPipeClient client(pipeName().constData(), QByteArray());
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(client.connect(0));
    EXPECT_LT(timer.elapsed(), 10000);
    EXPECT_EQ(ENOENT, client.getLastErrorCode());
    EXPECT_EQ(qt_error_string(ENOENT), client.getLastErrorString());
    EXPECT_FALSE(client.isConnected());
    EXPECT_FALSE(client.isLostConnection());
}

TEST(YNamedPipe, WaitWithoutPendingInstanceTimesOutAndKeepsNothing)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    EXPECT_EQ(nullptr, server.waitForNewConnection(100, nullptr));
    EXPECT_EQ(-2, server.getLastErrorCode());
    EXPECT_EQ(QStringLiteral("Operation timed out"), server.getLastErrorString());
    // No instance stays open: nobody is there to connect to.
    YNamedPipeClient client(name.constData(), QByteArray());
    EXPECT_FALSE(client.connect(0));
    EXPECT_EQ(ENOENT, client.getLastErrorCode());
}

TEST(YNamedPipe, RoundTripWithAClientProcess)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    void* pending = YNamedPipe::invalidHandle();
    // The instance waits before the client exists.
    EXPECT_EQ(nullptr, server.waitForNewConnection(10, &pending));
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"pipe-client", QString::fromLatin1(name), "echo"}));
    std::unique_ptr<YNamedPipe> pipe(acceptOne(server, &pending));
    ASSERT_TRUE(pipe);
    EXPECT_EQ("connected", peer.line());
    QByteArray message;
    ASSERT_TRUE(pipe->readMsg(5, message, 20));
    EXPECT_EQ(QByteArray("hello"), message);
    unsigned int written = 0;
    ASSERT_TRUE(pipe->write("HELLO", 5, &written, 5000));
    EXPECT_EQ(5u, written);
    EXPECT_EQ(0, pipe->getLastErrorCode());
    EXPECT_EQ("got HELLO", peer.line());
    pipe->disconnect();
    EXPECT_EQ(0, peer.finish());
}

TEST(YNamedPipe, RoundTripWithAServerProcess)
{
    const QByteArray name = pipeName();
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"pipe-server", QString::fromLatin1(name), "echo"}));
    ASSERT_EQ("listening", peer.line());
    YNamedPipeClient client(name.constData(), QByteArray());
    bool connected = false;
    for (int i = 0; i < 100 && !connected; ++i) {
        connected = client.connect(0);
        if (!connected)
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_TRUE(connected) << client.getLastErrorCode();
    EXPECT_TRUE(client.isConnected());
    unsigned int written = 0;
    ASSERT_TRUE(client.write("world", 5, &written, 5000));
    QByteArray answer;
    ASSERT_TRUE(client.readMsg(5, answer, 20));
    EXPECT_EQ(QByteArray("WORLD"), answer);
    EXPECT_EQ("accepted", peer.line());
    EXPECT_EQ("done world", peer.line());
    EXPECT_EQ(0, peer.finish());
}

TEST(YNamedPipe, ReadMsgTimesOutWithOutUntouched)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    void* pending = YNamedPipe::invalidHandle();
    EXPECT_EQ(nullptr, server.waitForNewConnection(10, &pending));
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"pipe-client", QString::fromLatin1(name), "partial"}));
    std::unique_ptr<YNamedPipe> pipe(acceptOne(server, &pending));
    ASSERT_TRUE(pipe);
    ASSERT_EQ("connected", peer.line());
    ASSERT_EQ("sent", peer.line());
    QByteArray out = "untouched";
    QElapsedTimer timer;
    timer.start();
    EXPECT_FALSE(pipe->readMsg(10, out, 5));
    const qint64 elapsed = timer.elapsed();
    EXPECT_GE(elapsed, 4900); // it never gives up before the deadline
    EXPECT_LT(elapsed, 60000);
    EXPECT_EQ(QByteArray("untouched"), out);
    EXPECT_EQ(-2, pipe->getLastErrorCode());
    EXPECT_EQ(QStringLiteral("Operation timed out"), pipe->getLastErrorString());
    EXPECT_FALSE(pipe->isLostConnection());
    peer.send("quit");
    EXPECT_EQ(0, peer.finish());
}

TEST(YNamedPipe, ReadMsgReturnsAsSoonAsAllBytesAreIn)
{
    Connected pair(pipeName());
    ASSERT_TRUE(pair.serverEnd);
    std::thread writer([&] {
        unsigned int written = 0;
        pair.client.write("ab", 2, &written, 1000);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        pair.client.write("cde", 3, &written, 1000);
    });
    QByteArray out;
    QElapsedTimer timer;
    timer.start();
    EXPECT_TRUE(pair.serverEnd->readMsg(5, out, 60));
    EXPECT_LT(timer.elapsed(), 30000);
    writer.join();
    EXPECT_EQ(QByteArray("abcde"), out);
    // A message of no bytes is complete at once.
    EXPECT_TRUE(pair.serverEnd->readMsg(0, out, 0));
    EXPECT_TRUE(out.isEmpty());
}

TEST(YNamedPipe, ClientConnectingBetweenTwoWaitsIsAcceptedThroughThePendingInstance)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    void* pending = YNamedPipe::invalidHandle();
    EXPECT_EQ(nullptr, server.waitForNewConnection(100, &pending));
    EXPECT_EQ(-2, server.getLastErrorCode());
    ASSERT_NE(YNamedPipe::invalidHandle(), pending);
    // Between the two calls nobody waits on the instance, and yet the client gets in.
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"pipe-client", QString::fromLatin1(name), "echo"}));
    ASSERT_EQ("connected", peer.line());
    void* kept = pending;
    std::unique_ptr<YNamedPipe> pipe(server.waitForNewConnection(10000, &pending));
    ASSERT_TRUE(pipe);
    EXPECT_EQ(kept, pending); // left as it was: the caller resets it
    pending = YNamedPipe::invalidHandle();
    QByteArray message;
    ASSERT_TRUE(pipe->readMsg(5, message, 20));
    EXPECT_EQ(QByteArray("hello"), message);
    unsigned int written = 0;
    ASSERT_TRUE(pipe->write("olleh", 5, &written, 5000));
    EXPECT_EQ("got olleh", peer.line());
    EXPECT_EQ(0, peer.finish());
}

TEST(YNamedPipe, DeadClientGivesLostConnection)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    void* pending = YNamedPipe::invalidHandle();
    EXPECT_EQ(nullptr, server.waitForNewConnection(0, &pending));
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"pipe-client", QString::fromLatin1(name), "partial"}));
    std::unique_ptr<YNamedPipe> pipe(acceptOne(server, &pending));
    ASSERT_TRUE(pipe);
    ASSERT_EQ("connected", peer.line());
    ASSERT_EQ("sent", peer.line());
    QByteArray out;
    ASSERT_TRUE(pipe->readMsg(4, out, 10));
    EXPECT_EQ(QByteArray("abcd"), out);
    peer.killHard();
    char byte;
    unsigned int received = 0;
    EXPECT_FALSE(pipe->read(&byte, 1, &received, 5000));
    EXPECT_TRUE(pipe->isLostConnection()) << pipe->getLastErrorCode();
    EXPECT_FALSE(pipe->write("x", 1, &received, 1000));
    EXPECT_TRUE(pipe->isLostConnection()) << pipe->getLastErrorCode();
    // readMsg goes on to its deadline whatever read says, and fails.
    EXPECT_FALSE(pipe->readMsg(1, out, 1));
    EXPECT_TRUE(pipe->isLostConnection());
    EXPECT_EQ(QByteArray("abcd"), out);
}

TEST(YNamedPipe, DeadServerGivesLostConnection)
{
    const QByteArray name = pipeName();
    shmtest::Peer server;
    ASSERT_TRUE(server.start(peerPath(), {"pipe-server", QString::fromLatin1(name), "hold"}));
    ASSERT_EQ("listening", server.line());
    shmtest::Peer client;
    ASSERT_TRUE(client.start(peerPath(), {"pipe-client", QString::fromLatin1(name), "wait-lost"}));
    ASSERT_EQ("connected", client.line());
    ASSERT_EQ("accepted", server.line());
    ASSERT_EQ("sent", server.line());
    EXPECT_EQ("got ping", client.line());
    server.killHard();
    const QByteArray lost = client.line();
    EXPECT_TRUE(lost.startsWith("lost 1 ")) << lost.constData();
    EXPECT_EQ(0, client.finish());
}

TEST(YNamedPipe, ReadTimesOutWithMinusTwo)
{
    Connected pair(pipeName());
    ASSERT_TRUE(pair.serverEnd);
    char buffer[4];
    unsigned int received = 99;
    EXPECT_FALSE(pair.client.read(buffer, 4, &received, 50));
    EXPECT_EQ(-2, pair.client.getLastErrorCode());
    EXPECT_EQ(QStringLiteral("Operation timed out"), pair.client.getLastErrorString());
    EXPECT_EQ(99u, received);
    // Every read starts from a clean error.
    unsigned int written = 0;
    ASSERT_TRUE(pair.serverEnd->write("ab", 2, &written, 1000));
    EXPECT_TRUE(pair.client.read(buffer, 4, &received, 1000));
    EXPECT_EQ(2u, received);
    EXPECT_EQ(0, pair.client.getLastErrorCode());
}

TEST(YNamedPipe, WriteThatRunsOutOfTimeLeavesErrorZero)
{
    Connected pair(pipeName());
    ASSERT_TRUE(pair.serverEnd);
    // Nobody reads: the socket's buffers fill up and the write has to wait.
    const QByteArray block(1 << 20, 'x');
    unsigned int written = 12345;
    pair.client.setLastError(77);
    EXPECT_FALSE(pair.client.write(block.constData(), unsigned(block.size()), &written, 100));
    EXPECT_EQ(0, pair.client.getLastErrorCode());
    EXPECT_EQ(12345u, written);
    EXPECT_FALSE(pair.client.isLostConnection());
}

TEST(YNamedPipe, LargeWriteCompletesWhileThePeerReads)
{
    Connected pair(pipeName());
    ASSERT_TRUE(pair.serverEnd);
    const QByteArray block(4 << 20, 'y');
    QByteArray received;
    std::thread reader([&] { pair.serverEnd->readMsg(unsigned(block.size()), received, 60); });
    unsigned int written = 0;
    EXPECT_TRUE(pair.client.write(block.constData(), unsigned(block.size()), &written, 30000));
    EXPECT_EQ(unsigned(block.size()), written);
    reader.join();
    EXPECT_EQ(block, received);
}

TEST(YNamedPipe, DisconnectTwiceDoesNothingTheSecondTime)
{
    Connected pair(pipeName());
    ASSERT_TRUE(pair.serverEnd);
    pair.client.setLastError(5);
    pair.client.disconnect();
    EXPECT_FALSE(pair.client.isConnected());
    EXPECT_EQ(0, pair.client.getLastErrorCode());
    pair.client.setLastError(5);
    pair.client.disconnect();
    EXPECT_EQ(0, pair.client.getLastErrorCode());
    EXPECT_FALSE(pair.client.isConnected());
    pair.serverEnd->setLastError(5);
    pair.serverEnd->disconnect();
    EXPECT_EQ(0, pair.serverEnd->getLastErrorCode());
    pair.serverEnd->disconnect();
    // A pipe without connection reports a bad handle instead of crashing.
    char byte;
    unsigned int count = 0;
    EXPECT_FALSE(pair.client.read(&byte, 1, &count, 10));
    EXPECT_EQ(EBADF, pair.client.getLastErrorCode());
    EXPECT_FALSE(pair.serverEnd->write(&byte, 1, &count, 10));
    EXPECT_EQ(EBADF, pair.serverEnd->getLastErrorCode());
}

TEST(YNamedPipe, ClientDisconnectIsSeenByTheServer)
{
    Connected pair(pipeName());
    ASSERT_TRUE(pair.serverEnd);
    unsigned int written = 0;
    ASSERT_TRUE(pair.client.write("bye", 3, &written, 1000));
    pair.client.disconnect();
    QByteArray out;
    ASSERT_TRUE(pair.serverEnd->readMsg(3, out, 5)); // what was sent before still arrives
    EXPECT_EQ(QByteArray("bye"), out);
    char byte;
    EXPECT_FALSE(pair.serverEnd->read(&byte, 1, &written, 1000));
    EXPECT_TRUE(pair.serverEnd->isLostConnection());
}

TEST(YNamedPipe, ServerDisconnectWaitsUntilTheClientHasRead)
{
    Connected pair(pipeName());
    ASSERT_TRUE(pair.serverEnd);
    const QByteArray block(256 << 10, 'z');
    std::atomic<bool> disconnected {false};
    std::thread server([&] {
        unsigned int written = 0;
        pair.serverEnd->write(block.constData(), 64 << 10, &written, 5000);
        pair.serverEnd->disconnect();
        disconnected = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_FALSE(disconnected.load()); // the client hasn't read yet
    QByteArray out;
    EXPECT_TRUE(pair.client.readMsg(64 << 10, out, 10));
    server.join();
    EXPECT_TRUE(disconnected.load());
    char byte;
    unsigned int count = 0;
    EXPECT_FALSE(pair.client.read(&byte, 1, &count, 1000));
    EXPECT_TRUE(pair.client.isLostConnection());
}

TEST(YNamedPipe, SeveralClientsEachGetTheirOwnConnection)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    void* pending = YNamedPipe::invalidHandle();
    EXPECT_EQ(nullptr, server.waitForNewConnection(0, &pending));
    YNamedPipeClient first(name.constData(), QByteArray());
    YNamedPipeClient second(name.constData(), QByteArray());
    ASSERT_TRUE(first.connect(0));
    std::unique_ptr<YNamedPipe> firstEnd(server.waitForNewConnection(1000, &pending));
    ASSERT_TRUE(firstEnd);
    pending = YNamedPipe::invalidHandle();
    // The instance is taken; the second client waits for the next one in the queue.
    ASSERT_TRUE(second.connect(0));
    std::unique_ptr<YNamedPipe> secondEnd(server.waitForNewConnection(1000, &pending));
    ASSERT_TRUE(secondEnd);
    unsigned int written = 0;
    ASSERT_TRUE(first.write("1", 1, &written, 1000));
    ASSERT_TRUE(second.write("2", 1, &written, 1000));
    QByteArray out;
    ASSERT_TRUE(secondEnd->readMsg(1, out, 5));
    EXPECT_EQ(QByteArray("2"), out);
    ASSERT_TRUE(firstEnd->readMsg(1, out, 5));
    EXPECT_EQ(QByteArray("1"), out);
    // With every instance and connection gone, so is the name.
    firstEnd.reset();
    secondEnd.reset();
    YNamedPipeClient third(name.constData(), QByteArray());
    EXPECT_FALSE(third.connect(0));
    EXPECT_EQ(ENOENT, third.getLastErrorCode());
}

TEST(YNamedPipe, PendingInstanceCanBeGivenUp)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    void* pending = YNamedPipe::invalidHandle();
    EXPECT_EQ(nullptr, server.waitForNewConnection(0, &pending));
    YNamedPipeConnectionsServer::closePendingInstance(pending);
    YNamedPipeClient client(name.constData(), QByteArray());
    EXPECT_FALSE(client.connect(0));
    // The old value names nothing any more.
    EXPECT_EQ(nullptr, server.waitForNewConnection(0, &pending));
    EXPECT_EQ(EBADF, server.getLastErrorCode());
    YNamedPipeConnectionsServer::closePendingInstance(pending);
    YNamedPipeConnectionsServer::closePendingInstance(YNamedPipe::invalidHandle());
}

TEST(YNamedPipe, ShutdownForgetsThePath)
{
    const QByteArray name = pipeName();
    YNamedPipeConnectionsServer server(name.constData());
    EXPECT_TRUE(server.shutdown());
    EXPECT_EQ(nullptr, server.getPipePath());
    EXPECT_EQ(nullptr, server.waitForNewConnection(10, nullptr));
    EXPECT_EQ(EINVAL, server.getLastErrorCode());
    EXPECT_TRUE(server.shutdown());
}

TEST(YNamedPipe, CopiesOfTheServerOwnTheirPath)
{
    YNamedPipeConnectionsServer* original = new YNamedPipeConnectionsServer("copied");
    YNamedPipeConnectionsServer copy(*original);
    delete original;
    EXPECT_STREQ("\\\\.\\pipe\\copied", copy.getPipePath());
}

TEST(YNamedPipe, TooLongNameFailsCleanly)
{
    const QByteArray name(200, 'n');
    YNamedPipeClient client(name.constData(), QByteArray());
    EXPECT_FALSE(client.connect(0));
    EXPECT_EQ(ENAMETOOLONG, client.getLastErrorCode());
    YNamedPipeConnectionsServer server(name.constData());
    EXPECT_EQ(nullptr, server.waitForNewConnection(10, nullptr));
    EXPECT_EQ(ENAMETOOLONG, server.getLastErrorCode());
}
