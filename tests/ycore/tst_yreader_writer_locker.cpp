#include "shm_test_cleanup.h"
#include "shm_test_util.h"
#include "test_support.h"

#include "ydebug.h"
#include "ymmap_allocator.h"
#include "yreader_writer_locker.h"
#include "ysemaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

namespace {

QString semName(const char* prefix)
{
    return shmtest::semaphoreName(prefix);
}

// Long enough for a thread that wasn't blocked to have got through.
void settle()
{
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

// The DBG1 words of the lockers show only with the standard error stream at that level.
class LockerLog : public ::testing::Test
{
protected:
    void SetUp() override { YDebug::setDebugLevel(YDebug::STDERR, YDebug::DBG1); }
    void TearDown() override { YDebug::setDebugLevel(YDebug::STDERR, YDebug::WARNING); }
};

} // namespace

TEST(YReaderLocker, ThreeReadersAtOnceAndTheFourthWaits)
{
    YSemaphore tokens(3, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    auto a = std::make_unique<YReaderLocker>(&tokens, &gate);
    YReaderLocker b(&tokens, &gate);
    YReaderLocker c(&tokens, &gate);
    EXPECT_TRUE(a->isLocked());
    EXPECT_TRUE(b.isLocked());
    EXPECT_TRUE(c.isLocked());
    std::atomic<bool> fourthIn {false};
    std::thread fourth([&] {
        YReaderLocker d(&tokens, &gate);
        fourthIn = d.isLocked();
    });
    settle();
    EXPECT_FALSE(fourthIn.load());
    a.reset();
    fourth.join();
    EXPECT_TRUE(fourthIn.load());
}

TEST(YWriterLocker, HoldsAllTokensAndReadersWait)
{
    YSemaphore tokens(3, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    auto writer = std::make_unique<YWriterLocker>(&tokens, &gate);
    EXPECT_TRUE(writer->isLocked());
    EXPECT_FALSE(tokens.tryAcquire(1));
    EXPECT_FALSE(gate.tryAcquire());
    std::atomic<int> readersIn {0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 2; ++i) {
        readers.emplace_back([&] {
            YReaderLocker reader(&tokens, nullptr);
            if (reader.isLocked())
                ++readersIn;
        });
    }
    settle();
    EXPECT_EQ(0, readersIn.load());
    writer.reset();
    for (std::thread& t : readers)
        t.join();
    EXPECT_EQ(2, readersIn.load());
    // Everything was given back.
    EXPECT_TRUE(tokens.tryAcquire(3));
    EXPECT_TRUE(tokens.release(3));
    EXPECT_TRUE(gate.tryAcquire());
    EXPECT_TRUE(gate.release());
}

TEST(YWriterLocker, WaitsForReadersToLeave)
{
    YSemaphore tokens(2, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    auto reader = std::make_unique<YReaderLocker>(&tokens, &gate);
    std::atomic<bool> writerIn {false};
    std::thread writer([&] {
        YWriterLocker locker(&tokens, &gate);
        writerIn = locker.isLocked();
    });
    settle();
    EXPECT_FALSE(writerIn.load());
    reader.reset();
    writer.join();
    EXPECT_TRUE(writerIn.load());
}

TEST(YWriterLocker, TwoWritersNeverTogetherAndNeverStuck)
{
    YSemaphore tokens(4, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    std::atomic<int> inside {0};
    std::atomic<int> overlaps {0};
    std::atomic<int> entries {0};
    auto work = [&] {
        for (int i = 0; i < 300; ++i) {
            YWriterLocker locker(&tokens, &gate);
            if (!locker.isLocked())
                continue;
            if (inside.fetch_add(1) != 0)
                ++overlaps;
            ++entries;
            std::this_thread::yield();
            inside.fetch_sub(1);
        }
    };
    auto readWork = [&] {
        for (int i = 0; i < 300; ++i) {
            YReaderLocker locker(&tokens, &gate);
            if (inside.load() != 0)
                ++overlaps;
        }
    };
    std::thread a(work), b(work), c(readWork), d(readWork);
    a.join();
    b.join();
    c.join();
    d.join();
    EXPECT_EQ(0, overlaps.load());
    EXPECT_EQ(600, entries.load());
}

TEST(YReaderLocker, SecondArgumentIsNotLookedAt)
{
    YSemaphore tokens(1, semName("tokens"));
    {
        YReaderLocker reader(&tokens, nullptr);
        EXPECT_TRUE(reader.isLocked());
        EXPECT_FALSE(tokens.tryAcquire(1));
    }
    EXPECT_TRUE(tokens.tryAcquire(1));
    tokens.release(1);
}

TEST(YWriterLocker, ZeroCountTakesNoTokensWhileReadersWait)
{
    YSemaphore tokens(0, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    EXPECT_EQ(0u, tokens.getMaxCount());
    {
        YWriterLocker writer(&tokens, &gate);
        EXPECT_TRUE(writer.isLocked());
    }
    std::atomic<bool> readerIn {false};
    std::thread reader([&] {
        YReaderLocker locker(&tokens, &gate);
        readerIn = locker.isLocked();
    });
    settle();
    EXPECT_FALSE(readerIn.load()); // the count is empty
    ASSERT_TRUE(tokens.release(1));
    reader.join();
    EXPECT_TRUE(readerIn.load());
}

TEST_F(LockerLog, WriterWithoutGateLocksNothing)
{
    YSemaphore tokens(2, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    gate.remove();
    testing::internal::CaptureStderr();
    {
        YWriterLocker writer(&tokens, &gate);
        EXPECT_FALSE(writer.isLocked());
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(
        std::string::npos, log.find("DBG1] YWriterLocker : Error getting writer semaphore \r\n"))
        << log;
    EXPECT_EQ(std::string::npos, log.find("releasing")) << log;
    // The destructor gave back no tokens it never took.
    EXPECT_TRUE(tokens.tryAcquire(2));
    EXPECT_FALSE(tokens.tryAcquire(1));
    tokens.release(2);
}

TEST_F(LockerLog, WriterWithoutTokensGivesBackTheGateOnly)
{
    YSemaphore tokens(2, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    tokens.remove();
    testing::internal::CaptureStderr();
    {
        YWriterLocker writer(&tokens, &gate);
        EXPECT_FALSE(writer.isLocked());
        EXPECT_FALSE(gate.tryAcquire()); // still held
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("DBG1] YWriterLocker : Error getting semaphore \r\n"))
        << log;
    EXPECT_EQ(std::string::npos, log.find("Error releasing")) << log;
    EXPECT_TRUE(gate.tryAcquire());
    gate.release();
}

TEST_F(LockerLog, ReaderWithoutSemaphore)
{
    YSemaphore tokens(2, semName("tokens"));
    tokens.remove();
    testing::internal::CaptureStderr();
    {
        YReaderLocker reader(&tokens, nullptr);
        EXPECT_FALSE(reader.isLocked());
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("DBG1] YReaderLocker : Error getting semaphore \r\n"))
        << log;
    EXPECT_EQ(std::string::npos, log.find("Error releasing")) << log;
}

TEST_F(LockerLog, ReleaseFailuresAreReported)
{
    YSemaphore tokens(2, semName("tokens"));
    YOneLockSemaphore gate(semName("gate"));
    testing::internal::CaptureStderr();
    {
        YWriterLocker writer(&tokens, &gate);
        ASSERT_TRUE(writer.isLocked());
        tokens.remove();
        gate.remove();
    }
    std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("DBG1] ~YWriterLocker : Error releasing semaphore \r\n"))
        << log;
    EXPECT_NE(
        std::string::npos, log.find("DBG1] ~YWriterLocker : Error releasing writer semaphore \r\n"))
        << log;

    YSemaphore readerTokens(2, semName("tokens"));
    testing::internal::CaptureStderr();
    {
        YReaderLocker reader(&readerTokens, nullptr);
        ASSERT_TRUE(reader.isLocked());
        readerTokens.remove();
    }
    log = testing::internal::GetCapturedStderr();
    EXPECT_NE(std::string::npos, log.find("DBG1] YReaderLocker : Error releasing semaphore \r\n"))
        << log;
}

TEST(YWriterLocker, FailuresAreSilentBelowDbg1)
{
    YSemaphore tokens(2, semName("tokens"));
    tokens.remove();
    YOneLockSemaphore gate(semName("gate"));
    testing::internal::CaptureStderr();
    {
        YWriterLocker writer(&tokens, &gate);
        EXPECT_FALSE(writer.isLocked());
    }
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::string::npos, log.find("YWriterLocker")) << log;
    // The semaphore layer underneath reports at ERROR.
    EXPECT_NE(std::string::npos, log.find("invalid semaphore handle")) << log;
}

// Writers in two processes and readers in two more, on one pair of semaphores: the counter in
// the segment is made odd while a writer is inside, so any overlap is seen.
TEST(YReaderWriterLocker, ExcludeAcrossProcesses)
{
    const int readers = 3, iterations = 2000;
    const QString tokensName = semName("ptokens");
    const QString gateName = semName("pgate");
    const QByteArray segmentName = yovotest::uniqueName("pcounter").toLatin1();
    YSemaphore tokens(readers, tokensName);
    YOneLockSemaphore gate(gateName);
    YMMapAllocator segment;
    ASSERT_TRUE(segment.create(segmentName.constData(), 64));
    std::vector<std::unique_ptr<shmtest::Peer>> peers;
    for (const char* role : {"writer", "writer", "reader", "reader"}) {
        peers.emplace_back(new shmtest::Peer);
        ASSERT_TRUE(peers.back()->start(yovotest::helperPath("yshm_peer"),
            {"locker", QString::fromLatin1(segmentName), tokensName, gateName,
                QString::number(readers), QString::fromLatin1(role), QString::number(iterations)}));
    }
    for (auto& peer : peers)
        ASSERT_EQ("ready", peer->line());
    for (auto& peer : peers) {
        const QByteArray done = peer->line(120000);
        EXPECT_TRUE(done.startsWith("done 0 ")) << done.constData();
        EXPECT_EQ(0, peer->finish());
    }
    EXPECT_EQ(quint32(2 * 2 * iterations), *static_cast<quint32*>(segment.offsetToPtr(0)));
}
