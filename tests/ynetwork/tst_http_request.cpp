#include "http_request.h"
#include "http_test_servers.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QPointer>
#include <QThread>

#include <csignal>
#include <cstdio>
#include <cstdlib>

using yovotest::fixturePort;
using yovotest::fixtureUrl;

namespace {

class YHttpRequestTest : public ::testing::Test
{
protected:
    void SetUp() override { yovotest::ensureCoreApplication(); }
};

const QByteArray HELLO("Hello from the test server\n");

// The log's lines, trimmed, without the blank ones.
QList<QByteArray> linesOf(const yovotest::LogFile& log)
{
    QList<QByteArray> result = log.text().split('\n');
    for (QByteArray& line : result)
        line = line.trimmed();
    result.removeAll(QByteArray());
    return result;
}

} // namespace

TEST_F(YHttpRequestTest, PlainGetGivesTheBodyAndStatus)
{
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("plain", "/hello.txt")));
    QNetworkReply* reply = http.get(request, YDebug::STDERR);
    ASSERT_NE(reply, nullptr);
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
    EXPECT_EQ(reply->error(), QNetworkReply::NoError);
    EXPECT_EQ(reply->readAll(), HELLO);
}

TEST_F(YHttpRequestTest, RedirectionsAreFollowedAndTheRequestHoldsTheFinalUrl)
{
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("plain", "/r1")));
    QNetworkReply* reply = http.get(request, YDebug::STDERR);
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
    EXPECT_EQ(reply->readAll(), HELLO);
    EXPECT_EQ(request.url(), QUrl(fixtureUrl("plain", "/hello.txt")));
    EXPECT_EQ(reply->url(), request.url());
}

TEST_F(YHttpRequestTest, RedirectionLogLinesAreExact)
{
    yovotest::LogFile log("HT", "http.log");
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("plain", "/r2")));
    http.get(request, log.stream());
    const QByteArray r2 = fixtureUrl("plain", "/r2").toLatin1();
    const QByteArray hello = fixtureUrl("plain", "/hello.txt").toLatin1();
    const QList<QByteArray> lines = linesOf(log);
    ASSERT_GE(lines.size(), 4);
    EXPECT_EQ(lines.first(), "[HT <TS> DBG2] YHttpRequest::get " + r2);
    EXPECT_TRUE(lines.contains("[HT <TS> DBG2] YHttpRequest::metaDataChanged received a "
                               "redirection from "
        + r2 + " to " + hello))
        << lines.join('\n').constData();
    EXPECT_TRUE(lines.contains("[HT <TS> DBG2] YHttpRequest::get " + hello));
    EXPECT_TRUE(lines.contains("[HT <TS> DBG3] At YHttpRequestEventLoop::quit"));
    EXPECT_TRUE(lines.contains("[HT <TS> DBG3] At YRequestEventLoop::downloadProgress 27 of 27"))
        << lines.join('\n').constData();
    EXPECT_EQ(lines.last(), "[HT <TS> DBG3] At YHttpRequestEventLoop::quit");
}

TEST_F(YHttpRequestTest, SelfSignedCertificateIsAcceptedAndLogged)
{
    yovotest::LogFile log("HT", "http.log");
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("selfsigned", "/hello.txt", true)));
    QNetworkReply* reply = http.get(request, log.stream());
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
    EXPECT_EQ(reply->readAll(), HELLO);
    EXPECT_EQ(request.sslConfiguration().protocol(), QSsl::TlsV1_2OrLater);
    const QList<QByteArray> lines = linesOf(log);
    EXPECT_TRUE(lines.contains("[HT <TS> DBG3] At YHttpRequestEventLoop::sslErrors"));
    EXPECT_TRUE(lines.contains(
        "[HT <TS> DBG1] Ignored ssl error: 9 The certificate is self-signed, and untrusted"))
        << lines.join('\n').constData();
}

TEST_F(YHttpRequestTest, SelfSignedCertificateInAChainIsAccepted)
{
    yovotest::LogFile log("HT", "http.log");
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("chain", "/hello.txt", true)));
    QNetworkReply* reply = http.get(request, log.stream());
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
    EXPECT_EQ(reply->readAll(), HELLO);
    EXPECT_TRUE(linesOf(log).contains("[HT <TS> DBG1] Ignored ssl error: 10 The root certificate "
                                      "of the certificate chain is self-signed, and untrusted"))
        << linesOf(log).join('\n').constData();
}

TEST_F(YHttpRequestTest, EveryOtherCertificateFaultAbortsTheRequest)
{
    for (const char* server : {"expired", "wronghost", "unknownca"}) {
        YHttpRequest http;
        QNetworkRequest request(QUrl(fixtureUrl(server, "/hello.txt", true)));
        QElapsedTimer clock;
        clock.start();
        QNetworkReply* reply = http.get(request, YDebug::STDERR);
        EXPECT_LT(clock.elapsed(), 10000) << server;
        YHttpReply outcome(reply);
        EXPECT_EQ(outcome.getHttpStatus(), 0) << server;
        EXPECT_EQ(reply->error(), QNetworkReply::OperationCanceledError) << server;
        EXPECT_EQ(outcome.errorString(), QStringLiteral("Operation canceled")) << server;
        EXPECT_TRUE(reply->readAll().isEmpty()) << server;
    }
}

TEST_F(YHttpRequestTest, PlainUrlGetsNoTlsConfiguration)
{
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("plain", "/hello.txt")));
    const QSslConfiguration before = request.sslConfiguration();
    http.get(request, YDebug::STDERR);
    EXPECT_EQ(request.sslConfiguration(), before);
}

TEST_F(YHttpRequestTest, SecondGetKeepsTheFirstReplyUntilTheObjectEnds)
{
    QPointer<QNetworkReply> first;
    QPointer<QNetworkReply> second;
    {
        YHttpRequest http;
        QNetworkRequest request(QUrl(fixtureUrl("plain", "/hello.txt")));
        first = http.get(request, YDebug::STDERR);
        second = http.get(request, YDebug::STDERR);
        ASSERT_FALSE(first.isNull());
        ASSERT_FALSE(second.isNull());
        EXPECT_NE(first.data(), second.data());
        QCoreApplication::processEvents();
        ASSERT_FALSE(first.isNull());
        EXPECT_EQ(first->readAll(), HELLO);
        EXPECT_EQ(second->readAll(), HELLO);
    }
    EXPECT_TRUE(first.isNull());
    EXPECT_TRUE(second.isNull());
}

TEST_F(YHttpRequestTest, RelativeRedirectionIsRequestedAsItStands)
{
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("python", "/redirect?to=/echo")));
    QNetworkReply* reply = http.get(request, YDebug::STDERR);
    EXPECT_EQ(request.url(), QUrl(QStringLiteral("/echo")));
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 0);
    EXPECT_EQ(reply->error(), QNetworkReply::ProtocolUnknownError);
}

TEST_F(YHttpRequestTest, RefusedConnectionEndsWithTheNetworkError)
{
    YHttpRequest http;
    QNetworkRequest request(
        QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(yovotest::closedPort())));
    QNetworkReply* reply = http.get(request, YDebug::STDERR);
    YHttpReply outcome(reply);
    EXPECT_EQ(outcome.getHttpStatus(), 0);
    EXPECT_EQ(reply->error(), QNetworkReply::ConnectionRefusedError);
    EXPECT_EQ(outcome.errorString(), QStringLiteral("Connection refused"));
}

TEST_F(YHttpRequestTest, MalformedUrlsAndGarbageRepliesGiveStatusZero)
{
    YHttpRequest http;
    for (const QString& text :
        {QString(), QStringLiteral("not a url"), QStringLiteral("http://[::1"),
            QStringLiteral("http://"), fixtureUrl("python", "/garbage")}) {
        QNetworkRequest request {QUrl(text)};
        QElapsedTimer clock;
        clock.start();
        QNetworkReply* reply = http.get(request, YDebug::STDERR);
        EXPECT_LT(clock.elapsed(), 10000) << text.toStdString();
        EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 0) << text.toStdString();
        EXPECT_NE(reply->error(), QNetworkReply::NoError) << text.toStdString();
        EXPECT_FALSE(YHttpReply(reply).errorString().isEmpty());
    }
}

TEST_F(YHttpRequestTest, TruncatedBodyEndsWithTheStatusReceived)
{
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("python", "/truncated")));
    QNetworkReply* reply = http.get(request, YDebug::STDERR);
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
    EXPECT_EQ(reply->readAll(), QByteArray(10, 't'));
    EXPECT_EQ(reply->error(), QNetworkReply::RemoteHostClosedError);
}

TEST_F(YHttpRequestTest, HugeHeaderIsRead)
{
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("python", "/hugeheader?size=1048576")));
    QNetworkReply* reply = http.get(request, YDebug::STDERR);
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
    EXPECT_EQ(reply->rawHeader("X-Huge"), QByteArray(1048576, 'h'));
}

#if defined(__SANITIZE_ADDRESS__)
#define YOVO_UNDER_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define YOVO_UNDER_ASAN 1
#endif
#endif
#ifndef YOVO_UNDER_ASAN
#define YOVO_UNDER_ASAN 0
#endif

namespace {

// Runs one get on a thread with a small stack, so that an endless chain of redirections reaches
// the end of the stack after a few hundred hops instead of tens of thousands.
class SmallStackGet : public QThread
{
public:
    explicit SmallStackGet(const QString& url)
        : _url(url)
    {
        setStackSize(256 * 1024);
    }

protected:
    void run() override
    {
        YHttpRequest http;
        QNetworkRequest request {QUrl(_url)};
        http.get(request, YDebug::STDERR);
    }

private:
    QString _url;
};

} // namespace

// Nothing counts the hops, so a cycle ends only with the stack.
TEST_F(YHttpRequestTest, RedirectCycleEndsWithTheStack)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const QString url = fixtureUrl("plain", "/loop");
#if YOVO_UNDER_ASAN
    // The address sanitizer reports the overflow itself and exits.
    EXPECT_DEATH(
        {
            SmallStackGet thread(url);
            thread.start();
            thread.wait(60000);
            // Only reached if the cycle ended some other way.
            std::fprintf(stderr, "the redirect cycle ended without exhausting the stack\n");
            std::exit(0);
        },
        "stack-overflow");
#else
    EXPECT_EXIT(
        {
            SmallStackGet thread(url);
            thread.start();
            thread.wait(60000);
            std::fprintf(stderr, "the redirect cycle ended without exhausting the stack\n");
            std::exit(0);
        },
        ::testing::KilledBySignal(SIGSEGV), "");
#endif
}

namespace {

QStringList g_dump;

void collectDump(QtMsgType, const QMessageLogContext&, const QString& message)
{
    g_dump.append(message);
}

// The receivers of the reply's signals, as Qt's own object dump lists them.
QString connectionsOf(QObject* object)
{
    g_dump.clear();
    const QtMessageHandler previous = qInstallMessageHandler(collectDump);
    object->dumpObjectInfo();
    qInstallMessageHandler(previous);
    return g_dump.join(QLatin1Char('\n'));
}

} // namespace

TEST_F(YHttpRequestTest, SecondGetDeletesTheFirstLoop)
{
    YHttpRequest http;
    QNetworkRequest request(QUrl(fixtureUrl("plain", "/hello.txt")));
    QNetworkReply* first = http.get(request, YDebug::STDERR);
    const QString before = connectionsOf(first);
    EXPECT_TRUE(before.contains(QStringLiteral("YHttpRequestEventLoop"))) << before.toStdString();
    http.get(request, YDebug::STDERR);
    const QString after = connectionsOf(first);
    EXPECT_FALSE(after.contains(QStringLiteral("YHttpRequestEventLoop"))) << after.toStdString();
    EXPECT_EQ(first->readAll(), HELLO);
}

TEST_F(YHttpRequestTest, ConsecutiveGetsOfOneObjectShareTheConnection)
{
    YHttpRequest http;
    for (bool tls : {false, true}) {
        const char* server = tls ? "selfsigned" : "plain";
        QNetworkRequest request(QUrl(fixtureUrl(server, "/connection", tls)));
        QNetworkReply* reply = http.get(request, YDebug::STDERR);
        ASSERT_EQ(YHttpReply(reply).getHttpStatus(), 200);
        const QByteArray serial = reply->readAll();
        EXPECT_FALSE(serial.isEmpty());
        for (int i = 0; i < 3; ++i) {
            QNetworkRequest again(QUrl(fixtureUrl(server, "/connection", tls)));
            reply = http.get(again, YDebug::STDERR);
            EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
            EXPECT_EQ(reply->readAll(), serial) << server;
        }
        QNetworkRequest hello(QUrl(fixtureUrl(server, "/hello.txt", tls)));
        reply = http.get(hello, YDebug::STDERR);
        EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
        EXPECT_EQ(reply->readAll(), HELLO);
    }
}

TEST_F(YHttpRequestTest, AnAbortedGetLeavesTheObjectUsable)
{
    YHttpRequest http;
    QNetworkRequest expired(QUrl(fixtureUrl("expired", "/hello.txt", true)));
    QNetworkReply* reply = http.get(expired, YDebug::STDERR);
    EXPECT_EQ(reply->error(), QNetworkReply::OperationCanceledError);
    QNetworkRequest hello(QUrl(fixtureUrl("selfsigned", "/hello.txt", true)));
    reply = http.get(hello, YDebug::STDERR);
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 200);
    EXPECT_EQ(reply->error(), QNetworkReply::NoError);
    EXPECT_EQ(reply->readAll(), HELLO);
}
