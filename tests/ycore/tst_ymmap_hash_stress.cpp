// Long runs of several processes on one table. Slow on purpose.
#include "shm_test_cleanup.h"
#include "shm_test_util.h"
#include "test_support.h"

#include "ymmap_hash.h"
#include "ysemaphore.h"

#include <gtest/gtest.h>

#include <QSet>

#include <iostream>
#include <memory>
#include <vector>

namespace {

QString peerPath()
{
    return yovotest::helperPath("yshm_peer");
}

QList<QByteArray> fields(const QByteArray& line)
{
    return line.split(' ');
}

} // namespace

// 4 reader and 2 writer processes for 10 seconds on one table under the lockers: every value a
// reader sees is whole and was written, and the entry count at the end is right.
TEST(YMMapHashStress, ReadersAndWritersInProcessesUnderTheLockers)
{
    const int readers = 4, writers = 2, seconds = 10, shared = 50, perWriter = 200;
    const QString table = yovotest::uniqueName("rwtable");
    const QString tokens = shmtest::semaphoreName("rwtokens");
    const QString gate = shmtest::semaphoreName("rwgate");
    // The first creator's count stands: make the pair here, before any peer.
    YSemaphore tokenSemaphore(readers, tokens);
    YOneLockSemaphore gateSemaphore(gate);
    ASSERT_TRUE(tokenSemaphore.isOk());
    ASSERT_TRUE(gateSemaphore.isOk());
    YMMapHash hash;
    ASSERT_TRUE(hash.create(table.toLatin1().constData(), 256u << 20));

    std::vector<std::unique_ptr<shmtest::Peer>> peers;
    for (int w = 0; w < writers; ++w) {
        peers.emplace_back(new shmtest::Peer);
        ASSERT_TRUE(peers.back()->start(peerPath(),
            {"rw-writer", table, tokens, gate, QString::number(readers), QString::number(w),
                QString::number(seconds), QString::number(shared), QString::number(perWriter)}));
    }
    for (int r = 0; r < readers; ++r) {
        peers.emplace_back(new shmtest::Peer);
        ASSERT_TRUE(peers.back()->start(peerPath(),
            {"rw-reader", table, tokens, gate, QString::number(readers), QString::number(seconds),
                QString::number(shared), QString::number(perWriter), QString::number(writers)}));
    }
    for (auto& peer : peers)
        ASSERT_EQ("ready", peer->line());

    unsigned int expected = unsigned(shared);
    QList<QSet<int>> live;
    for (int w = 0; w < writers; ++w) {
        const QByteArray liveLine = peers[size_t(w)]->line(seconds * 1000 + 60000);
        ASSERT_TRUE(liveLine.startsWith("live")) << liveLine.constData();
        QSet<int> keys;
        for (const QByteArray& k : fields(liveLine).mid(1))
            keys.insert(k.toInt());
        live.append(keys);
        expected += unsigned(keys.size());
        const QByteArray done = peers[size_t(w)]->line();
        EXPECT_TRUE(done.startsWith("done")) << done.constData();
        std::cout << "writer " << w << ": " << done.constData() << std::endl;
        EXPECT_EQ(0, peers[size_t(w)]->finish()) << done.constData();
    }
    quint64 totalFound = 0;
    for (int r = 0; r < readers; ++r) {
        shmtest::Peer& peer = *peers[size_t(writers + r)];
        const QByteArray done = peer.line(seconds * 1000 + 60000);
        std::cout << "reader " << r << ": " << done.constData() << std::endl;
        const QList<QByteArray> f = fields(done);
        ASSERT_EQ(4, f.size()) << done.constData();
        EXPECT_EQ("0", f[3]) << "values seen torn or never written";
        EXPECT_GT(f[1].toULongLong(), 0u);
        totalFound += f[2].toULongLong();
        EXPECT_EQ(0, peer.finish());
    }
    EXPECT_GT(totalFound, 0u);

    EXPECT_EQ(expected, hash.getEntriesCount());
    for (int w = 0; w < writers; ++w) {
        for (int i = 0; i < perWriter; ++i) {
            const QByteArray key = "w" + QByteArray::number(w) + "-" + QByteArray::number(i);
            EXPECT_EQ(live[w].contains(i), hash.contains(key)) << key.constData();
        }
    }
    for (int i = 0; i < shared; ++i)
        EXPECT_TRUE(hash.contains("shared-" + QByteArray::number(i)));
}

// Readers in other processes without any lock, against a writer that uses atomicInsert only:
// never a torn value.
TEST(YMMapHashStress, LockFreeReadersAgainstAtomicInsertInProcesses)
{
    const int readers = 3, keys = 100, rounds = 3000;
    const QString table = yovotest::uniqueName("atable");
    YMMapHash hash;
    ASSERT_TRUE(hash.create(table.toLatin1().constData(), 128u << 20));
    // Every key exists before the readers start, so that they always have something to read.
    for (int i = 0; i < keys; ++i) {
        const QByteArray key = "key-" + QByteArray::number(i);
        ASSERT_TRUE(hash.atomicInsert(key, shmtest::makeValue(key, 0, 0, 3)));
    }
    shmtest::Peer writer;
    ASSERT_TRUE(writer.start(
        peerPath(), {"atomic-writer", table, QString::number(keys), QString::number(rounds)}));
    ASSERT_EQ("ready", writer.line());
    std::vector<std::unique_ptr<shmtest::Peer>> peers;
    for (int r = 0; r < readers; ++r) {
        peers.emplace_back(new shmtest::Peer);
        ASSERT_TRUE(
            peers.back()->start(peerPath(), {"atomic-reader", table, QString::number(keys)}));
        ASSERT_EQ("ready", peers.back()->line());
    }
    writer.send("go");
    const QByteArray written = writer.line(120000);
    std::cout << "writer: " << written.constData() << std::endl;
    EXPECT_EQ("done " + QByteArray::number(keys * rounds) + " 0", written);
    EXPECT_EQ(0, writer.finish());
    for (auto& peer : peers) {
        const QByteArray done = peer->line(60000);
        std::cout << "reader: " << done.constData() << std::endl;
        const QList<QByteArray> f = fields(done);
        ASSERT_EQ(4, f.size()) << done.constData();
        EXPECT_GT(f[2].toULongLong(), 0u);
        EXPECT_EQ("0", f[3]) << "torn values seen";
        EXPECT_EQ(0, peer->finish());
    }
    EXPECT_EQ(unsigned(keys + 1), hash.getEntriesCount());
}
