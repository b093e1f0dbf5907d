// Processes that use named semaphores and segments, killed with SIGKILL at random moments, a
// thousand times: whatever a dead user leaves behind, the next creator or acquirer goes on, and a
// table that a killed writer was changing is never seen torn.
#include "shm_test_cleanup.h"
#include "shm_test_util.h"
#include "test_support.h"

#include "ymmap_hash.h"
#include "ysemaphore.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>

#include <algorithm>
#include <chrono>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

namespace {

const int ROUNDS = 1000;
const int KEYS = 64;

QString peerPath()
{
    return yovotest::helperPath("yshm_peer");
}

/// Kills helpers at moments spread from before their first call of the library to well after
/// they reported being ready, measured on this machine as it is loaded now.
class KillClock
{
public:
    explicit KillClock(const QStringList& arguments)
        : _random(std::random_device {}())
    {
        std::vector<qint64> startUs;
        for (int i = 0; i < 3; ++i) {
            shmtest::Peer peer;
            QElapsedTimer timer;
            timer.start();
            EXPECT_TRUE(peer.start(peerPath(), arguments));
            EXPECT_EQ("ready", peer.line());
            startUs.push_back(timer.nsecsElapsed() / 1000);
            peer.killHard();
        }
        std::sort(startUs.begin(), startUs.end());
        // Half again the usual start-up time to begin with; killAtRandom adjusts it.
        _rangeUs = std::max<qint64>(2000, startUs[1] * 3 / 2);
    }
    /// Starts the helper, waits a random time and kills it; true when it had said "ready".
    /// The range follows the machine's load as it changes: it widens after a kill that came
    /// before "ready" and narrows after one that came after, so that about half the kills find
    /// the helper at work and the other half before or inside its first calls.
    bool killAtRandom(shmtest::Peer& peer, const QStringList& arguments)
    {
        if (!peer.start(peerPath(), arguments))
            return false;
        const qint64 delay = std::uniform_int_distribution<qint64>(0, _rangeUs)(_random);
        std::this_thread::sleep_for(std::chrono::microseconds(delay));
        peer.killHard();
        const bool ready = peer.rest().startsWith("ready");
        _rangeUs = ready ? std::max<qint64>(2000, _rangeUs * 49 / 50)
                         : std::min<qint64>(2000000, _rangeUs * 51 / 50);
        return ready;
    }
    qint64 rangeUs() const { return _rangeUs; }

private:
    std::mt19937 _random;
    qint64 _rangeUs = 0;
};

/// Takes one token within a few seconds; a semaphore whose inner lock died with its holder
/// would hang an endless acquire, so the wait is bounded here and the failure reported.
bool takeWithin(YSemaphoreImpl& semaphore, int ms)
{
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < ms) {
        if (semaphore.tryAcquire(1))
            return true;
    }
    return false;
}

/// Every value in the table is one that a writer made whole; the entry count is what the
/// chains hold, or one less when the kill fell between the linking store and the count.
bool tableIsWhole(YMMapHash& hash, QByteArray* why)
{
    unsigned int found = 0;
    for (int i = 0; i < KEYS; ++i) {
        const QByteArray key = "key-" + QByteArray::number(i);
        QByteArray value;
        if (!hash.value(key, value))
            continue;
        ++found;
        shmtest::ValueInfo info;
        if (!shmtest::checkValue(key, value.constData(), value.size(), &info)) {
            *why = "torn value for " + key + ": " + value;
            return false;
        }
    }
    const unsigned int count = hash.getEntriesCount();
    if (found != count && found != count + 1) {
        *why = "count " + QByteArray::number(count) + " for " + QByteArray::number(found)
            + " entries";
        return false;
    }
    return true;
}

} // namespace

// A helper makes the semaphore, takes its one token and churns it; killed at any moment, the
// next creator of the name finds the token free, since nobody else held the name.
TEST(KillRoundsSoak, NextCreatorOfASemaphoreTakesItsToken)
{
    const QString name = shmtest::semaphoreName("killsem");
    const QStringList arguments {"semaphore-churn", name, "1"};
    KillClock clock(arguments);
    int ready = 0, succeeded = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        shmtest::Peer peer;
        if (clock.killAtRandom(peer, arguments))
            ++ready;
        YSemaphoreImpl next(1, name.toLatin1().constData());
        if (next.isOk() && next.tryAcquire(1)) {
            ++succeeded;
            EXPECT_TRUE(next.release(1));
        } else {
            ADD_FAILURE() << "round " << round << ": the token stayed taken";
        }
        next.remove();
    }
    std::cout << "creators that took the token: " << succeeded << "/" << ROUNDS << "; helpers "
              << ready << " times killed after they were ready, kill range " << clock.rangeUs()
              << " us" << std::endl;
    EXPECT_EQ(ROUNDS, succeeded);
    EXPECT_GT(ready, ROUNDS / 10) << "too few kills found the helper at work";
}

// This process holds the semaphore throughout and puts two tokens in before each helper: a
// killed helper takes at most the one token it held with it, and the semaphore's own lock is
// never left held by the dead.
TEST(KillRoundsSoak, AcquirerKilledInsideTheSemaphoreLeavesItUsable)
{
    const QString name = shmtest::semaphoreName("killacq");
    YSemaphoreImpl semaphore(0, name.toLatin1().constData());
    ASSERT_TRUE(semaphore.isOk());
    const QStringList arguments {"semaphore-churn", name, "0"};
    // One token for each of the clock's three helpers, which may each die holding it.
    ASSERT_TRUE(semaphore.release(3));
    KillClock clock(arguments);
    while (semaphore.tryAcquire(1)) { }
    int ready = 0, succeeded = 0, lost = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        ASSERT_TRUE(semaphore.release(2));
        shmtest::Peer peer;
        if (clock.killAtRandom(peer, arguments))
            ++ready;
        if (!takeWithin(semaphore, 5000)) {
            ADD_FAILURE() << "round " << round << ": no token within 5 seconds";
            continue;
        }
        ++succeeded;
        int more = 0;
        while (semaphore.tryAcquire(1))
            ++more;
        ASSERT_LE(more, 1) << "round " << round << ": tokens appeared from nowhere";
        lost += 1 - more;
    }
    std::cout << "acquirers that got a token: " << succeeded << "/" << ROUNDS
              << "; tokens that died with their holder: " << lost << "; helpers " << ready
              << " times killed after they were ready" << std::endl;
    EXPECT_EQ(ROUNDS, succeeded);
    EXPECT_GT(ready, ROUNDS / 10) << "too few kills found the helper at work";
    semaphore.remove();
}

// A helper creates a table and writes to it; killed at any moment, it leaves a segment that
// nobody holds, and the next creator of the name gets a fresh, empty table.
TEST(KillRoundsSoak, NextCreatorOfASegmentGetsAFreshTable)
{
    const QString name = yovotest::uniqueName("killseg");
    const QByteArray name8 = name.toLatin1();
    const unsigned int size = 1u << 20;
    const QStringList arguments {
        "hash-churn", "create", name, QString::number(size), QString::number(KEYS)};
    KillClock clock(arguments);
    int ready = 0, succeeded = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        shmtest::Peer peer;
        if (clock.killAtRandom(peer, arguments))
            ++ready;
        YMMapHash next;
        if (!next.create(name8.constData(), size)) {
            ADD_FAILURE() << "round " << round << ": " << qPrintable(next.errorString());
            continue;
        }
        if (next.getEntriesCount() != 0 || next.getAllocator().memUsage() != 2036
            || next.getAllocator().memSize() != long(size) + 2036) {
            ADD_FAILURE() << "round " << round << ": the new table is not fresh";
            continue;
        }
        ++succeeded;
    }
    std::cout << "creators with a fresh table: " << succeeded << "/" << ROUNDS << "; helpers "
              << ready << " times killed after they were ready" << std::endl;
    EXPECT_EQ(ROUNDS, succeeded);
    EXPECT_GT(ready, ROUNDS / 10) << "too few kills found the helper at work";
}

// This process holds a table; each helper attaches and replaces and adds entries with
// atomicInsert until it is killed. After every kill the table is whole, and another attacher
// sees the same table and can write to it.
TEST(KillRoundsSoak, TableIsNeverSeenTornAfterAWriterIsKilled)
{
    const QString name = yovotest::uniqueName("killtab");
    const QByteArray name8 = name.toLatin1();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name8.constData(), 16u << 20)) << qPrintable(hash.errorString());
    const QStringList arguments {"hash-churn", "attach", name, "0", QString::number(KEYS)};
    KillClock clock(arguments);
    int ready = 0, whole = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        // Every replacement costs new space: start again well before the segment is full.
        if (hash.getAllocator().memUsage() > hash.getAllocator().memSize() / 2)
            hash.clear();
        shmtest::Peer peer;
        if (clock.killAtRandom(peer, arguments))
            ++ready;
        QByteArray why;
        if (!tableIsWhole(hash, &why)) {
            ADD_FAILURE() << "round " << round << ": " << why.constData();
            continue;
        }
        YMMapHash other;
        if (!other.attach(name8.constData()) || other.getEntriesCount() != hash.getEntriesCount()
            || !tableIsWhole(other, &why)) {
            ADD_FAILURE() << "round " << round << ": a new attacher sees another table";
            continue;
        }
        const QByteArray key = "key-" + QByteArray::number(round % KEYS);
        if (!other.atomicInsert(key, shmtest::makeValue(key, 1, quint64(round), 5))) {
            ADD_FAILURE() << "round " << round << ": " << qPrintable(other.errorString());
            continue;
        }
        ++whole;
    }
    std::cout << "tables seen whole: " << whole << "/" << ROUNDS << "; helpers " << ready
              << " times killed after they were ready; " << hash.getEntriesCount()
              << " entries at the end" << std::endl;
    EXPECT_EQ(ROUNDS, whole);
    EXPECT_GT(ready, ROUNDS / 10) << "too few kills found the helper at work";
}
