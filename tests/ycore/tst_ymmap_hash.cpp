#include "shm_test_util.h"
#include "test_support.h"

#include "ymmap_allocator.h"
#include "ymmap_hash.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QMap>

#include <atomic>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

const quint32 NIL = 0xFFFFFFFFu;

QByteArray tableName()
{
    return yovotest::uniqueName("hash").toLatin1();
}

QString peerPath()
{
    return yovotest::helperPath("yshm_peer");
}

// Qt 4's QByteArray hash, written out here from its definition rather than taken from the
// library, so that the test checks the library against it.
quint32 qt4Hash(const QByteArray& key)
{
    quint32 h = 0;
    for (int i = 0; i < key.size(); ++i) {
        h = (h << 4) + quint8(key.at(i));
        const quint32 top = h & 0xf0000000u;
        h ^= top >> 23;
        h &= 0x0fffffffu;
    }
    return h;
}

quint32 indexOf(const QByteArray& key)
{
    return qt4Hash(key) % 503;
}

quint32 round4(quint32 n)
{
    return (n + 3) / 4 * 4;
}

// Keys that share one chain.
QList<QByteArray> collidingKeys(int count)
{
    QMap<quint32, QList<QByteArray>> byIndex;
    for (int i = 0;; ++i) {
        const QByteArray key = "c" + QByteArray::number(i);
        QList<QByteArray>& keys = byIndex[indexOf(key)];
        keys.append(key);
        if (keys.size() == count)
            return keys;
    }
}

// The segment as every other process sees it: a plain read-only mapping of the object.
class RawSegment
{
public:
    explicit RawSegment(const QByteArray& name)
    {
        const QByteArray object = "/" + name + "Mmap";
        const int fd = shm_open(object.constData(), O_RDONLY, 0);
        if (fd < 0)
            return;
        struct stat info;
        if (fstat(fd, &info) == 0 && info.st_size > 0) {
            _size = size_t(info.st_size);
            void* view = mmap(nullptr, _size, PROT_READ, MAP_SHARED, fd, 0);
            if (view != MAP_FAILED)
                _bytes = static_cast<const quint8*>(view);
        }
        ::close(fd);
    }
    ~RawSegment()
    {
        if (_bytes)
            munmap(const_cast<quint8*>(_bytes), _size);
    }
    bool ok() const { return _bytes != nullptr; }
    size_t size() const { return _size; }
    const quint8* bytes() const { return _bytes; }
    /// The little-endian word at a segment offset.
    quint32 word(size_t offset) const
    {
        return quint32(_bytes[offset]) | quint32(_bytes[offset + 1]) << 8
            | quint32(_bytes[offset + 2]) << 16 | quint32(_bytes[offset + 3]) << 24;
    }
    /// The word at a base offset (the allocator's offsets start after its 8-byte header).
    quint32 baseWord(quint32 offset) const { return word(8 + offset); }
    quint32 backbone(quint32 index) const { return baseWord(16 + 4 * index); }

private:
    const quint8* _bytes = nullptr;
    size_t _size = 0;
};

// What the segment must hold, built from the layout alone: allocator header, table header,
// backbone, then bucket, value and key of each entry, every piece rounded to 4 bytes.
class ExpectedSegment
{
public:
    explicit ExpectedSegment(quint32 entriesSize)
        : _bytes(entriesSize + 2028 + 8, 0)
    {
        setWord(0, quint32(_bytes.size()));
        setWord(4, 8);
        const quint32 header = allocate(16);
        setBaseWord(header + 0, 34508);
        setBaseWord(header + 4, 503);
        setBaseWord(header + 8, 0);
        const quint32 backbone = allocate(2012);
        for (quint32 i = 0; i < 503; ++i)
            setBaseWord(backbone + 4 * i, NIL);
    }

    void insertNew(const QByteArray& key, const QByteArray& value)
    {
        const quint32 bucket = allocate(24);
        const quint32 valueOffset = allocate(quint32(value.size()));
        const quint32 keyOffset = allocate(quint32(key.size()));
        setBaseWord(bucket + 0, NIL);
        setBaseWord(bucket + 4, NIL);
        setBaseWord(bucket + 8, valueOffset);
        setBaseWord(bucket + 12, quint32(value.size()));
        setBaseWord(bucket + 16, keyOffset);
        setBaseWord(bucket + 20, quint32(key.size()));
        memcpy(&_bytes[8 + valueOffset], value.constData(), size_t(value.size()));
        memcpy(&_bytes[8 + keyOffset], key.constData(), size_t(key.size()));
        const quint32 slot = 16 + 4 * indexOf(key);
        if (baseWord(slot) == NIL) {
            setBaseWord(slot, bucket);
        } else {
            quint32 last = baseWord(slot);
            while (baseWord(last) != NIL)
                last = baseWord(last);
            setBaseWord(last, bucket);
            setBaseWord(bucket + 4, last);
        }
        _buckets[key] = bucket;
        setBaseWord(8, baseWord(8) + 1);
    }

    void replaceInPlace(const QByteArray& key, const QByteArray& value)
    {
        const quint32 bucket = _buckets.value(key);
        setBaseWord(bucket + 12, quint32(value.size()));
        memcpy(&_bytes[8 + baseWord(bucket + 8)], value.constData(), size_t(value.size()));
    }

    void replaceMoved(const QByteArray& key, const QByteArray& value)
    {
        const quint32 bucket = _buckets.value(key);
        const quint32 valueOffset = allocate(quint32(value.size()));
        memcpy(&_bytes[8 + valueOffset], value.constData(), size_t(value.size()));
        setBaseWord(bucket + 8, valueOffset);
        setBaseWord(bucket + 12, quint32(value.size()));
    }

    const std::vector<quint8>& bytes() const { return _bytes; }

private:
    quint32 allocate(quint32 size)
    {
        const quint32 used = word(4);
        setWord(4, used + round4(size));
        return used - 8;
    }
    quint32 word(size_t offset) const
    {
        quint32 value;
        memcpy(&value, &_bytes[offset], 4);
        return value;
    }
    void setWord(size_t offset, quint32 value) { memcpy(&_bytes[offset], &value, 4); }
    quint32 baseWord(quint32 offset) const { return word(8 + offset); }
    void setBaseWord(quint32 offset, quint32 value) { setWord(8 + offset, value); }

    std::vector<quint8> _bytes;
    QMap<QByteArray, quint32> _buckets;
};

long usage(const YMMapHash& hash)
{
    return hash.getAllocator().memUsage();
}

} // namespace

TEST(YMMapHash, FreshTableSizes)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096)) << hash.errorString().toStdString();
    EXPECT_EQ(0u, hash.getEntriesCount());
    EXPECT_EQ(2036, hash.getAllocator().memUsage());
    EXPECT_EQ(6132, hash.getAllocator().memSize());
}

TEST(YMMapHash, FreshTableLayout)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    RawSegment raw(name);
    ASSERT_TRUE(raw.ok());
    ASSERT_EQ(6132u, raw.size());
    EXPECT_EQ(6132u, raw.word(0));
    EXPECT_EQ(2036u, raw.word(4));
    EXPECT_EQ(34508u, raw.word(8));
    EXPECT_EQ(503u, raw.word(12));
    EXPECT_EQ(0u, raw.word(16));
    EXPECT_EQ(0u, raw.word(20));
    for (quint32 i = 0; i < 503; ++i)
        ASSERT_EQ(NIL, raw.word(24 + 4 * i)) << i;
    for (size_t i = 2036; i < raw.size(); ++i)
        ASSERT_EQ(0, raw.bytes()[i]) << i;
}

TEST(YMMapHash, SegmentMatchesTheLayoutAfterKnownInserts)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 1024));
    ExpectedSegment expected(1024);
    const QList<QByteArray> chain = collidingKeys(3);
    struct Step
    {
        QByteArray key, value;
        enum
        {
            New,
            InPlace,
            Moved
        } kind;
    };
    const std::vector<Step> steps = {
        {"alpha", "1", Step::New},
        {"beta", "22", Step::New},
        {"gamma", "333", Step::New},
        {chain[0], "first", Step::New},
        {chain[1], "second", Step::New},
        {chain[2], "third", Step::New},
        {"alpha", "", Step::InPlace},
        {"beta", "a longer value", Step::Moved},
        {chain[1], "2nd", Step::InPlace},
        {"The quick brown fox jumps over the lazy dog", "pangram", Step::New},
    };
    for (const Step& step : steps) {
        ASSERT_TRUE(hash.insert(step.key, step.value)) << step.key.constData();
        switch (step.kind) {
        case Step::New:
            expected.insertNew(step.key, step.value);
            break;
        case Step::InPlace:
            expected.replaceInPlace(step.key, step.value);
            break;
        case Step::Moved:
            expected.replaceMoved(step.key, step.value);
            break;
        }
    }
    EXPECT_EQ(7u, hash.getEntriesCount());

    RawSegment raw(name);
    ASSERT_TRUE(raw.ok());
    ASSERT_EQ(expected.bytes().size(), raw.size());
    for (size_t offset = 0; offset < raw.size(); offset += 4) {
        quint32 want;
        memcpy(&want, &expected.bytes()[offset], 4);
        ASSERT_EQ(want, raw.word(offset)) << "segment offset " << offset;
    }
}

TEST(YMMapHash, BucketIndexIsQt4Hash)
{
    // Values of Qt 4's qHash(QByteArray), worked out by hand from its definition.
    EXPECT_EQ(97u, qt4Hash("a"));
    EXPECT_EQ(1650u, qt4Hash("ab"));
    EXPECT_EQ(7258927u, qt4Hash("hello"));
    EXPECT_EQ(140865879u, qt4Hash("The quick brown fox jumps over the lazy dog"));
    EXPECT_EQ(1111679u, qt4Hash(QByteArray("\xff\xfe\x80\x7f")));

    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    const QList<QByteArray> keys = {"a", "ab", "hello",
        "The quick brown fox jumps over the lazy dog", QByteArray("\xff\xfe\x80\x7f"), "key-12345"};
    const QList<quint32> indexes = {97, 141, 134, 226, 49, 222};
    RawSegment raw(name);
    ASSERT_TRUE(raw.ok());
    for (int i = 0; i < keys.size(); ++i) {
        ASSERT_EQ(indexes[i], indexOf(keys[i]));
        const quint32 before = raw.word(4);
        ASSERT_TRUE(hash.insert(keys[i], "v"));
        // The new bucket is the first allocation of the entry and the head of its chain.
        EXPECT_EQ(before - 8, raw.backbone(indexes[i])) << keys[i].constData();
    }
    for (quint32 index = 0; index < 503; ++index) {
        if (!indexes.contains(index)) {
            ASSERT_EQ(NIL, raw.backbone(index)) << index;
        }
    }
}

TEST(YMMapHash, SmallEntryTakesBucketValueAndKey)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    ASSERT_TRUE(hash.insert("k", "v"));
    EXPECT_EQ(2036 + 24 + 4 + 4, usage(hash));
    EXPECT_EQ(1u, hash.getEntriesCount());
    QByteArray value;
    EXPECT_TRUE(hash.value("k", value));
    EXPECT_EQ(QByteArray("v"), value);
    EXPECT_TRUE(hash.contains("k"));
    EXPECT_FALSE(hash.contains("K"));
}

TEST(YMMapHash, ShorterValueStaysInPlaceLongerMoves)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    ASSERT_TRUE(hash.insert("key", "12345678"));
    void* first = nullptr;
    int length = 0;
    ASSERT_TRUE(hash.value("key", &first, length));
    EXPECT_EQ(8, length);
    const long before = usage(hash);

    ASSERT_TRUE(hash.insert("key", "abc"));
    void* second = nullptr;
    ASSERT_TRUE(hash.value("key", &second, length));
    EXPECT_EQ(first, second);
    EXPECT_EQ(3, length);
    EXPECT_EQ(before, usage(hash));
    EXPECT_EQ(0, memcmp(second, "abc", 3));
    // The old capacity is forgotten: 5 bytes would have fit the first 8, yet they move.
    ASSERT_TRUE(hash.insert("key", "vwxyz"));
    void* third = nullptr;
    ASSERT_TRUE(hash.value("key", &third, length));
    EXPECT_NE(first, third);
    EXPECT_EQ(before + 8, usage(hash));
    EXPECT_EQ(0, memcmp(first, "abc45678", 8)); // the old space stays, untouched
    QByteArray value;
    ASSERT_TRUE(hash.value("key", value));
    EXPECT_EQ(QByteArray("vwxyz"), value);
    EXPECT_EQ(1u, hash.getEntriesCount());
}

TEST(YMMapHash, EmptyValueForNewKeyFailsAndLosesTheBucket)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    EXPECT_FALSE(hash.insert("", ""));
    EXPECT_EQ(QStringLiteral("YMMapHash::newEntry: can't allocate new entry: Invalid allocation "
                             "size"),
        hash.errorString());
    EXPECT_EQ(2036 + 24, usage(hash));
    // With a key, all three allocations are made before the test: the key's space goes too.
    EXPECT_FALSE(hash.insert("k", ""));
    EXPECT_EQ(QStringLiteral("YMMapHash::newEntry: can't allocate new entry: Invalid allocation "
                             "size"),
        hash.errorString());
    EXPECT_EQ(2036 + 24 + 24 + 4, usage(hash));
    EXPECT_FALSE(hash.atomicInsert("k", ""));
    EXPECT_EQ(0u, hash.getEntriesCount());
    EXPECT_FALSE(hash.contains("k"));
}

TEST(YMMapHash, EmptyValueForExistingKeySucceedsInPlace)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    ASSERT_TRUE(hash.insert("k", "value"));
    const long before = usage(hash);
    ASSERT_TRUE(hash.insert("k", ""));
    EXPECT_EQ(before, usage(hash));
    QByteArray value = "untouched";
    EXPECT_TRUE(hash.value("k", value));
    EXPECT_TRUE(value.isEmpty());
    EXPECT_TRUE(hash.contains("k"));
}

TEST(YMMapHash, AtomicInsertAlwaysTakesNewSpace)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    ASSERT_TRUE(hash.atomicInsert("key", "long value"));
    EXPECT_EQ(1u, hash.getEntriesCount());
    const long before = usage(hash);
    ASSERT_TRUE(hash.atomicInsert("key", "short"));
    EXPECT_EQ(1u, hash.getEntriesCount());
    EXPECT_EQ(before + 24 + 8 + 4, usage(hash));
    QByteArray value;
    ASSERT_TRUE(hash.value("key", value));
    EXPECT_EQ(QByteArray("short"), value);
}

TEST(YMMapHash, AtomicInsertReplacesAnywhereInTheChain)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    const QList<QByteArray> keys = collidingKeys(3);
    for (const QByteArray& key : keys)
        ASSERT_TRUE(hash.atomicInsert(key, key + "-old"));
    EXPECT_EQ(3u, hash.getEntriesCount());
    for (const QByteArray& key : keys) {
        ASSERT_TRUE(hash.atomicInsert(key, key + "-new"));
        for (const QByteArray& other : keys) {
            QByteArray value;
            ASSERT_TRUE(hash.value(other, value));
        }
    }
    EXPECT_EQ(3u, hash.getEntriesCount());
    RawSegment raw(name);
    ASSERT_TRUE(raw.ok());
    // The chain holds the three new buckets in the old order, with prev links that match.
    quint32 offset = raw.backbone(indexOf(keys[0]));
    quint32 previous = NIL;
    for (const QByteArray& key : keys) {
        ASSERT_NE(NIL, offset);
        EXPECT_EQ(previous, raw.baseWord(offset + 4));
        const quint32 valueOffset = raw.baseWord(offset + 8);
        const QByteArray value(reinterpret_cast<const char*>(raw.bytes() + 8 + valueOffset),
            int(raw.baseWord(offset + 12)));
        EXPECT_EQ(key + "-new", value);
        previous = offset;
        offset = raw.baseWord(offset);
    }
    EXPECT_EQ(NIL, offset);
}

TEST(YMMapHash, KeysOfOneIndexChainInOrder)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    const QList<QByteArray> keys = collidingKeys(2);
    ASSERT_TRUE(hash.insert(keys[0], "one"));
    const quint32 firstBucket = quint32(usage(hash) - 8 - 32);
    ASSERT_TRUE(hash.insert(keys[1], "two"));
    const quint32 secondBucket = quint32(usage(hash) - 8 - 32);
    RawSegment raw(name);
    ASSERT_TRUE(raw.ok());
    const quint32 index = indexOf(keys[0]);
    EXPECT_EQ(firstBucket, raw.backbone(index));
    EXPECT_EQ(secondBucket, raw.baseWord(firstBucket));
    EXPECT_EQ(NIL, raw.baseWord(firstBucket + 4));
    EXPECT_EQ(NIL, raw.baseWord(secondBucket));
    EXPECT_EQ(firstBucket, raw.baseWord(secondBucket + 4));

    YMMapHash second;
    ASSERT_TRUE(second.attach(name.constData()));
    ASSERT_TRUE(hash.remove(keys[0]));
    QByteArray value;
    EXPECT_TRUE(second.value(keys[1], value));
    EXPECT_EQ(QByteArray("two"), value);
    EXPECT_FALSE(second.contains(keys[0]));
    EXPECT_EQ(secondBucket, raw.backbone(index));
    // The removed first bucket is still named by the follower's prev.
    EXPECT_EQ(firstBucket, raw.baseWord(secondBucket + 4));
    EXPECT_EQ(1u, hash.getEntriesCount());
}

TEST(YMMapHash, RemovingTheLastOfTwoKeepsTheFirst)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    const QList<QByteArray> keys = collidingKeys(2);
    ASSERT_TRUE(hash.insert(keys[0], "one"));
    ASSERT_TRUE(hash.insert(keys[1], "two"));
    ASSERT_TRUE(hash.remove(keys[1]));
    EXPECT_TRUE(hash.contains(keys[0]));
    EXPECT_FALSE(hash.contains(keys[1]));
    EXPECT_FALSE(hash.remove(keys[1]));
    EXPECT_EQ(1u, hash.getEntriesCount());
    ASSERT_TRUE(hash.insert(keys[1], "again"));
    EXPECT_EQ(2u, hash.getEntriesCount());
}

TEST(YMMapHash, RemovingTheMiddleLeavesPrevOnTheRemovedBucket)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    const QList<QByteArray> keys = collidingKeys(3);
    QList<quint32> buckets;
    for (const QByteArray& key : keys) {
        ASSERT_TRUE(hash.insert(key, "xyz"));
        buckets.append(quint32(usage(hash) - 8 - 24 - 4 - round4(quint32(key.size()))));
    }
    ASSERT_TRUE(hash.remove(keys[1]));
    RawSegment raw(name);
    ASSERT_TRUE(raw.ok());
    EXPECT_EQ(buckets[2], raw.baseWord(buckets[0]));
    EXPECT_EQ(buckets[1], raw.baseWord(buckets[2] + 4));
    EXPECT_TRUE(hash.contains(keys[0]));
    EXPECT_FALSE(hash.contains(keys[1]));
    EXPECT_TRUE(hash.contains(keys[2]));
    // The removed record is intact, links included.
    EXPECT_EQ(buckets[2], raw.baseWord(buckets[1]));
    EXPECT_EQ(buckets[0], raw.baseWord(buckets[1] + 4));
    EXPECT_EQ(2u, hash.getEntriesCount());
}

TEST(YMMapHash, AtomicInsertBehindARemovedFirstBucketDoesNotTakeEffect)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    const QList<QByteArray> keys = collidingKeys(2);
    ASSERT_TRUE(hash.insert(keys[0], "one"));
    ASSERT_TRUE(hash.insert(keys[1], "two"));
    ASSERT_TRUE(hash.remove(keys[0]));
    // keys[1]'s prev still names the removed bucket: the replacement is linked there.
    ASSERT_TRUE(hash.atomicInsert(keys[1], "TWO"));
    QByteArray value;
    ASSERT_TRUE(hash.value(keys[1], value));
    EXPECT_EQ(QByteArray("two"), value);
    EXPECT_EQ(1u, hash.getEntriesCount());
    // insert walks only next, and finds the old bucket.
    ASSERT_TRUE(hash.insert(keys[1], "2"));
    ASSERT_TRUE(hash.value(keys[1], value));
    EXPECT_EQ(QByteArray("2"), value);
}

// The same stale prev misleads remove: the new head of a chain whose old head was removed is
// unlinked from the removed record instead of from the backbone, and so stays findable.
TEST(YMMapHash, RemovingTheHeadThatFollowedARemovedHeadLeavesItInTheChain)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    const QList<QByteArray> keys = collidingKeys(2);
    ASSERT_TRUE(hash.insert(keys[0], "one"));
    ASSERT_TRUE(hash.insert(keys[1], "two"));
    ASSERT_TRUE(hash.remove(keys[0]));
    EXPECT_TRUE(hash.remove(keys[1]));
    EXPECT_EQ(0u, hash.getEntriesCount());
    EXPECT_TRUE(hash.contains(keys[1]));
}

TEST(YMMapHash, RemoveThenInsertTakesNewSpace)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    ASSERT_TRUE(hash.insert("k", "v"));
    ASSERT_TRUE(hash.remove("k"));
    EXPECT_EQ(0u, hash.getEntriesCount());
    EXPECT_FALSE(hash.contains("k"));
    EXPECT_FALSE(hash.remove("k"));
    const long before = usage(hash);
    ASSERT_TRUE(hash.insert("k", "v"));
    EXPECT_EQ(before + 32, usage(hash));
    EXPECT_EQ(1u, hash.getEntriesCount());
}

TEST(YMMapHash, MissingKeyIsFalseWithoutErrorText)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 4096));
    QByteArray value = "untouched";
    EXPECT_FALSE(hash.value("nothing", value));
    EXPECT_EQ(QByteArray("untouched"), value);
    void* data = &value;
    int length = 7;
    EXPECT_FALSE(hash.value("nothing", &data, length));
    EXPECT_EQ(7, length);
    EXPECT_TRUE(hash.errorString().isEmpty());
}

TEST(YMMapHash, FullTable)
{
    YMMapHash hash;
    ASSERT_TRUE(hash.create(tableName().constData(), 64));
    ASSERT_TRUE(hash.insert("a", "1"));
    ASSERT_TRUE(hash.insert("b", "2"));
    EXPECT_EQ(hash.getAllocator().memSize(), usage(hash));
    EXPECT_FALSE(hash.insert("c", "3"));
    EXPECT_EQ(QStringLiteral("YMMapHash::newEntry: can't allocate new entry: Out of memory"),
        hash.errorString());
    EXPECT_FALSE(hash.insert("a", "longer"));
    EXPECT_EQ(QStringLiteral("YMMapHash::insert: has is full: Out of memory"), hash.errorString());
    EXPECT_FALSE(hash.atomicInsert("a", "9"));
    EXPECT_EQ(QStringLiteral("YMMapHash::newEntry: can't allocate new entry: Out of memory"),
        hash.errorString());
    // Still readable, and in-place changes still work.
    EXPECT_TRUE(hash.insert("a", "9"));
    QByteArray value;
    ASSERT_TRUE(hash.value("a", value));
    EXPECT_EQ(QByteArray("9"), value);
    EXPECT_EQ(2u, hash.getEntriesCount());
    hash.clear();
    EXPECT_EQ(2036, usage(hash));
    EXPECT_TRUE(hash.insert("c", "3"));
}

TEST(YMMapHash, ClearInOneProcessEmptiesItForAttachedOnes)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    ASSERT_TRUE(hash.insert("k", "v"));
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"hash", "attach", QString::fromLatin1(name)}));
    ASSERT_EQ("ready", peer.line());
    EXPECT_EQ("yes", peer.ask("contains k"));
    EXPECT_EQ("value v", peer.ask("get k"));
    hash.clear();
    EXPECT_EQ("no", peer.ask("contains k"));
    EXPECT_EQ("count 0", peer.ask("count"));
    EXPECT_EQ("usage 2036 6132", peer.ask("usage"));
    // And the other way round: what the peer adds after the clear, this process sees.
    EXPECT_EQ("ok", peer.ask("put x y"));
    QByteArray value;
    EXPECT_TRUE(hash.value("x", value));
    EXPECT_EQ(QByteArray("y"), value);
    EXPECT_EQ("ok", peer.ask("clear"));
    EXPECT_FALSE(hash.contains("x"));
    EXPECT_EQ(0u, hash.getEntriesCount());
    EXPECT_EQ(0, peer.finish());
}

TEST(YMMapHash, EntriesWrittenInOneProcessAreReadInAnother)
{
    const QByteArray name = tableName();
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"hash", "create", QString::fromLatin1(name), "8192"}));
    ASSERT_EQ("ready", peer.line());
    EXPECT_EQ("ok", peer.ask("put alpha one"));
    EXPECT_EQ("ok", peer.ask("aput beta two"));
    YMMapHash hash;
    ASSERT_TRUE(hash.attach(name.constData()));
    QByteArray value;
    EXPECT_TRUE(hash.value("alpha", value));
    EXPECT_EQ(QByteArray("one"), value);
    EXPECT_TRUE(hash.value("beta", value));
    EXPECT_EQ(QByteArray("two"), value);
    EXPECT_EQ(2u, hash.getEntriesCount());
    ASSERT_TRUE(hash.insert("gamma", "three"));
    ASSERT_TRUE(hash.remove("alpha"));
    EXPECT_EQ("value three", peer.ask("get gamma"));
    EXPECT_EQ("missing", peer.ask("get alpha"));
    EXPECT_EQ("count 2", peer.ask("count"));
    EXPECT_EQ(0, peer.finish());
}

TEST(YMMapHash, CreateAndAttachFailures)
{
    const QByteArray name = tableName();
    YMMapHash missing;
    EXPECT_FALSE(missing.attach(name.constData()));
    EXPECT_EQ(QStringLiteral("GetLastError() = 0"), missing.errorString());
    YMMapHash first;
    ASSERT_TRUE(first.create(name.constData(), 100));
    YMMapHash second;
    EXPECT_FALSE(second.create(name.constData(), 100));
    EXPECT_EQ(QStringLiteral("GetLastError() = %1").arg(EEXIST), second.errorString());
    EXPECT_FALSE(second.insert("k", "v"));
    EXPECT_EQ(QStringLiteral("Invalid hash table (_header==NULL)"), second.errorString());
    YMMapHash huge;
    EXPECT_FALSE(huge.create(tableName().constData(), 0xFFFFFFFFu));
    EXPECT_EQ(QStringLiteral("GetLastError() = %1").arg(EINVAL), huge.errorString());
}

TEST(YMMapHash, WithoutTableOperationsFailWithTheirText)
{
    YMMapHash hash;
    const QString text = QStringLiteral("Invalid hash table (_header==NULL)");
    EXPECT_FALSE(hash.insert("k", "v"));
    EXPECT_EQ(text, hash.errorString());
    YMMapHash other;
    EXPECT_FALSE(other.atomicInsert("k", "v"));
    EXPECT_EQ(text, other.errorString());
    YMMapHash third;
    QByteArray value;
    EXPECT_FALSE(third.value("k", value));
    EXPECT_EQ(text, third.errorString());
    YMMapHash fourth;
    void* data = nullptr;
    int length = 0;
    EXPECT_FALSE(fourth.value("k", &data, length));
    EXPECT_EQ(text, fourth.errorString());
    YMMapHash fifth;
    EXPECT_FALSE(fifth.remove("k"));
    EXPECT_EQ(text, fifth.errorString());
    // clear has no table to act on and makes none.
    YMMapHash sixth;
    sixth.clear();
    EXPECT_FALSE(sixth.insert("k", "v"));
    EXPECT_EQ(text, sixth.errorString());
}

TEST(YMMapHashDeathTest, ContainsWithoutTableFailsHard)
{
    EXPECT_DEATH(
        {
            YMMapHash hash;
            hash.contains("k");
        },
        "\\(_header != nullptr\\)");
}

TEST(YMMapHashDeathTest, EntriesCountWithoutTableFailsHard)
{
    EXPECT_DEATH(
        {
            YMMapHash hash;
            hash.getEntriesCount();
        },
        "\\(_header != nullptr\\)");
}

TEST(YMMapHash, CopiesUseTheSameTable)
{
    const QByteArray name = tableName();
    YMMapHash* hash = new YMMapHash;
    ASSERT_TRUE(hash->create(name.constData(), 1024));
    ASSERT_TRUE(hash->insert("k", "v"));
    YMMapHash copy(*hash);
    delete hash;
    QByteArray value;
    EXPECT_TRUE(copy.value("k", value));
    EXPECT_TRUE(copy.insert("l", "w"));
    EXPECT_EQ(2u, copy.getEntriesCount());
}

TEST(YMMapHash, AttachToASegmentWithoutTableReadsWhatIsThere)
{
    const QByteArray name = tableName();
    YMMapAllocator plain;
    ASSERT_TRUE(plain.create(name.constData(), 4096));
    YMMapHash hash;
    ASSERT_TRUE(hash.attach(name.constData()));
    EXPECT_EQ(0u, hash.getEntriesCount()); // zero-filled: a bucket count of 0
    EXPECT_FALSE(hash.contains("k"));
    QByteArray value;
    EXPECT_FALSE(hash.value("k", value));
    EXPECT_FALSE(hash.insert("k", "v"));
    EXPECT_FALSE(hash.errorString().isEmpty());
    // Whatever is written there is taken as the table.
    quint32* words = static_cast<quint32*>(plain.offsetToPtr(0));
    words[0] = 34508;
    words[1] = 503;
    words[2] = 77;
    memset(words + 4, 0xFF, 2012);
    EXPECT_EQ(77u, hash.getEntriesCount());
    plain.allocate(2028);
    EXPECT_TRUE(hash.insert("k", "v"));
    EXPECT_TRUE(hash.contains("k"));
    EXPECT_EQ(78u, hash.getEntriesCount());
}

TEST(YMMapHash, DamagedLinksEndTheLookup)
{
    const QByteArray name = tableName();
    YMMapHash hash;
    ASSERT_TRUE(hash.create(name.constData(), 4096));
    const QList<QByteArray> keys = collidingKeys(3);
    ASSERT_TRUE(hash.insert(keys[0], "zero"));
    ASSERT_TRUE(hash.insert(keys[1], "one"));
    YMMapAllocator writer;
    ASSERT_TRUE(writer.attach(name.constData()));
    quint32* backbone = static_cast<quint32*>(writer.offsetToPtr(16));
    const quint32 index = indexOf(keys[0]);
    const quint32 head = backbone[index];
    YMMapHashBucket* first = static_cast<YMMapHashBucket*>(writer.offsetToPtr(head));
    YMMapHashBucket* second = static_cast<YMMapHashBucket*>(writer.offsetToPtr(first->next));
    QByteArray value;

    // A loop in the chain: the walk gives up instead of running for ever.
    const quint32 secondNext = second->next;
    second->next = head;
    EXPECT_FALSE(hash.contains(keys[2]));
    EXPECT_FALSE(hash.value(keys[2], value));
    EXPECT_FALSE(hash.insert(keys[2], "two"));
    EXPECT_FALSE(hash.atomicInsert(keys[2], "two"));
    EXPECT_TRUE(hash.contains(keys[1]));
    second->next = secondNext;

    // Links, keys and values outside the mapping, or misaligned.
    const quint32 firstNext = first->next;
    for (quint32 bad : {0x7FFFFFF0u, quint32(hash.getAllocator().memSize()), head + 1}) {
        first->next = bad;
        EXPECT_FALSE(hash.contains(keys[1]));
        EXPECT_FALSE(hash.value(keys[1], value));
        EXPECT_FALSE(hash.atomicInsert(keys[1], "x"));
        first->next = firstNext;
    }
    const quint32 keyOffset = first->keyOffset;
    first->keyOffset = 0xFFFFFFF0u;
    EXPECT_FALSE(hash.contains(keys[0]));
    first->keyOffset = keyOffset;
    const quint32 valueLength = first->valueLength;
    first->valueLength = 0x7FFFFFFFu;
    EXPECT_TRUE(hash.contains(keys[0]));
    EXPECT_FALSE(hash.value(keys[0], value));
    void* data = nullptr;
    int length = 0;
    EXPECT_FALSE(hash.value(keys[0], &data, length));
    first->valueLength = valueLength;
    EXPECT_TRUE(hash.value(keys[0], value));
    EXPECT_EQ(QByteArray("zero"), value);

    // Head of a chain outside the mapping.
    backbone[index] = 0xFFFFFFF8u;
    EXPECT_FALSE(hash.contains(keys[0]));
    EXPECT_FALSE(hash.remove(keys[0]));
    backbone[index] = head;

    // A bucket count that puts the backbone outside the segment, or that is zero.
    quint32* header = static_cast<quint32*>(writer.offsetToPtr(0));
    header[1] = 0xFFFFFFFFu;
    EXPECT_FALSE(hash.contains(keys[0]));
    EXPECT_FALSE(hash.insert("new", "v"));
    header[1] = 0;
    EXPECT_FALSE(hash.contains(keys[0]));
    EXPECT_FALSE(hash.atomicInsert("new", "v"));
    header[1] = 503;
    EXPECT_TRUE(hash.contains(keys[0]));
}

TEST(YMMapHash, RandomGarbageNeverCrashesReaders)
{
    const QByteArray name = tableName();
    YMMapAllocator plain;
    ASSERT_TRUE(plain.create(name.constData(), 8192));
    YMMapHash hash;
    ASSERT_TRUE(hash.attach(name.constData()));
    std::mt19937 random(12345);
    quint32* words = static_cast<quint32*>(plain.offsetToPtr(0));
    const int wordCount = int((plain.memSize() - 8) / 4);
    for (int round = 0; round < 300; ++round) {
        for (int i = 0; i < wordCount; ++i) {
            const quint32 r = random();
            // Mostly small numbers, so that many links and lengths land inside the segment.
            words[i] = (round % 3 == 0) ? r : (round % 3 == 1 ? r % 8192 : (r % 2048) & ~3u);
        }
        words[1] = 1 + random() % 600;
        plain.clear();
        plain.allocate(quint32(random() % 8000));
        for (int k = 0; k < 50; ++k) {
            const QByteArray key = QByteArray::number(quint32(random()) % 1000);
            QByteArray value;
            hash.value(key, value);
            hash.contains(key);
            void* data = nullptr;
            int length = 0;
            if (hash.value(key, &data, length)) {
                ASSERT_GE(static_cast<char*>(data), static_cast<char*>(plain.baseAddress()));
                ASSERT_LE(static_cast<char*>(data) + length,
                    static_cast<char*>(plain.baseAddress()) + plain.memSize() - 8);
            }
        }
        hash.insert("w", "x");
        hash.atomicInsert("y", "z");
        hash.remove("w");
        hash.getEntriesCount();
    }
    SUCCEED();
}

TEST(YMMapHash, ProcessKilledWhileAttachedLeavesOthersWorking)
{
    const QByteArray name = tableName();
    shmtest::Peer creator, victim, late;
    ASSERT_TRUE(creator.start(peerPath(), {"hash", "create", QString::fromLatin1(name), "4096"}));
    ASSERT_EQ("ready", creator.line());
    ASSERT_EQ("ok", creator.ask("put k1 v1"));
    ASSERT_TRUE(victim.start(peerPath(), {"hash", "attach", QString::fromLatin1(name)}));
    ASSERT_EQ("ready", victim.line());
    YMMapHash hash;
    ASSERT_TRUE(hash.attach(name.constData()));
    victim.killHard();

    QByteArray value;
    EXPECT_TRUE(hash.value("k1", value));
    EXPECT_EQ(QByteArray("v1"), value);
    ASSERT_TRUE(hash.insert("k2", "v2"));
    EXPECT_EQ("value v2", creator.ask("get k2"));
    ASSERT_TRUE(late.start(peerPath(), {"hash", "attach", QString::fromLatin1(name)}));
    ASSERT_EQ("ready", late.line());
    EXPECT_EQ("count 2", late.ask("count"));

    // Now every user goes the hard way.
    hash = YMMapHash();
    creator.killHard();
    late.killHard();
    EXPECT_TRUE(QFile::exists(QStringLiteral("/dev/shm/") + QString::fromLatin1(name) + "Mmap"));
    YMMapHash fresh;
    ASSERT_TRUE(fresh.create(name.constData(), 4096)) << fresh.errorString().toStdString();
    EXPECT_EQ(0u, fresh.getEntriesCount());
    EXPECT_FALSE(fresh.contains("k1"));
    EXPECT_EQ(2036, fresh.getAllocator().memUsage());
}

// Readers without a lock against one writer that publishes with atomicInsert only: in threads,
// so that the thread sanitizer checks the ordering of the publishing store.
TEST(YMMapHash, LockFreeReadersSeeWholeValuesInThreads)
{
    const QByteArray name = tableName();
    YMMapHash table;
    ASSERT_TRUE(table.create(name.constData(), 16u << 20));
    const int keys = 64;
    std::atomic<bool> done {false};
    std::atomic<int> bad {0};
    std::atomic<long> found {0};
    std::vector<std::thread> readers;
    for (int r = 0; r < 3; ++r) {
        readers.emplace_back([&, r] {
            YMMapHash hash;
            if (!hash.attach(name.constData())) {
                ++bad;
                return;
            }
            std::mt19937 random {unsigned(r)};
            while (!done.load()) {
                const QByteArray key = "key-" + QByteArray::number(int(random() % keys));
                void* data = nullptr;
                int length = 0;
                if (!hash.value(key, &data, length))
                    continue;
                ++found;
                shmtest::ValueInfo info;
                if (!shmtest::checkValue(key, static_cast<const char*>(data), length, &info))
                    ++bad;
            }
        });
    }
    YMMapHash writer;
    ASSERT_TRUE(writer.attach(name.constData()));
    quint64 seq = 0;
    for (int round = 0; round < 300; ++round) {
        for (int i = 0; i < keys; ++i) {
            const QByteArray key = "key-" + QByteArray::number(i);
            ++seq;
            ASSERT_TRUE(writer.atomicInsert(key, shmtest::makeValue(key, 0, seq, int(seq % 50))));
        }
    }
    done = true;
    for (std::thread& reader : readers)
        reader.join();
    EXPECT_EQ(0, bad.load());
    EXPECT_EQ(unsigned(keys), writer.getEntriesCount());
}
