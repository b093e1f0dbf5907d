// One YMMapHash object shared by the threads of one process, under the lockers as its users are
// told to: readers hold a YReaderLocker around value and contains, writers a YWriterLocker around
// every change. Also run under the thread sanitizer, which sees the lockers' semaphores.
#include "shm_test_cleanup.h"
#include "shm_test_util.h"
#include "test_support.h"

#include "ymmap_hash.h"
#include "yreader_writer_locker.h"
#include "ysemaphore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

TEST(YMMapHashThreads, OneTableSharedByThreadsUnderTheLockers)
{
    const int readerCount = 4, writerCount = 2, perWriter = 100, shared = 20;
    const QByteArray name = yovotest::uniqueName("thash").toLatin1();
    YSemaphore tokens(readerCount, shmtest::semaphoreName("ttokens"));
    YOneLockSemaphore gate(shmtest::semaphoreName("tgate"));
    ASSERT_TRUE(tokens.isOk());
    ASSERT_TRUE(gate.isOk());
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 64u << 20)) << hash.errorString().toStdString();
    for (int i = 0; i < shared; ++i) {
        const QByteArray key = "shared-" + QByteArray::number(i);
        ASSERT_TRUE(hash.insert(key, shmtest::makeValue(key, 9, 0, i)));
    }

    std::atomic<bool> stop(false);
    std::atomic<long> seen(0), torn(0), lockFailures(0), entries(shared);
    std::vector<std::vector<bool>> live(writerCount, std::vector<bool>(perWriter, false));
    std::vector<std::thread> threads;
    for (int w = 0; w < writerCount; ++w) {
        threads.emplace_back([&, w] {
            std::mt19937 random(unsigned(w) + 1);
            for (quint64 seq = 1; !stop.load(); ++seq) {
                const int i = int(random() % perWriter);
                const QByteArray own = "w" + QByteArray::number(w) + "-" + QByteArray::number(i);
                const QByteArray common = "shared-" + QByteArray::number(int(random() % shared));
                YWriterLocker locker(&tokens, &gate);
                if (!locker.isLocked()) {
                    ++lockFailures;
                    continue;
                }
                // A removed entry may stay findable behind an earlier removal in its chain, which
                // is how the table behaves: what counts is what it says, under the lock.
                if (random() % 3 == 0) {
                    if (hash.remove(own))
                        entries.fetch_sub(1);
                } else {
                    if (!hash.contains(own))
                        entries.fetch_add(1);
                    EXPECT_TRUE(hash.insert(own, shmtest::makeValue(own, w, seq, int(seq % 40))));
                }
                live[size_t(w)][size_t(i)] = hash.contains(own);
                // Values of every length, so that inserts both reuse and move a value's space.
                hash.insert(common, shmtest::makeValue(common, w, seq, int(random() % 60)));
            }
        });
    }
    for (int r = 0; r < readerCount; ++r) {
        threads.emplace_back([&, r] {
            std::mt19937 random(unsigned(r) + 100);
            while (!stop.load()) {
                const QByteArray key = random() % 2
                    ? "shared-" + QByteArray::number(int(random() % shared))
                    : "w" + QByteArray::number(int(random() % writerCount)) + "-"
                        + QByteArray::number(int(random() % perWriter));
                YReaderLocker locker(&tokens, &gate);
                if (!locker.isLocked()) {
                    ++lockFailures;
                    continue;
                }
                QByteArray value;
                if (hash.contains(key) && hash.value(key, value)) {
                    ++seen;
                    shmtest::ValueInfo info;
                    if (!shmtest::checkValue(key, value.constData(), value.size(), &info))
                        ++torn;
                }
            }
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));
    stop.store(true);
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_EQ(0, lockFailures.load());
    EXPECT_EQ(0, torn.load());
    EXPECT_GT(seen.load(), 0);
    for (int w = 0; w < writerCount; ++w) {
        for (int i = 0; i < perWriter; ++i) {
            const QByteArray key = "w" + QByteArray::number(w) + "-" + QByteArray::number(i);
            EXPECT_EQ(bool(live[size_t(w)][size_t(i)]), hash.contains(key)) << key.constData();
        }
    }
    for (int i = 0; i < shared; ++i) {
        const QByteArray key = "shared-" + QByteArray::number(i);
        QByteArray value;
        ASSERT_TRUE(hash.value(key, value));
        shmtest::ValueInfo info;
        EXPECT_TRUE(shmtest::checkValue(key, value.constData(), value.size(), &info));
    }
    EXPECT_EQ(unsigned(entries.load()), hash.getEntriesCount());
}
