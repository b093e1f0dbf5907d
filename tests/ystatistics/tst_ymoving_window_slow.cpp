#include "ymoving_window.h"

#include "window_test_helpers.h"

#include <gtest/gtest.h>

using windowtest::printedList;
using windowtest::waitForNextSecond;
using windowtest::waitUntilSecond;

// One-second buckets on the real clock. Each value goes in right after the second has turned,
// so consecutive values always land in different periods.

TEST(YMovingWindowSlow, SixValuesInSixPeriodsLeaveFiveBuckets)
{
    YMovingWindow window(5, 1);
    for (int i = 1; i <= 6; ++i) {
        waitForNextSecond();
        window << double(i);
    }
    const QStringList lines = printedList(window);
    ASSERT_EQ(6, lines.size());
    EXPECT_EQ("printing list ...  5 items", lines.at(0));
    // The oldest value is gone, the other five remain in order.
    for (int i = 1; i <= 5; ++i)
        EXPECT_TRUE(lines.at(i).endsWith(" =>  " + QString::number(i + 1)))
            << lines.at(i).toStdString();
}

TEST(YMovingWindowSlow, NewestBucketCountsEvenWhenOld)
{
    YMovingWindow window(10, 1);
    waitForNextSecond();
    window << 1.0;
    waitForNextSecond();
    window << 2.0;
    // Two periods without values: the newest bucket is old now, but not out of the window.
    waitForNextSecond();
    waitForNextSecond();
    EXPECT_DOUBLE_EQ(2.0, window.total(1));
    EXPECT_DOUBLE_EQ(3.0, window.total(2));
    EXPECT_DOUBLE_EQ(3.0, window.total(-1));
}

// Counted back from the newest bucket, a period without values still uses up one bucket.
TEST(YMovingWindowSlow, GapsCountAsPeriods)
{
    YMovingWindow window(10, 1);
    waitForNextSecond();
    window << 1.0;
    waitForNextSecond();
    waitForNextSecond();
    window << 4.0;
    const QStringList lines = printedList(window);
    ASSERT_EQ(3, lines.size());
    const qint64 first = lines.at(1).section(' ', 0, 0).toLongLong();
    const qint64 last = lines.at(2).section(' ', 0, 0).toLongLong();
    ASSERT_GE(last - first, 2);
    EXPECT_DOUBLE_EQ(4.0, window.total(last - first));
    EXPECT_DOUBLE_EQ(5.0, window.total(last - first + 1));
}

TEST(YMovingWindowSlow, AverageUsesWholeWindowSumWhateverItsArgument)
{
    YMovingWindow window(10, 1);
    waitForNextSecond();
    window << 3.0;
    waitForNextSecond();
    window << 5.0;
    EXPECT_DOUBLE_EQ(5.0, window.total(1));
    EXPECT_DOUBLE_EQ(8.0 / 2, window.average(2));
    EXPECT_DOUBLE_EQ(8.0 / 1, window.average(1));
    EXPECT_DOUBLE_EQ(8.0 / 10, window.average(-1));
}

// Two stale buckets: the walk erases the first and skips the one behind it, so the first total
// still sees the second; the next walk erases it.
TEST(YMovingWindowSlow, TwoStaleBucketsNeedTwoWalks)
{
    YMovingWindow window(2, 1);
    waitForNextSecond();
    window << 1.0;
    waitForNextSecond();
    window << 2.0;
    const qint64 last = windowtest::nowSeconds();
    waitUntilSecond(last + 3);
    EXPECT_DOUBLE_EQ(2.0, window.total(-1));
    EXPECT_EQ(0.0, window.total(-1));
    EXPECT_EQ(QStringList({"printing list ...  0 items"}), printedList(window));
}

// Three stale buckets: erasing the last one carries the walk round to the first again, and one
// walk clears them all.
TEST(YMovingWindowSlow, ThreeStaleBucketsGoInOneWalk)
{
    YMovingWindow window(3, 1);
    for (int i = 1; i <= 3; ++i) {
        waitForNextSecond();
        window << double(i);
    }
    const qint64 last = windowtest::nowSeconds();
    waitUntilSecond(last + 4);
    window.trimWindow();
    EXPECT_EQ(QStringList({"printing list ...  0 items"}), printedList(window));
    EXPECT_EQ(0.0, window.total(-1));
}

// Four stale buckets: the first walk leaves the second and the fourth, the next the fourth.
TEST(YMovingWindowSlow, FourStaleBucketsNeedThreeWalks)
{
    YMovingWindow window(4, 1);
    for (int i = 1; i <= 4; ++i) {
        waitForNextSecond();
        window << double(i);
    }
    const qint64 last = windowtest::nowSeconds();
    waitUntilSecond(last + 5);
    window.trimWindow();
    QStringList lines = printedList(window);
    ASSERT_EQ(3, lines.size());
    EXPECT_TRUE(lines.at(1).endsWith(" =>  2")) << lines.at(1).toStdString();
    EXPECT_TRUE(lines.at(2).endsWith(" =>  4")) << lines.at(2).toStdString();
    EXPECT_DOUBLE_EQ(4.0, window.total(-1));
    EXPECT_EQ(0.0, window.total(-1));
}

TEST(YMovingWindowSlow, AfterTheWholeWindowWithoutValuesTotalIsZero)
{
    YMovingWindow window(2, 1);
    waitForNextSecond();
    window << 7.0;
    const qint64 last = windowtest::nowSeconds();
    waitUntilSecond(last + 3);
    EXPECT_EQ(0.0, window.total(-1));
    EXPECT_EQ(0.0, window.average(-1));
}

// Later values in a bucket don't make it younger: it goes stale with its first value.
TEST(YMovingWindowSlow, BucketAgesFromItsFirstValue)
{
    const qint64 start = waitForNextSecond();
    YMovingWindow window(1, 2);
    window << 1.0;
    waitForNextSecond();
    window << 1.0;
    if (printedList(window).size() != 2 || windowtest::nowSeconds() != start + 1)
        GTEST_SKIP() << "the machine stalled for a second; both values must share one period";
    // At start + 3 a bucket made at start is stale, one made at start + 1 would not be.
    waitUntilSecond(start + 3);
    const double total = window.total(-1);
    if (windowtest::nowSeconds() != start + 3)
        GTEST_SKIP() << "the machine stalled past the one second that tells the two apart";
    EXPECT_EQ(0.0, total);
}
