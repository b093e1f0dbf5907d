#include "http_request.h"
#include "http_test_servers.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

using yovotest::fixtureUrl;

namespace {

class YHttpRequestSlowTest : public ::testing::Test
{
protected:
    void SetUp() override { yovotest::ensureCoreApplication(); }
};

} // namespace

// Progress does not extend the 30 seconds: they count from the start.
TEST_F(YHttpRequestSlowTest, BodyStillArrivingAfterThirtySecondsIsCutOff)
{
    yovotest::TempDir dir;
    const QString path = dir.file(QStringLiteral("http.log"));
    const YDebug::StreamId stream = YDebug::registerStream("HT", path.toLocal8Bit().constData());
    YDebug::setDebugLevel(stream, YDebug::ERROR);

    const QString url = fixtureUrl("python", "/slow?seconds=40&interval=0.25");
    YHttpRequest http;
    QNetworkRequest request {QUrl(url)};
    QElapsedTimer clock;
    clock.start();
    QNetworkReply* reply = http.get(request, stream);
    const qint64 elapsed = clock.elapsed();
    YDebug::unregisterStream(stream);

    EXPECT_GE(elapsed, 30000);
    EXPECT_LT(elapsed, 32000);
    YHttpReply outcome(reply);
    EXPECT_EQ(outcome.getHttpStatus(), 200);
    EXPECT_EQ(reply->error(), QNetworkReply::OperationCanceledError);
    EXPECT_EQ(outcome.errorString(), QStringLiteral("Operation canceled"));
    // The abort closes the reply: what had arrived is gone with it.
    EXPECT_FALSE(reply->isOpen());
    EXPECT_TRUE(reply->isFinished());
    EXPECT_EQ(yovotest::maskTimestamps(yovotest::readFile(path)),
        "[HT <TS> ERROR] " + url.toLatin1() + " error: No network activity \r\n");
}

TEST_F(YHttpRequestSlowTest, SilentPeerCostsThirtySeconds)
{
    YHttpRequest http;
    QNetworkRequest request {QUrl(fixtureUrl("silent", "/"))};
    QElapsedTimer clock;
    clock.start();
    QNetworkReply* reply = http.get(request, YDebug::STDERR);
    const qint64 elapsed = clock.elapsed();
    EXPECT_GE(elapsed, 30000);
    EXPECT_LT(elapsed, 31000);
    EXPECT_EQ(YHttpReply(reply).getHttpStatus(), 0);
    EXPECT_EQ(reply->error(), QNetworkReply::OperationCanceledError);
}
