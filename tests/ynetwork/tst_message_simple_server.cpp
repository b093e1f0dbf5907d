#include "server_fixture.h"

#include "network_peer.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QDataStream>
#include <QLoggingCategory>

#include <algorithm>
#include <memory>
#include <set>

namespace {

QByteArray runClient(const QStringList& arguments, int timeoutMs = 120000)
{
    QByteArray output;
    const int code = yovotest::runHelper("message_test_client", arguments, timeoutMs, &output);
    if (code != 0)
        return QByteArray("exit ") + QByteArray::number(code) + ": " + output;
    return output;
}

class MessageServer : public testing::Test
{
protected:
    void SetUp() override { QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false")); }
};

} // namespace

TEST_F(MessageServer, PythonPeerIsAnswered)
{
    EchoHandler handler;
    ServerThread server(&handler);
    const QByteArray output
        = runPeer(QStringList() << "client" << QString::number(server.port()) << "status"
                                << "41"
                                << "ok");
    EXPECT_EQ("re:status:1041:ok\neof\n", output);
}

TEST_F(MessageServer, NonLatinTextFromThePythonPeerComesBack)
{
    EchoHandler handler;
    ServerThread server(&handler);
    const QString text = QString::fromUtf8("Grüße, 世界");
    const QByteArray output
        = runPeer(QStringList() << "client" << QString::number(server.port()) << "t"
                                << "-5" << text);
    EXPECT_EQ(QString::fromUtf8("re:t:995:") + text + QStringLiteral("\neof\n"),
        QString::fromUtf8(output));
}

TEST_F(MessageServer, SecondMessageOnOneConnectionIsNotRead)
{
    EchoHandler handler;
    ServerThread server(&handler);
    const QByteArray output
        = runPeer(QStringList() << "client" << QString::number(server.port()) << "twice"
                                << "7"
                                << "x"
                                << "--twice");
    EXPECT_EQ("re:twice:1007:x\neof\n", output);
    server.stop();
    EXPECT_EQ(std::vector<int> {7}, handler.served());
}

TEST_F(MessageServer, LibraryClientIsAnswered)
{
    EchoHandler handler;
    ServerThread server(&handler);
    EXPECT_EQ("re:hello:1003:world\n",
        runClient(QStringList() << "one" << QString::number(server.port()) << "hello"
                                << "3"
                                << "world"));
}

TEST_F(MessageServer, MessageWithoutResponseClosesTheConnection)
{
    EchoHandler handler;
    ServerThread server(&handler);
    EXPECT_EQ("eof\n",
        runPeer(QStringList() << "client" << QString::number(server.port()) << "silent"
                              << "1"
                              << "x"));
    EXPECT_EQ("re:after:1002:x\neof\n",
        runPeer(QStringList() << "client" << QString::number(server.port()) << "after"
                              << "2"
                              << "x"));
}

TEST_F(MessageServer, ExceptionCostsOnlyItsConnection)
{
    EchoHandler handler;
    ServerThread server(&handler);
    testing::internal::CaptureStderr();
    EXPECT_EQ("eof\n",
        runPeer(QStringList() << "client" << QString::number(server.port()) << "throw"
                              << "1"
                              << "x"));
    EXPECT_EQ("re:next:1002:y\neof\n",
        runPeer(QStringList() << "client" << QString::number(server.port()) << "next"
                              << "2"
                              << "y"));
    server.stop();
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_NE(
        std::string::npos, errors.find("Exception: the handler refused. Client disconnected.\n"))
        << errors;
}

TEST_F(MessageServer, FourGibibyteLengthIsRefusedWithoutAllocating)
{
    EchoHandler handler;
    ServerThread server(&handler);
    // Warm up: the first connection makes what the server keeps for good.
    runPeer(QStringList() << "client" << QString::number(server.port()) << "warm"
                          << "0"
                          << "x");
    const long before = residentKiB();
    testing::internal::CaptureStderr();
    const QByteArray seconds = runPeer(QStringList() << "huge" << QString::number(server.port()));
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_LT(seconds.trimmed().toDouble(), 5.0) << seconds.constData();
    EXPECT_LT(residentKiB() - before, 16 * 1024);
    EXPECT_NE(std::string::npos, errors.find("Message frame too long: 4294967280 bytes")) << errors;
    EXPECT_EQ("re:still:1001:here\neof\n",
        runPeer(QStringList() << "client" << QString::number(server.port()) << "still"
                              << "1"
                              << "here"));
}

TEST_F(MessageServer, ThousandClientsInARowAreEachServedOnceAndNoDescriptorStays)
{
    EchoHandler handler;
    const int descriptorsBefore = openDescriptors();
    {
        ServerThread server(&handler);
        const int listening = openDescriptors();
        EXPECT_EQ("served 1000\n",
            runClient(QStringList() << "many" << QString::number(server.port()) << "1000"));
        EXPECT_EQ(listening, openDescriptors());
        server.stop();
    }
    std::vector<int> served = handler.served();
    ASSERT_EQ(1000u, served.size());
    std::sort(served.begin(), served.end());
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(i, served[size_t(i)]);
    EXPECT_EQ(descriptorsBefore, openDescriptors());
}

TEST_F(MessageServer, ListeningOnATakenPortThrowsTheListenersWords)
{
    YMessageSimpleServer first(0, QStringList());
    try {
        YMessageSimpleServer second(first.serverPort(), QStringList());
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ("The bound address is already in use", e.what());
    }
}
