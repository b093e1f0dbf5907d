#include "stateful_iterative_thread.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <atomic>
#include <stdexcept>

namespace {

// Counts its steps; throws at the step given, in the operation given.
class Worker : public YStatefulIterativeThread
{
public:
    explicit Worker(const char* name = "thread")
        : YStatefulIterativeThread(name)
    {
    }

    void preProcess() override
    {
        record(QStringLiteral("pre"));
        if (_throwIn == QLatin1String("pre"))
            throw YException("failed in pre");
    }
    void postProcess() override
    {
        record(QStringLiteral("post"));
        if (_throwIn == QLatin1String("post"))
            throw YException("failed in post");
    }
    void handleError(const YException& e) override
    {
        record(QStringLiteral("error: ") + QString::fromLatin1(e.what()));
        if (_rethrow)
            YStatefulIterativeThread::handleError(e);
    }

    std::atomic<int> _begun {0};
    std::atomic<int> _ended {0};
    std::atomic<int> _stopAfter {-1};
    QString _throwIn;
    int _throwAtStep = -1;
    bool _foreign = false;
    bool _rethrow = false;
    QStringList _log;

protected:
    void doIteration() override
    {
        const int step = ++_begun;
        if (step == _throwAtStep) {
            if (_foreign)
                throw std::runtime_error("foreign");
            throw YException("failed in step");
        }
        if (step == _stopAfter)
            stop();
        ++_ended;
    }

private:
    void record(const QString& what) { _log.append(what); }
};

} // namespace

TEST(YStatefulIterativeThread, InitialState)
{
    Worker worker;
    EXPECT_EQ(YStatefulIterativeThread::NOT_RUNNING, worker.getState());
    EXPECT_EQ(0, int(worker.getState()));
    EXPECT_FALSE(worker.isStopping());
    EXPECT_EQ(QStringLiteral("thread"), worker.getName());
    EXPECT_EQ(QStringLiteral("named"), Worker("named").getName());
}

TEST(YStatefulIterativeThread, StopBeforeStartRunsPreAndPostButNoStep)
{
    Worker worker;
    worker.stop();
    worker.start();
    worker.join();
    EXPECT_EQ(QStringList({"pre", "post"}), worker._log);
    EXPECT_EQ(0, worker._begun);
    EXPECT_EQ(YStatefulIterativeThread::FINISHED, worker.getState());
    EXPECT_EQ(2, int(worker.getState()));
}

TEST(YStatefulIterativeThread, CooperativeStopTakesEffectAtTheNextBoundary)
{
    Worker worker;
    worker.start();
    while (worker._begun < 3)
        YThread::sleepMilli(1);
    EXPECT_EQ(YStatefulIterativeThread::RUNNING, worker.getState());
    worker.stop();
    worker.join();
    EXPECT_EQ(YStatefulIterativeThread::FINISHED, worker.getState());
    // No step was cut short.
    EXPECT_EQ(worker._begun.load(), worker._ended.load());
    EXPECT_EQ(QStringList({"pre", "post"}), worker._log);
}

TEST(YStatefulIterativeThread, StopFromInsideAStepEndsAfterThatStep)
{
    Worker worker;
    worker._stopAfter = 4;
    worker.start();
    worker.join();
    EXPECT_EQ(4, worker._begun);
    EXPECT_EQ(4, worker._ended);
    EXPECT_EQ(YStatefulIterativeThread::FINISHED, worker.getState());
}

TEST(YStatefulIterativeThread, SecondStopChangesNothing)
{
    Worker worker;
    worker.stop();
    EXPECT_TRUE(worker.isStopping());
    worker.stop();
    EXPECT_TRUE(worker.isStopping());
    EXPECT_EQ(YStatefulIterativeThread::NOT_RUNNING, worker.getState());
    worker.start();
    worker.join();
    EXPECT_EQ(QStringList({"pre", "post"}), worker._log);
    EXPECT_EQ(0, worker._begun);
    worker.stop();
    EXPECT_TRUE(worker.isStopping());
    EXPECT_EQ(YStatefulIterativeThread::FINISHED, worker.getState());
}

TEST(YStatefulIterativeThread, HandledStepFailureLeavesTheStateAtOne)
{
    Worker worker;
    worker._throwAtStep = 3;
    worker.start();
    worker.join();
    EXPECT_EQ(QStringList({"pre", "error: failed in step"}), worker._log);
    EXPECT_EQ(3, worker._begun);
    EXPECT_EQ(2, worker._ended);
    EXPECT_EQ(YStatefulIterativeThread::RUNNING, worker.getState());
    EXPECT_FALSE(worker.isStopping());
}

TEST(YStatefulIterativeThread, FailureInPreProcessRunsNoStep)
{
    Worker worker;
    worker._throwIn = QStringLiteral("pre");
    worker.start();
    worker.join();
    EXPECT_EQ(QStringList({"pre", "error: failed in pre"}), worker._log);
    EXPECT_EQ(0, worker._begun);
    EXPECT_EQ(YStatefulIterativeThread::RUNNING, worker.getState());
}

TEST(YStatefulIterativeThread, FailureInPostProcessLeavesTheStateAtOne)
{
    Worker worker;
    worker._throwIn = QStringLiteral("post");
    worker.stop();
    worker.start();
    worker.join();
    EXPECT_EQ(QStringList({"pre", "post", "error: failed in post"}), worker._log);
    EXPECT_EQ(YStatefulIterativeThread::RUNNING, worker.getState());
}

TEST(YStatefulIterativeThread, DefaultHandleErrorThrowsACopy)
{
    Worker worker;
    worker._throwAtStep = 1;
    worker._rethrow = true;
    try {
        worker.run();
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ("failed in step", e.what());
    }
    EXPECT_EQ(QStringList({"pre", "error: failed in step"}), worker._log);
    EXPECT_EQ(YStatefulIterativeThread::RUNNING, worker.getState());
}

TEST(YStatefulIterativeThread, OtherExceptionsAreNotCaught)
{
    Worker worker;
    worker._throwAtStep = 2;
    worker._foreign = true;
    EXPECT_THROW(worker.run(), std::runtime_error);
    EXPECT_EQ(QStringList({"pre"}), worker._log);
    EXPECT_EQ(YStatefulIterativeThread::RUNNING, worker.getState());
}

TEST(YStatefulIterativeThread, CopyIsMemberWise)
{
    Worker worker("copied");
    worker.stop();
    worker.run();
    YStatefulIterativeThread& base = worker;
    Worker copy("other");
    static_cast<YStatefulIterativeThread&>(copy) = base;
    EXPECT_TRUE(copy.isStopping());
    EXPECT_EQ(YStatefulIterativeThread::FINISHED, copy.getState());
    EXPECT_EQ(QStringLiteral("copied"), copy.getName());
    EXPECT_EQ(0ul, copy.getId());
}

namespace {

class UnhandledWorker : public YStatefulIterativeThread
{
protected:
    void doIteration() override { throw YException("nobody handles this"); }
};

} // namespace

TEST(YStatefulIterativeThreadDeathTest, UnhandledFailureEndsTheProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            UnhandledWorker worker;
            worker.start();
            worker.join();
        },
        "");
}
