#include "shm_test_cleanup.h"
#include "shm_test_util.h"
#include "test_support.h"

#include "ydebug.h"
#include "yexception.h"
#include "ysingle_instance_checker.h"

#include <gtest/gtest.h>

namespace {

QString checkerName()
{
    return shmtest::semaphoreName("single");
}

QString peerPath()
{
    return yovotest::helperPath("yshm_peer");
}

} // namespace

TEST(YSingleInstanceChecker, InOneProcess)
{
    YSingleInstanceChecker checker(checkerName());
    EXPECT_FALSE(checker.isAnotherRunning());
    EXPECT_FALSE(checker.isAnotherRunning()); // looking doesn't take the token
    EXPECT_TRUE(checker.markAsRunning());
    EXPECT_TRUE(checker.isAnotherRunning()); // the holder sees itself as another
    EXPECT_FALSE(checker.markAsRunning());
    EXPECT_TRUE(checker.markAsNotRunning());
    EXPECT_FALSE(checker.isAnotherRunning());
    // Nothing to give back any more: the count is at its maximum.
    EXPECT_FALSE(checker.markAsNotRunning());
}

TEST(YSingleInstanceChecker, BadNameThrows)
{
    try {
        YSingleInstanceChecker checker(QStringLiteral("a b"));
        FAIL() << "no exception";
    } catch (YException& e) {
        EXPECT_STREQ("YSemaphore: invalid semaphore name a b", e.what());
    }
}

TEST(YSingleInstanceChecker, UnusableSemaphoreLogsAndFails)
{
    // A valid name too long for the system: the semaphore can't be made.
    YSingleInstanceChecker checker(QString(300, QLatin1Char('n')));
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::DBG1);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(checker.markAsRunning());
    EXPECT_FALSE(checker.isAnotherRunning());
    EXPECT_FALSE(checker.markAsNotRunning());
    const std::string log = testing::internal::GetCapturedStderr();
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::WARNING);
    size_t count = 0;
    for (size_t at = log.find("DBG1] Invalid semaphore \r\n"); at != std::string::npos;
         at = log.find("DBG1] Invalid semaphore \r\n", at + 1))
        ++count;
    EXPECT_EQ(3u, count) << log;
}

TEST(YSingleInstanceChecker, CopiesShareTheSemaphore)
{
    YSingleInstanceChecker* checker = new YSingleInstanceChecker(checkerName());
    YSingleInstanceChecker copy(*checker);
    EXPECT_TRUE(checker->markAsRunning());
    delete checker;
    EXPECT_TRUE(copy.isAnotherRunning());
    EXPECT_TRUE(copy.markAsNotRunning());
}

TEST(YSingleInstanceChecker, AcrossProcesses)
{
    const QString name = checkerName();
    YSingleInstanceChecker checker(name);
    EXPECT_FALSE(checker.isAnotherRunning());
    shmtest::Peer other;
    ASSERT_TRUE(other.start(peerPath(), {"single", name, "mark"}));
    ASSERT_EQ("marked 1", other.line());
    EXPECT_TRUE(checker.isAnotherRunning());
    EXPECT_FALSE(checker.markAsRunning());
    EXPECT_EQ("released 1", other.ask("release"));
    EXPECT_FALSE(checker.isAnotherRunning());
    EXPECT_TRUE(checker.markAsRunning());
    EXPECT_EQ("another 1", other.ask("check"));
    EXPECT_TRUE(checker.markAsNotRunning());
    EXPECT_EQ("another 0", other.ask("check"));
    EXPECT_EQ(0, other.finish());
}

TEST(YSingleInstanceChecker, KilledHolderKeepsTheTokenWhileOthersHoldTheSemaphore)
{
    const QString name = checkerName();
    YSingleInstanceChecker checker(name);
    shmtest::Peer other;
    ASSERT_TRUE(other.start(peerPath(), {"single", name, "mark"}));
    ASSERT_EQ("marked 1", other.line());
    other.killHard();
    // No owner gives the token back: as long as this process keeps the semaphore, it's taken.
    EXPECT_TRUE(checker.isAnotherRunning());
}

TEST(YSingleInstanceChecker, KilledOnlyHolderLeavesAFreshStart)
{
    const QString name = checkerName();
    shmtest::Peer first;
    ASSERT_TRUE(first.start(peerPath(), {"single", name, "mark"}));
    ASSERT_EQ("marked 1", first.line());
    shmtest::Peer looker;
    ASSERT_TRUE(looker.start(peerPath(), {"single", name, "check"}));
    EXPECT_EQ("another 1", looker.line());
    EXPECT_EQ(0, looker.finish());
    first.killHard();
    // Nobody had the semaphore open any more: the next copy starts afresh.
    shmtest::Peer next;
    ASSERT_TRUE(next.start(peerPath(), {"single", name, "check"}));
    EXPECT_EQ("another 0", next.line());
    EXPECT_EQ(0, next.finish());
}
