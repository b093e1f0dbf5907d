#include "http_test_servers.h"
#include "ysimple_url.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

using yovotest::fixtureUrl;

namespace {

class YSimpleURLSlowTest : public ::testing::Test
{
protected:
    void SetUp() override { yovotest::ensureCoreApplication(); }
};

// The wait of one call against the peer that never answers, in milliseconds.
qint64 timedFetch(YSimpleURL& url, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    url.fetch(fixtureUrl("silent", "/"), timeoutMs);
    return clock.elapsed();
}

qint64 timedPost(YSimpleURL& url, int timeoutMs)
{
    QElapsedTimer clock;
    clock.start();
    url.post(fixtureUrl("silent", "/"), "x", timeoutMs);
    return clock.elapsed();
}

} // namespace

TEST_F(YSimpleURLSlowTest, FetchTimeOutOfZeroOrLessMeansThreeSeconds)
{
    YSimpleURL url;
    for (int timeout : {0, -1}) {
        const qint64 elapsed = timedFetch(url, timeout);
        EXPECT_GE(elapsed, 3000) << timeout;
        EXPECT_LT(elapsed, 3500) << timeout;
        EXPECT_EQ(url.getStatus(), 0);
        EXPECT_EQ(url.getErrorString(), QStringLiteral("Timeout while reading response"));
    }
}

TEST_F(YSimpleURLSlowTest, PostTimeOutOfZeroOrLessMeansThreeSeconds)
{
    YSimpleURL url;
    for (int timeout : {0, -3000}) {
        const qint64 elapsed = timedPost(url, timeout);
        EXPECT_GE(elapsed, 3000) << timeout;
        EXPECT_LT(elapsed, 3500) << timeout;
        EXPECT_EQ(url.getStatus(), 0);
        EXPECT_EQ(url.getErrorString(), QStringLiteral("Timeout while reading response"));
    }
}

TEST_F(YSimpleURLSlowTest, ASilentPeerCostsTheTimeOutAndLeaksNoSocket)
{
    YSimpleURL url;
    // The first call sets up what the network layer keeps for the whole process.
    timedFetch(url, 50);
    timedPost(url, 50);
    QCoreApplication::processEvents();
    const int before = yovotest::openDescriptorCount();
    for (int i = 0; i < 100; ++i) {
        const qint64 elapsed = i % 2 == 0 ? timedFetch(url, 50) : timedPost(url, 50);
        EXPECT_GE(elapsed, 50) << i;
        EXPECT_LT(elapsed, 550) << i;
        EXPECT_EQ(url.getStatus(), 0) << i;
    }
    // An abandoned request's connection closes in the network thread, a moment after its call.
    QElapsedTimer clock;
    clock.start();
    int after = yovotest::openDescriptorCount();
    while (after > before && clock.elapsed() < 2000) {
        QThread::msleep(10);
        QCoreApplication::processEvents();
        after = yovotest::openDescriptorCount();
    }
    EXPECT_EQ(after, before);
}
