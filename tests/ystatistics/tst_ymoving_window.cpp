#include "ymoving_window.h"

#include "window_test_helpers.h"

#include <gtest/gtest.h>

#include <cmath>

using windowtest::printedList;

// One-minute buckets: everything a test does here lands in the first period.

TEST(YMovingWindow, ValuesInOneMinuteSumInOneBucket)
{
    YMovingWindow window(5, 60);
    window << 1.5 << 2.5;
    window << 3.0;
    EXPECT_DOUBLE_EQ(7.0, window.total(-1));
    EXPECT_DOUBLE_EQ(7.0, window.total(1));
    EXPECT_EQ(QStringList({"printing list ...  1 items", "0  =>  7"}), printedList(window));
}

TEST(YMovingWindow, EmptyWindowGivesZero)
{
    YMovingWindow window(5, 60);
    EXPECT_EQ(0.0, window.total(-1));
    EXPECT_EQ(0.0, window.total(1));
    EXPECT_EQ(0.0, window.total(100));
    EXPECT_EQ(0.0, window.average(2));
    EXPECT_EQ(0.0, window.average(-1));
    EXPECT_TRUE(std::isnan(window.average(0)));
}

TEST(YMovingWindow, AverageDividesTheWholeWindowsSum)
{
    YMovingWindow window(5, 60);
    window << 3.0 << 5.0;
    EXPECT_DOUBLE_EQ(8.0 / 2, window.average(2));
    EXPECT_DOUBLE_EQ(8.0 / 5, window.average(-1));
    EXPECT_DOUBLE_EQ(8.0, window.average(1));
    EXPECT_DOUBLE_EQ(8.0 / 10, window.average(10));
}

TEST(YMovingWindow, NegativeAndFractionalValuesAdd)
{
    YMovingWindow window(3, 60);
    window << 0.25 << -1.0 << 0.5;
    EXPECT_DOUBLE_EQ(-0.25, window.total(-1));
}

TEST(YMovingWindow, TotalOfZeroBucketsIsZero)
{
    YMovingWindow window(5, 60);
    window << 4.0;
    EXPECT_EQ(0.0, window.total(0));
    EXPECT_DOUBLE_EQ(4.0, window.total(1));
}

TEST(YMovingWindow, WindowOfSizeZeroKeepsNothing)
{
    YMovingWindow window(0, 60);
    window << 4.0 << 5.0;
    EXPECT_EQ(0.0, window.total(-1));
    EXPECT_EQ(QStringList({"printing list ...  0 items"}), printedList(window));
}

TEST(YMovingWindow, PrintListOfEmptyWindow)
{
    YMovingWindow window(5, 60);
    EXPECT_EQ(QStringList({"printing list ...  0 items"}), printedList(window));
}

TEST(YMovingWindow, TrimWindowKeepsFreshBuckets)
{
    YMovingWindow window(5, 60);
    window << 2.0;
    window.trimWindow();
    EXPECT_DOUBLE_EQ(2.0, window.total(-1));
}

TEST(YMovingWindow, CopiesAreIndependent)
{
    YMovingWindow window(5, 60);
    window << 1.0;
    YMovingWindow copy(window);
    copy << 2.0;
    YMovingWindow assigned(1, 1);
    assigned = window;
    assigned << 10.0;
    EXPECT_DOUBLE_EQ(1.0, window.total(-1));
    EXPECT_DOUBLE_EQ(3.0, copy.total(-1));
    EXPECT_DOUBLE_EQ(11.0, assigned.total(-1));
    EXPECT_DOUBLE_EQ(11.0 / 5, assigned.average(-1));
}

TEST(YMovingWindowDeathTest, ZeroBucketLengthEndsTheProcessAtTheFirstValue)
{
    YMovingWindow window(5, 0);
    EXPECT_EQ(0.0, window.total(-1));
    EXPECT_DEATH(window << 1.0, "_bucketSeconds != 0");
}
