#include "ytime.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

_TimeVal at(qint64 seconds, qint64 microseconds)
{
    return _TimeVal {seconds, microseconds};
}

} // namespace

// Runs in a process of its own, before anything built a YTime: the frequency is still 0.
TEST(YTime, TimestampBeforeAnyStopwatchIsZeroInsteadOfADivisionByZero)
{
    _TimeVal now {7, 7};
    YTime::getTimestamp(now);
    EXPECT_EQ(now.seconds, 0);
    EXPECT_EQ(now.microseconds, 0);

    YTime first;
    YTime::getTimestamp(now);
    EXPECT_GT(now.seconds * 1000000 + now.microseconds, 0);
    EXPECT_GE(now.microseconds, 0);
    EXPECT_LT(now.microseconds, 1000000);
}

TEST(YTime, StopWithoutStartReturnsZero)
{
    YTime watch;
    EXPECT_FALSE(watch.isStarted());
    EXPECT_EQ(watch.stop(), 0);
    EXPECT_EQ(watch.stop(at(100, 5)), 0);
}

TEST(YTime, StopSubtractsFieldWise)
{
    YTime watch;
    watch.start(at(10, 200));
    EXPECT_TRUE(watch.isStarted());
    EXPECT_EQ(watch.stop(at(12, 700)), 2000500);
    EXPECT_FALSE(watch.isStarted());
    EXPECT_EQ(watch.getStart().seconds, 0);
    EXPECT_EQ(watch.getStart().microseconds, 0);
    // Stopped: a second stop has nothing to measure.
    EXPECT_EQ(watch.stop(at(20, 0)), 0);
}

TEST(YTime, StopBorrowsASecondWhenMicrosecondsAreSmaller)
{
    YTime watch;
    watch.start(at(10, 900000));
    EXPECT_EQ(watch.stop(at(11, 100000)), 200000);
}

TEST(YTime, StopCarriesMicrosecondsAboveAMillion)
{
    YTime watch;
    watch.start(at(1, 0));
    // Not a normalised time: 2.5 million microseconds are carried into the seconds.
    EXPECT_EQ(watch.stop(at(2, 2500000)), 3500000);
}

TEST(YTime, MeasuresRealTime)
{
    YTime watch;
    watch.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const long long elapsed = watch.stop();
    EXPECT_GE(elapsed, 20000);
    EXPECT_LT(elapsed, 5000000);
}

TEST(YTime, SetStartLeavesStartedStateAndResetClearsAll)
{
    YTime watch;
    watch.setStart(at(3, 4));
    EXPECT_FALSE(watch.isStarted());
    EXPECT_EQ(watch.getStart().seconds, 3);
    EXPECT_EQ(watch.getStart().microseconds, 4);
    EXPECT_EQ(watch.stop(at(5, 4)), 0);

    watch.start(at(3, 4));
    watch.reset();
    EXPECT_FALSE(watch.isStarted());
    EXPECT_EQ(watch.getStart().seconds, 0);
    EXPECT_EQ(watch.getStart().microseconds, 0);
}
