#include "ymutex.h"

#include <gtest/gtest.h>

#include <thread>

TEST(YMutex, CounterFollowsRecursiveDepth)
{
    YMutex mutex;
    mutex.lock();
    mutex.lock();
    EXPECT_EQ(QStringLiteral("instance of YMutex: lockCounter 2"), mutex.toString());
    mutex.unlock();
    EXPECT_EQ(QStringLiteral("instance of YMutex: lockCounter 1"), mutex.toString());
    mutex.unlock();
    EXPECT_EQ(QStringLiteral("instance of YMutex: lockCounter 0"), mutex.toString());
}

TEST(YMutexDeathTest, UnlockOfFreshMutexAborts)
{
    EXPECT_DEATH(
        {
            YMutex mutex;
            mutex.unlock();
        },
        "SYSTEM\\] \\[ .*ymutex\\.cpp : [0-9]+ \\] \\(_lockCounter > 0\\) \r\nIllegal counter "
        "value: 0 \n");
}

TEST(YMutex, CopyOfLockedMutexIsUnlocked)
{
    YMutex mutex;
    mutex.lock();
    YMutex copy(mutex);
    EXPECT_EQ(QStringLiteral("instance of YMutex: lockCounter 0"), copy.toString());
    // The copy is a lock of its own: another thread can take it while the source is held.
    bool taken = false;
    std::thread other([&] {
        copy.lock();
        taken = true;
        copy.unlock();
    });
    other.join();
    EXPECT_TRUE(taken);
    mutex.unlock();
}

TEST(YMutex, ExcludesOtherThreads)
{
    YMutex mutex;
    long counter = 0;
    auto work = [&] {
        for (int i = 0; i < 100000; ++i) {
            YMutexLocker locker(mutex);
            ++counter;
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(200000, counter);
}

TEST(DummyLocker, DoesNothing)
{
    DUMMY_LOCKER locker;
    locker.lock();
    locker.lock();
    locker.unlock();
    DUMMY_LOCKER other;
    other = locker;
    SUCCEED();
}
