#include "ysemaphore.h"

#include "test_support.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QProcess>

#include <chrono>
#include <csignal>
#include <random>
#include <thread>

using yovotest::uniqueName;

namespace {

QByteArray nameOf(const char* prefix)
{
    return uniqueName(prefix).toLatin1();
}

// A helper process that keeps running until the test ends it.
class Peer
{
public:
    Peer(const QStringList& arguments)
    {
        _process.setProcessChannelMode(QProcess::MergedChannels);
        _process.start(yovotest::helperPath("ysemaphore_helper"), arguments);
    }
    ~Peer() { kill(); }
    bool waitFor(const QByteArray& text, int timeoutMs = 10000)
    {
        while (!_output.contains(text)) {
            if (!_process.waitForReadyRead(timeoutMs))
                return false;
            _output += _process.readAll();
        }
        return true;
    }
    bool isRunning() { return _process.state() == QProcess::Running; }
    bool finish(int timeoutMs = 10000)
    {
        bool done = _process.waitForFinished(timeoutMs);
        _output += _process.readAll();
        return done && _process.exitStatus() == QProcess::NormalExit && _process.exitCode() == 0;
    }
    void kill()
    {
        if (_process.state() != QProcess::NotRunning) {
            ::kill(pid_t(_process.processId()), SIGKILL);
            _process.waitForFinished(5000);
        }
    }
    const QByteArray& output() const { return _output; }

private:
    QProcess _process;
    QByteArray _output;
};

} // namespace

TEST(YSemaphoreImpl, CountZeroMeansUnlimitedMaximumButReportsZero)
{
    const QByteArray name = nameOf("zero");
    YSemaphoreImpl semaphore(0, name.constData());
    ASSERT_TRUE(semaphore.isOk());
    EXPECT_EQ(0u, semaphore.getMaxCount());
    EXPECT_FALSE(semaphore.tryAcquire(1)); // initial count 0
    EXPECT_TRUE(semaphore.release(0x7FFFFFFF));
    EXPECT_FALSE(semaphore.release(1)); // the maximum is 0x7FFFFFFF
    EXPECT_TRUE(semaphore.tryAcquire(2));
    semaphore.remove();
}

TEST(YSemaphoreImpl, AcquireAndReleaseOfZeroTokensTouchNothing)
{
    const QByteArray name = nameOf("none");
    YSemaphoreImpl semaphore(1, name.constData());
    EXPECT_TRUE(semaphore.acquire(0));
    EXPECT_TRUE(semaphore.release(0));
    EXPECT_TRUE(semaphore.tryAcquire(1));
    EXPECT_FALSE(semaphore.tryAcquire(1));
    EXPECT_TRUE(semaphore.release(1));
    semaphore.remove();
}

TEST(YSemaphoreImpl, NullHandleLogsAndFailsEvenForZeroTokens)
{
    // Longer than any shared-memory name may be, so the system refuses to make it.
    const QByteArray name(300, 'n');
    testing::internal::CaptureStderr();
    YSemaphoreImpl semaphore(1, name.constData());
    EXPECT_FALSE(semaphore.isOk());
    EXPECT_FALSE(semaphore.acquire(0));
    EXPECT_FALSE(semaphore.release(0));
    EXPECT_FALSE(semaphore.tryAcquire(1));
    const QByteArray log = yovotest::maskTimestamps(
        QByteArray::fromStdString(testing::internal::GetCapturedStderr()));
    const QList<QByteArray> lines = log.split('\n');
    ASSERT_EQ(5, lines.size());
    EXPECT_EQ(QByteArray("[<TS> ERROR] YSemaphoreImpl : Could not create semaphore ") + name
            + " . Reason :  22 \r",
        lines[0])
        << lines[0].constData();
    EXPECT_TRUE(lines[1].startsWith("[<TS> ERROR] [ "));
    EXPECT_TRUE(lines[1].endsWith(" ( YSemaphoreImpl::doAcquire ) ] invalid semaphore handle \r"))
        << lines[1].constData();
    EXPECT_TRUE(lines[2].endsWith(" ( YSemaphoreImpl::release ) ] invalid semaphore handle \r"))
        << lines[2].constData();
    EXPECT_TRUE(lines[3].endsWith(" ( YSemaphoreImpl::doAcquire ) ] invalid semaphore handle \r"));
}

TEST(YSemaphoreImpl, TryAcquireGivesBackPartialTokensSilently)
{
    const QByteArray name = nameOf("partial");
    YSemaphoreImpl semaphore(2, name.constData());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(semaphore.tryAcquire(3));
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_TRUE(semaphore.tryAcquire(2)); // both tokens came back
    EXPECT_TRUE(semaphore.release(2));
    semaphore.remove();
}

TEST(YSemaphoreImpl, ReleaseBeyondMaximumFailsAndChangesNothing)
{
    const QByteArray name = nameOf("max");
    YSemaphoreImpl semaphore(2, name.constData());
    ASSERT_TRUE(semaphore.tryAcquire(1));
    testing::internal::CaptureStderr();
    EXPECT_FALSE(semaphore.release(2));
    const QByteArray log = yovotest::maskTimestamps(
        QByteArray::fromStdString(testing::internal::GetCapturedStderr()));
    EXPECT_EQ("[<TS> ERROR] YSemaphoreImpl::release error. Reason :  75 \r\n", log);
    EXPECT_TRUE(semaphore.tryAcquire(1));
    EXPECT_FALSE(semaphore.tryAcquire(1)); // the failed release added nothing
    semaphore.remove();
}

TEST(YSemaphoreImpl, SecondObjectSharesFirstCreatorsCountButReportsItsOwn)
{
    const QByteArray name = nameOf("shared");
    YSemaphoreImpl first(1, name.constData());
    YSemaphoreImpl second(5, name.constData());
    EXPECT_EQ(1u, first.getMaxCount());
    EXPECT_EQ(5u, second.getMaxCount());
    EXPECT_TRUE(second.tryAcquire(1));
    EXPECT_FALSE(first.tryAcquire(1));
    EXPECT_FALSE(second.tryAcquire(1));
    EXPECT_TRUE(first.release(1));
    EXPECT_FALSE(second.release(1)); // the maximum is the first creator's: 1
    second.remove();
    first.remove();
}

TEST(YSemaphoreImpl, GetCurrentCountIsNotAvailable)
{
    const QByteArray name = nameOf("count");
    YSemaphoreImpl semaphore(1, name.constData());
    for (int i = 0; i < 2; ++i) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(-1, semaphore.getCurrentCount());
        EXPECT_EQ("ERROR: getCurrentCount() in YSemaphore is not implemented for windows "
                  "currently!\n",
            testing::internal::GetCapturedStderr());
    }
    semaphore.remove();
}

TEST(YSemaphoreImpl, RemoveTwiceIsHarmless)
{
    const QByteArray name = nameOf("remove");
    YSemaphoreImpl semaphore(1, name.constData());
    EXPECT_TRUE(semaphore.isOk());
    semaphore.remove();
    EXPECT_FALSE(semaphore.isOk());
    semaphore.remove();
    EXPECT_FALSE(semaphore.isOk());
    EXPECT_EQ(QString(), semaphore.errorString());
}

TEST(YSemaphoreImpl, CopyNamesTheSameSemaphore)
{
    const QByteArray name = nameOf("copy");
    YSemaphoreImpl semaphore(1, name.constData());
    YSemaphoreImpl copy(semaphore);
    EXPECT_TRUE(copy.tryAcquire(1));
    EXPECT_FALSE(semaphore.tryAcquire(1));
    EXPECT_TRUE(semaphore.release(1));
    semaphore.remove();
}

TEST(YSemaphoreImpl, LastRemoveLetsNextCreatorStartAfresh)
{
    const QByteArray name = nameOf("afresh");
    {
        YSemaphoreImpl semaphore(2, name.constData());
        ASSERT_TRUE(semaphore.tryAcquire(2));
        semaphore.remove(); // the only user: the semaphore is gone, tokens and all
    }
    YSemaphoreImpl again(1, name.constData());
    EXPECT_TRUE(again.tryAcquire(1));
    EXPECT_FALSE(again.tryAcquire(1)); // the new creator's count, 1
    again.remove();
}

TEST(YSemaphore, InvalidNameThrows)
{
    try {
        YSemaphore semaphore(1, "a/b");
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ("YSemaphore: invalid semaphore name a/b", e.what());
    }
    EXPECT_THROW(YSemaphore(1, ""), YException);
    EXPECT_THROW(YSemaphore(1, static_cast<const char*>(nullptr)), YException);
    EXPECT_THROW(YSemaphore(1, "Global\\x"), YException);
    EXPECT_THROW(YSemaphore(1, QString::fromUtf8("caf\xc3\xa9")), YException);
}

TEST(YSemaphore, ValidNamesAreTaken)
{
    EXPECT_TRUE(YSemaphore::isValidName(QStringLiteral("app_1.log-rotation")));
    const QByteArray name = nameOf("valid.name-1");
    YOneLockSemaphore lock(name.constData());
    EXPECT_TRUE(lock.isOk());
    EXPECT_EQ(1u, lock.getMaxCount());
    EXPECT_TRUE(lock.acquire());
    EXPECT_FALSE(lock.tryAcquire());
    EXPECT_TRUE(lock.release());
    lock.remove();
}

TEST(YSemaphoreProcesses, TwoProcessesShareOneSemaphoreByName)
{
    const QString name = uniqueName("xproc");
    Peer holder({"hold", name, "2", "1"});
    ASSERT_TRUE(holder.waitFor("held"));
    QByteArray output;
    ASSERT_EQ(0, yovotest::runHelper("ysemaphore_helper", {"try", name, "2", "2"}, 10000, &output));
    EXPECT_EQ("not taken\n", output);
    ASSERT_EQ(0, yovotest::runHelper("ysemaphore_helper", {"try", name, "2", "1"}, 10000, &output));
    EXPECT_EQ("taken\n", output);
}

TEST(YSemaphoreProcesses, LimitedWriterBlocksAndResumes)
{
    const QString name = uniqueName("limit");
    YSemaphore semaphore(3, name);
    ASSERT_TRUE(semaphore.acquire(3));
    Peer waiter({"acquire", name, "3", "1"});
    ASSERT_TRUE(waiter.waitFor("waiting"));
    EXPECT_FALSE(waiter.waitFor("acquired", 500)); // no token free: it blocks
    EXPECT_TRUE(waiter.isRunning());
    ASSERT_TRUE(semaphore.release(1));
    ASSERT_TRUE(waiter.finish());
    EXPECT_EQ("waiting\nacquired\n", waiter.output());
    EXPECT_FALSE(semaphore.tryAcquire(1)); // the waiter took the released token
    semaphore.remove();
}

TEST(YSemaphoreProcesses, SemaphoreOfKilledHoldersIsMadeAfresh)
{
    const QString name = uniqueName("killed");
    {
        Peer first({"hold", name, "1", "1"});
        ASSERT_TRUE(first.waitFor("held"));
        Peer second({"acquire", name, "1", "1"});
        ASSERT_TRUE(second.waitFor("waiting"));
        EXPECT_FALSE(second.waitFor("acquired", 300));
        first.kill();
        second.kill();
    }
    // Nobody holds the name any more: the next creator gets a fresh semaphore with its count.
    YSemaphore fresh(1, name);
    ASSERT_TRUE(fresh.isOk());
    EXPECT_TRUE(fresh.tryAcquire(1));
    EXPECT_TRUE(fresh.release(1));
    fresh.remove();
}

TEST(YSemaphoreProcesses, TokensOfDeadHolderStayTakenWhileOthersHoldTheName)
{
    const QString name = uniqueName("dead");
    YSemaphore semaphore(1, name);
    {
        Peer holder({"hold", name, "1", "1"});
        ASSERT_TRUE(holder.waitFor("held"));
        holder.kill();
    }
    // As on the system this models: nothing recovers a token that a dead process held.
    EXPECT_FALSE(semaphore.tryAcquire(1));
    semaphore.remove();
}

// Processes killed again and again while they time out in tryAcquire, in four threads at once:
// whatever moment a kill finds, the next user of the semaphore must neither hang nor lose a
// token. A checker process of its own takes the token, so that a hang is seen as one.
TEST(YSemaphoreProcesses, UsersKilledWhileTheyWaitNeverLeaveTheSemaphoreStuck)
{
    const QString name = uniqueName("killed");
    YSemaphore semaphore(0, name);
    ASSERT_TRUE(semaphore.isOk());
    std::mt19937 random(std::random_device {}());
    for (int round = 0; round < 150; ++round) {
        {
            Peer spinner({"spin", name, "0", "1"});
            ASSERT_TRUE(spinner.waitFor("spinning"));
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
            spinner.kill();
        }
        ASSERT_TRUE(semaphore.release(1));
        QByteArray output;
        ASSERT_EQ(
            0, yovotest::runHelper("ysemaphore_helper", {"try", name, "0", "1"}, 10000, &output))
            << "round " << round << ": the semaphore hangs after a killed waiter";
        ASSERT_EQ("taken\n", output) << "round " << round;
    }
    semaphore.remove();
}
