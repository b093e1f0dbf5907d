#include "yexception.h"
#include "ythread.h"

#include "test_support.h"

#include <gtest/gtest.h>

#include <QFileInfo>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <unistd.h>

using yovotest::Gate;

namespace {

bool taskExists(unsigned long id)
{
    return QFileInfo::exists(QStringLiteral("/proc/self/task/%1").arg(id));
}

QString blockHeader(unsigned long id)
{
    return QStringLiteral("Event Backtrace for thread%1\n").arg(id);
}

// Records what it sees from inside its own run.
class RecordingThread : public YThread
{
public:
    explicit RecordingThread(const char* name = "thread")
        : YThread(name)
    {
    }
    void run() override
    {
        _go.wait();
        _ranOn = static_cast<unsigned long>(gettid());
        try {
            _current = getCurrentThread();
        } catch (const YException& e) {
            _error = QString::fromLatin1(e.what());
        }
        _done.open();
    }
    Gate _go;
    Gate _done;
    unsigned long _ranOn = 0;
    const YThread* _current = nullptr;
    QString _error;
};

class CountingRunnable : public YRunnable
{
public:
    void run() override { ++_runs; }
    int _runs = 0;
};

class OwnRunThread : public YThread
{
public:
    OwnRunThread(YRunnable* runnable)
        : YThread(runnable, "with runnable")
    {
    }
    void run() override { ++_ownRuns; }
    int _ownRuns = 0;
};

// Spins for ever after it has said that it runs: a loop without a single cancellation point.
class EndlessThread : public YThread
{
public:
    void run() override
    {
        _running.open();
        for (;;)
            asm volatile("" ::: "memory");
    }
    Gate _running;
};

class SleepingThread : public YThread
{
public:
    void run() override
    {
        _running.open();
        sleepMilli(1000u * 1000u * 1000u);
    }
    Gate _running;
};

class BlockedThread : public YThread
{
public:
    explicit BlockedThread(std::mutex* mutex)
        : _mutex(mutex)
    {
    }
    void run() override
    {
        _running.open();
        _mutex->lock();
        _mutex->unlock();
        _gotTheLock = true;
    }
    std::mutex* _mutex;
    Gate _running;
    std::atomic<bool> _gotTheLock {false};
};

} // namespace

TEST(YThread, NameAndDispatcher)
{
    YThread unnamed;
    EXPECT_EQ(QStringLiteral("thread"), unnamed.getName());
    YThread named("worker");
    EXPECT_EQ(QStringLiteral("worker"), named.getName());
    CountingRunnable runnable;
    YThread withRunnable(&runnable);
    EXPECT_EQ(QStringLiteral("thread"), withRunnable.getName());
    // A thread is a handler of the global dispatcher.
    EXPECT_EQ(&YEventDispatcher::get(), named.getDispatcher());
}

TEST(YThread, IdIsSetByStartAndZeroAfterJoin)
{
    RecordingThread thread;
    EXPECT_EQ(0ul, thread.getId());
    thread.start();
    const unsigned long id = thread.getId();
    EXPECT_NE(0ul, id);
    thread._go.open();
    thread.join();
    EXPECT_EQ(0ul, thread.getId());
    EXPECT_EQ(id, thread._ranOn);
}

TEST(YThread, RunsItsOwnRunWithoutRunnable)
{
    CountingRunnable runnable;
    OwnRunThread thread(nullptr);
    thread.start();
    thread.join();
    EXPECT_EQ(1, thread._ownRuns);
    EXPECT_EQ(0, runnable._runs);
}

TEST(YThread, RunsTheRunnableInsteadOfRun)
{
    CountingRunnable runnable;
    OwnRunThread thread(&runnable);
    EXPECT_EQ(QStringLiteral("with runnable"), thread.getName());
    thread.start();
    thread.join();
    EXPECT_EQ(1, runnable._runs);
    EXPECT_EQ(0, thread._ownRuns);
}

TEST(YThread, GetCurrentThreadGivesTheRunningObject)
{
    RecordingThread thread;
    thread.start();
    // Only now is the thread in the registry: start inserts after the thread runs.
    thread._go.open();
    thread.join();
    EXPECT_TRUE(thread._error.isEmpty()) << thread._error.toStdString();
    EXPECT_EQ(&thread, thread._current);
}

TEST(YThread, GetCurrentThreadOnAnUnregisteredThreadThrowsWithItsId)
{
    unsigned long id = 0;
    QString text;
    std::thread foreign([&] {
        id = static_cast<unsigned long>(gettid());
        try {
            YThread::getCurrentThread();
        } catch (const YException& e) {
            text = QString::fromLatin1(e.what());
        }
    });
    foreign.join();
    ASSERT_NE(0ul, id);
    EXPECT_TRUE(text.endsWith(
        QStringLiteral(" Thread %1 was not registered. Please call the developers").arg(id)))
        << text.toStdString();
    // Source names are relative to the source root, whatever folder the library was built in.
    EXPECT_TRUE(text.startsWith(QStringLiteral("src/ycore/ythread.cpp:"))) << text.toStdString();
}

TEST(YThread, MainThreadIsNotRegisteredByItself)
{
    const unsigned long id = static_cast<unsigned long>(gettid());
    try {
        YThread::getCurrentThread();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).endsWith(
            QStringLiteral("Thread %1 was not registered. Please call the developers").arg(id)));
    }
}

TEST(YThread, ExternalThreadIsRegisteredWithoutObject)
{
    const unsigned long id = static_cast<unsigned long>(gettid());
    YThread::registerExternalThread(id);
    EXPECT_EQ(nullptr, YThread::getCurrentThread());
    EXPECT_EQ(0, YThread::getTraceCount());
}

TEST(YThread, JoinOfANeverStartedThreadRemovesTheEntryForIdZero)
{
    YThread::registerExternalThread(0);
    ASSERT_TRUE(YThread::getStackTrace(true).contains(blockHeader(0)));
    YThread thread;
    thread.join();
    EXPECT_EQ(0ul, thread.getId());
    EXPECT_FALSE(YThread::getStackTrace(true).contains(blockHeader(0)));
    thread.join();
    EXPECT_EQ(0ul, thread.getId());
}

TEST(YThread, JoinRemovesTheEntryAndASecondJoinDoesNothing)
{
    RecordingThread thread;
    thread.start();
    const unsigned long id = thread.getId();
    EXPECT_TRUE(YThread::getStackTrace(true).contains(blockHeader(id)));
    thread._go.open();
    thread.join();
    EXPECT_FALSE(YThread::getStackTrace(true).contains(blockHeader(id)));
    EXPECT_NO_THROW(thread.join());
    EXPECT_EQ(0ul, thread.getId());
}

TEST(YThread, DestructorOfANeverStartedThreadRemovesTheEntryForIdZero)
{
    YThread::registerExternalThread(0);
    {
        YThread thread;
    }
    EXPECT_FALSE(YThread::getStackTrace(true).contains(blockHeader(0)));
}

namespace {

class SelfJoiningThread : public YThread
{
public:
    void run() override
    {
        _go.wait();
        try {
            join();
        } catch (const YException& e) {
            _error = QString::fromLatin1(e.what());
        }
    }
    Gate _go;
    QString _error;
};

} // namespace

TEST(YThread, FailedWaitThrowsWithTheFixedWords)
{
#ifdef YOVO_SANITIZE_THREAD
    GTEST_SKIP() << "the race detector's join can't take a thread that joins itself";
#endif
    // A thread can't wait for its own end: the wait fails at once.
    SelfJoiningThread thread;
    thread.start();
    const unsigned long id = thread.getId();
    thread._go.open();
    thread.join();
    EXPECT_TRUE(thread._error.endsWith(
        QStringLiteral(" WaitForSingleObject() failed: TBD: call GetLastError()")))
        << thread._error.toStdString();
    EXPECT_EQ(0ul, thread.getId());
    EXPECT_FALSE(YThread::getStackTrace(true).contains(blockHeader(id)));
}

TEST(YThread, FailedCreationThrowsWithTheFixedWords)
{
    // No address space holds a default stack this large, so the system can't make the thread.
    pthread_attr_t saved;
    ASSERT_EQ(0, pthread_getattr_default_np(&saved));
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    ASSERT_EQ(0, pthread_attr_setstacksize(&huge, size_t(1) << 48));
    ASSERT_EQ(0, pthread_setattr_default_np(&huge));
    RecordingThread thread;
    QString text;
    try {
        thread.start();
    } catch (const YException& e) {
        text = QString::fromLatin1(e.what());
    }
    ASSERT_EQ(0, pthread_setattr_default_np(&saved));
    pthread_attr_destroy(&huge);
    pthread_attr_destroy(&saved);
    EXPECT_TRUE(text.endsWith(QStringLiteral(" CreateThread() failed: TBD: call GetLastError()")))
        << text.toStdString();
    EXPECT_EQ(0ul, thread.getId());
    EXPECT_FALSE(YThread::getStackTrace(true).contains(blockHeader(0)));

    // The object is usable once the system can make threads again.
    thread.start();
    thread._go.open();
    thread.join();
    EXPECT_NE(0ul, thread._ranOn);
}

TEST(YThread, DestructorKillsAnUnjoinedThreadInAnEndlessLoop)
{
    unsigned long id = 0;
    testing::internal::CaptureStderr();
    {
        EndlessThread thread;
        thread.start();
        id = thread.getId();
        thread._running.wait();
        ASSERT_TRUE(taskExists(id));
        ASSERT_TRUE(YThread::getStackTrace(true).contains(blockHeader(id)));
    }
    // The kill's inverted report is dropped: nothing is written.
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_FALSE(taskExists(id));
    EXPECT_FALSE(YThread::getStackTrace(true).contains(blockHeader(id)));

    // The process goes on: the registry lock is free and new threads run.
    RecordingThread next;
    next.start();
    next._go.open();
    next.join();
    EXPECT_EQ(&next, next._current);
}

TEST(YThread, DestructorKillsAThreadThatSleeps)
{
    unsigned long id = 0;
    {
        SleepingThread thread;
        thread.start();
        id = thread.getId();
        thread._running.wait();
    }
    EXPECT_FALSE(taskExists(id));
}

TEST(YThread, DestructorKillsAThreadBlockedOnALock)
{
    std::mutex mutex;
    mutex.lock();
    unsigned long id = 0;
    bool gotTheLock = true;
    {
        BlockedThread thread(&mutex);
        thread.start();
        id = thread.getId();
        thread._running.wait();
        // Give it the time to block; the test holds either way.
        YThread::sleepMilli(20);
        gotTheLock = thread._gotTheLock;
    }
    EXPECT_FALSE(taskExists(id));
    EXPECT_FALSE(gotTheLock);
    mutex.unlock();
}

TEST(YThread, DestructorOfAThreadThatEndedWithoutJoinIsQuiet)
{
    unsigned long id = 0;
    testing::internal::CaptureStderr();
    {
        RecordingThread thread;
        thread.start();
        id = thread.getId();
        thread._go.open();
        thread._done.wait();
        EXPECT_EQ(&thread, thread._current);
        while (taskExists(id))
            YThread::sleepMilli(1);
    }
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_FALSE(YThread::getStackTrace(true).contains(blockHeader(id)));
}

TEST(YThread, CopyIsAThreadOfItsOwnNeverStarted)
{
    CountingRunnable runnable;
    YThread source(&runnable, "source");
    YThread copy(source);
    EXPECT_EQ(QStringLiteral("source"), copy.getName());
    EXPECT_EQ(0ul, copy.getId());
    copy.start();
    copy.join();
    EXPECT_EQ(1, runnable._runs);
    EXPECT_EQ(0ul, source.getId());

    YThread assigned("other");
    assigned = source;
    EXPECT_EQ(QStringLiteral("source"), assigned.getName());
    assigned.start();
    assigned.join();
    EXPECT_EQ(2, runnable._runs);
}

TEST(YThread, JoinedThreadCanBeStartedAgain)
{
    CountingRunnable runnable;
    YThread thread(&runnable);
    thread.start();
    thread.join();
    thread.start();
    EXPECT_NE(0ul, thread.getId());
    thread.join();
    EXPECT_EQ(2, runnable._runs);
}

TEST(YThread, SleepsReturn)
{
    YThread::sleepMilli(0);
    YThread::sleepMilli(2);
    YThread::sleep(0);
    SUCCEED();
}

namespace {

class ThrowingThread : public YThread
{
public:
    void run() override { throw YException("left run"); }
};

} // namespace

TEST(YThreadDeathTest, ExceptionLeavingRunEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            ThrowingThread thread;
            thread.start();
            thread.join();
        },
        "");
}
