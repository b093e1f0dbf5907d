#include "shm_test_util.h"
#include "test_support.h"

#include "ymmap_allocator.h"

#include <gtest/gtest.h>

#include <QFile>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

QByteArray segmentName(const char* prefix)
{
    return yovotest::uniqueName(prefix).toLatin1();
}

// Where the segment of a name lies for every process on this system.
QString shmFile(const QByteArray& name)
{
    return QStringLiteral("/dev/shm/") + QString::fromLatin1(name) + QStringLiteral("Mmap");
}

QString peerPath()
{
    return yovotest::helperPath("yshm_peer");
}

} // namespace

TEST(YMMapAllocator, CreateAddsTheHeaderToTheSize)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(name.constData(), 100)) << allocator.errorString().toStdString();
    EXPECT_TRUE(allocator.isOk());
    EXPECT_EQ(108, allocator.memSize());
    EXPECT_EQ(8, allocator.memUsage());
    EXPECT_EQ("Global\\" + name.toStdString() + "Mmap", allocator.getFilename());
    EXPECT_EQ(
        static_cast<char*>(allocator.offsetToPtr(0)), static_cast<char*>(allocator.baseAddress()));
}

TEST(YMMapAllocator, AllocationsRoundToFourFromTheBase)
{
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(segmentName("alloc").constData(), 100));
    char* base = static_cast<char*>(allocator.baseAddress());
    EXPECT_EQ(base, allocator.allocate(1));
    EXPECT_EQ(12, allocator.memUsage());
    EXPECT_EQ(base + 4, allocator.allocate(1));
    EXPECT_EQ(16, allocator.memUsage());
    EXPECT_EQ(base + 8, allocator.allocate(5));
    EXPECT_EQ(24, allocator.memUsage());
}

TEST(YMMapAllocator, WholeSizeInOneRequestThenOutOfMemory)
{
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(segmentName("alloc").constData(), 100));
    EXPECT_EQ(allocator.baseAddress(), allocator.allocate(100));
    EXPECT_EQ(108, allocator.memUsage());
    EXPECT_EQ(nullptr, allocator.allocate(1));
    EXPECT_EQ(13459, allocator.error());
    EXPECT_EQ(QStringLiteral("Out of memory"), allocator.errorString());
    EXPECT_EQ(108, allocator.memUsage());
}

TEST(YMMapAllocator, RequestLargerThanTheRestFailsWithoutTakingAnything)
{
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(segmentName("alloc").constData(), 100));
    ASSERT_NE(nullptr, allocator.allocate(96));
    EXPECT_EQ(nullptr, allocator.allocate(5)); // rounds to 8, only 4 left
    EXPECT_EQ(104, allocator.memUsage());
    EXPECT_NE(nullptr, allocator.allocate(3));
    // Sizes near the top of the range must not wrap around when rounded.
    EXPECT_EQ(nullptr, allocator.allocate(0xFFFFFFFFu));
    EXPECT_EQ(13459, allocator.error());
}

TEST(YMMapAllocator, ZeroSizeIsInvalidAndTakesNothing)
{
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(segmentName("alloc").constData(), 100));
    EXPECT_EQ(nullptr, allocator.allocate(0));
    EXPECT_EQ(13461, allocator.error());
    EXPECT_EQ(QStringLiteral("Invalid allocation size"), allocator.errorString());
    EXPECT_EQ(8, allocator.memUsage());
    // A later success doesn't reset the error.
    EXPECT_NE(nullptr, allocator.allocate(4));
    EXPECT_EQ(13461, allocator.error());
}

TEST(YMMapAllocator, WithoutSegmentNothingWorksAndNothingCrashes)
{
    YMMapAllocator allocator;
    EXPECT_FALSE(allocator.isOk());
    EXPECT_EQ(nullptr, allocator.allocate(4));
    EXPECT_EQ(13460, allocator.error());
    EXPECT_EQ(QStringLiteral("YMMap is not initialized"), allocator.errorString());
    EXPECT_EQ(nullptr, allocator.allocate(0)); // the size is tested first
    EXPECT_EQ(13461, allocator.error());
    EXPECT_EQ(nullptr, allocator.baseAddress());
    EXPECT_EQ(nullptr, allocator.offsetToPtr(0));
    EXPECT_EQ(-1, allocator.ptrToOffset(&allocator));
    EXPECT_EQ(0, allocator.memSize());
    EXPECT_EQ(0, allocator.memUsage());
    allocator.clear();
    allocator.close();
    allocator.close();
    EXPECT_EQ(13461, allocator.error());
}

TEST(YMMapAllocator, ErrorTextsOfSystemErrors)
{
    YMMapAllocator allocator;
    EXPECT_EQ(QStringLiteral("GetLastError() = 0"), allocator.errorString());
}

TEST(YMMapAllocator, AttachOfUnknownNameFailsAndLeavesNothing)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator allocator;
    EXPECT_FALSE(allocator.attach(name.constData()));
    EXPECT_FALSE(allocator.isOk());
    EXPECT_EQ(0, allocator.error());
    EXPECT_EQ(QStringLiteral("GetLastError() = 0"), allocator.errorString());
    EXPECT_FALSE(QFile::exists(shmFile(name)));
    EXPECT_FALSE(allocator.attachReadOnly(name.constData()));
    EXPECT_FALSE(QFile::exists(shmFile(name)));
}

TEST(YMMapAllocator, SecondCreateFailsWhileTheNameIsInUse)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator first;
    ASSERT_TRUE(first.create(name.constData(), 64));
    YMMapAllocator second;
    EXPECT_FALSE(second.create(name.constData(), 64));
    EXPECT_EQ(EEXIST, second.error());
    EXPECT_EQ(QStringLiteral("GetLastError() = %1").arg(EEXIST), second.errorString());
    first.close();
    EXPECT_FALSE(QFile::exists(shmFile(name))); // the last user removed it
    EXPECT_TRUE(second.create(name.constData(), 64));
}

TEST(YMMapAllocator, SizeBeyondThirtyTwoBitsIsRefused)
{
    YMMapAllocator allocator;
    EXPECT_FALSE(allocator.create(segmentName("alloc").constData(), 0xFFFFFFF8u));
    EXPECT_EQ(EINVAL, allocator.error());
    // The largest size whose total still fits the header's word (sparse: nothing is touched).
    ASSERT_TRUE(allocator.create(segmentName("alloc").constData(), 0xFFFFFFF7u));
    EXPECT_EQ(long(0xFFFFFFFFu), allocator.memSize());
}

TEST(YMMapAllocator, AttachReadOnlyGivesAWritableView)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator creator;
    ASSERT_TRUE(creator.create(name.constData(), 64));
    YMMapAllocator reader;
    ASSERT_TRUE(reader.attachReadOnly(name.constData()));
    EXPECT_TRUE(reader.isOk());
    EXPECT_EQ(72, reader.memSize());
    memcpy(reader.offsetToPtr(0), "written", 7);
    ASSERT_NE(nullptr, reader.allocate(12));
    EXPECT_EQ(0, memcmp(creator.offsetToPtr(0), "written", 7));
    EXPECT_EQ(20, creator.memUsage());
}

TEST(YMMapAllocator, OffsetConversionsStayInsideTheData)
{
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(segmentName("alloc").constData(), 100));
    char* first = static_cast<char*>(allocator.allocate(4));
    char* base = static_cast<char*>(allocator.baseAddress());
    EXPECT_EQ(first, allocator.offsetToPtr(0));
    EXPECT_EQ(base + 99, allocator.offsetToPtr(allocator.memSize() - 9));
    EXPECT_EQ(nullptr, allocator.offsetToPtr(allocator.memSize() - 8));
    EXPECT_EQ(nullptr, allocator.offsetToPtr(-1));
    EXPECT_EQ(-1, allocator.ptrToOffset(nullptr));
    EXPECT_EQ(0, allocator.ptrToOffset(base));
    EXPECT_EQ(99, allocator.ptrToOffset(base + 99));
    EXPECT_EQ(-1, allocator.ptrToOffset(base + 100));
    EXPECT_EQ(-1, allocator.ptrToOffset(base - 1));
}

TEST(YMMapAllocator, ClearFreesAllSpaceAndKeepsTheBytes)
{
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(segmentName("alloc").constData(), 100));
    char* p = static_cast<char*>(allocator.allocate(16));
    memcpy(p, "0123456789abcdef", 16);
    allocator.clear();
    EXPECT_EQ(8, allocator.memUsage());
    EXPECT_EQ(0, memcmp(allocator.offsetToPtr(0), "0123456789abcdef", 16));
    EXPECT_EQ(p, allocator.allocate(100));
}

TEST(YMMapAllocator, CloseKeepsTheErrorAndTheName)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(name.constData(), 16));
    allocator.allocate(0);
    allocator.close();
    EXPECT_FALSE(allocator.isOk());
    EXPECT_EQ(13461, allocator.error());
    EXPECT_EQ("Global\\" + name.toStdString() + "Mmap", allocator.getFilename());
    EXPECT_EQ(nullptr, allocator.baseAddress());
    // Nothing is mapped any more, so nothing is read or handed out.
    EXPECT_EQ(0, allocator.memSize());
    EXPECT_EQ(nullptr, allocator.allocate(4));
    EXPECT_EQ(13460, allocator.error());
}

TEST(YMMapAllocator, CopiesShareTheMapping)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator* original = new YMMapAllocator;
    ASSERT_TRUE(original->create(name.constData(), 32));
    YMMapAllocator copy(*original);
    EXPECT_EQ(original->baseAddress(), copy.baseAddress());
    ASSERT_NE(nullptr, copy.allocate(8));
    EXPECT_EQ(16, original->memUsage());
    delete original;
    EXPECT_EQ(16, copy.memUsage());
    YMMapAllocator assigned;
    assigned = copy;
    copy.close();
    EXPECT_EQ(16, assigned.memUsage());
    assigned.close();
    EXPECT_FALSE(QFile::exists(shmFile(name)));
}

TEST(YMMapAllocator, AnotherProcessSeesTheSameData)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(name.constData(), 256));
    char* p = static_cast<char*>(allocator.allocate(10));
    memcpy(p, "shared!!!!", 10);
    const long offset = allocator.ptrToOffset(p);

    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"alloc", "attach", QString::fromLatin1(name)}));
    ASSERT_EQ("ready", peer.line());
    EXPECT_EQ("usage 20 264", peer.ask("usage"));
    EXPECT_EQ(
        "bytes shared!!!!", peer.ask("read " + QByteArray::number(qlonglong(offset)) + " 10"));
    EXPECT_EQ("offset 12", peer.ask("alloc 3"));
    EXPECT_EQ(24, allocator.memUsage());
    EXPECT_EQ("ok", peer.ask("write 12 abc"));
    EXPECT_EQ(0, memcmp(allocator.offsetToPtr(12), "abc", 3));
    EXPECT_EQ(0, peer.finish());
}

TEST(YMMapAllocator, AttachedProcessKilledLeavesTheSegmentWorking)
{
    const QByteArray name = segmentName("alloc");
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.create(name.constData(), 64));
    shmtest::Peer peer;
    ASSERT_TRUE(peer.start(peerPath(), {"alloc", "attach", QString::fromLatin1(name)}));
    ASSERT_EQ("ready", peer.line());
    peer.killHard();
    EXPECT_NE(nullptr, allocator.allocate(4));
    YMMapAllocator late;
    EXPECT_TRUE(late.attach(name.constData()));
    EXPECT_EQ(12, late.memUsage());
}

TEST(YMMapAllocator, CreateSucceedsWhenAllUsersWereKilled)
{
    const QByteArray name = segmentName("alloc");
    shmtest::Peer creator, user;
    ASSERT_TRUE(creator.start(peerPath(), {"alloc", "create", QString::fromLatin1(name), "32"}));
    ASSERT_EQ("ready", creator.line());
    ASSERT_EQ("offset 0", creator.ask("alloc 20"));
    ASSERT_TRUE(user.start(peerPath(), {"alloc", "attach", QString::fromLatin1(name)}));
    ASSERT_EQ("ready", user.line());
    YMMapAllocator blocked;
    EXPECT_FALSE(blocked.create(name.constData(), 32));
    EXPECT_EQ(EEXIST, blocked.error());

    creator.killHard();
    user.killHard();
    // Killed processes unlink nothing: the object is still there, but nobody holds it.
    EXPECT_TRUE(QFile::exists(shmFile(name)));
    YMMapAllocator fresh;
    ASSERT_TRUE(fresh.create(name.constData(), 48)) << fresh.errorString().toStdString();
    EXPECT_EQ(56, fresh.memSize());
    EXPECT_EQ(8, fresh.memUsage());
    // Made afresh: the dead processes' bytes are gone.
    const char zeros[20] = {};
    EXPECT_EQ(0, memcmp(fresh.offsetToPtr(0), zeros, sizeof(zeros)));
}

TEST(YMMapAllocator, AttachToAStaleSegmentFails)
{
    const QByteArray name = segmentName("alloc");
    shmtest::Peer creator;
    ASSERT_TRUE(creator.start(peerPath(), {"alloc", "create", QString::fromLatin1(name), "32"}));
    ASSERT_EQ("ready", creator.line());
    creator.killHard();
    YMMapAllocator allocator;
    EXPECT_FALSE(allocator.attach(name.constData()));
    EXPECT_EQ(QStringLiteral("GetLastError() = 0"), allocator.errorString());
    EXPECT_FALSE(QFile::exists(shmFile(name)));
}

// Somebody else's object under our name, held open as a segment is: its header lies.
class ForeignSegment
{
public:
    ForeignSegment(const QByteArray& name, size_t size, quint32 total, quint32 used)
        : _name("/" + name + "Mmap")
    {
        _fd = shm_open(_name.constData(), O_RDWR | O_CREAT | O_EXCL, 0600);
        if (_fd < 0)
            return;
        if (ftruncate(_fd, off_t(size)) != 0 || flock(_fd, LOCK_SH) != 0)
            return;
        void* view = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, _fd, 0);
        if (view == MAP_FAILED)
            return;
        memset(view, 0x5A, size);
        quint32 words[2] = {total, used};
        memcpy(view, words, sizeof(words));
        munmap(view, size);
        _ok = true;
    }
    ~ForeignSegment()
    {
        if (_fd >= 0) {
            shm_unlink(_name.constData());
            // The library's guard of the name: its users couldn't remove it while we held on.
            shm_unlink((_name + ".guard").constData());
            ::close(_fd);
        }
    }
    bool ok() const { return _ok; }

private:
    QByteArray _name;
    int _fd = -1;
    bool _ok = false;
};

TEST(YMMapAllocator, LyingHeaderIsBoundedByTheMapping)
{
    const QByteArray name = segmentName("alloc");
    ForeignSegment foreign(name, 64, 0xFFFFFFF0u, 8);
    ASSERT_TRUE(foreign.ok());
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.attach(name.constData()));
    EXPECT_EQ(long(0xFFFFFFF0u), allocator.memSize()); // taken on trust...
    EXPECT_NE(nullptr, allocator.offsetToPtr(55));
    EXPECT_EQ(nullptr, allocator.offsetToPtr(56)); // ...but nothing past the mapping is handed out
    EXPECT_EQ(nullptr, allocator.offsetToPtr(4096));
    EXPECT_NE(nullptr, allocator.allocate(56));
    EXPECT_EQ(nullptr, allocator.allocate(4));
    EXPECT_EQ(13459, allocator.error());
}

TEST(YMMapAllocator, UsedWordOutsideTheSegmentGivesNoSpace)
{
    const QByteArray name = segmentName("alloc");
    ForeignSegment foreign(name, 64, 64, 4);
    ASSERT_TRUE(foreign.ok());
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.attach(name.constData()));
    EXPECT_EQ(nullptr, allocator.allocate(4)); // would overwrite the header
    EXPECT_EQ(13459, allocator.error());
}

// No allocator leaves a used word that isn't a multiple of 4: what is handed out after one
// starts at the next multiple, aligned for the words that a table stores there.
TEST(YMMapAllocator, MisalignedUsedWordGivesAlignedSpace)
{
    const QByteArray name = segmentName("alloc");
    ForeignSegment foreign(name, 64, 64, 13);
    ASSERT_TRUE(foreign.ok());
    YMMapAllocator allocator;
    ASSERT_TRUE(allocator.attach(name.constData()));
    void* space = allocator.allocate(4);
    EXPECT_EQ(allocator.offsetToPtr(8), space);
    EXPECT_EQ(20, allocator.memUsage());
    // Rounded up, the used word of 61 leaves no room for 4 bytes.
    ForeignSegment full(name + "full", 64, 64, 61);
    ASSERT_TRUE(full.ok());
    YMMapAllocator other;
    ASSERT_TRUE(other.attach((name + "full").constData()));
    EXPECT_EQ(nullptr, other.allocate(4));
    EXPECT_EQ(13459, other.error());
}

TEST(YMMapAllocator, ObjectSmallerThanTheHeaderIsNoSegment)
{
    const QByteArray name = segmentName("alloc");
    ForeignSegment foreign(name, 4, 0, 0);
    ASSERT_TRUE(foreign.ok());
    YMMapAllocator allocator;
    EXPECT_FALSE(allocator.attach(name.constData()));
    EXPECT_EQ(EINVAL, allocator.error());
}

TEST(BasicAllocator, UsesTheHeap)
{
    EXPECT_EQ(0, BasicAllocator::base());
    const long block = BasicAllocator::allocate(32);
    ASSERT_NE(0, block);
    char* p = reinterpret_cast<char*>(BasicAllocator::base() + block);
    memset(p, 1, 32);
    BasicAllocator::deallocate(block, 32);
    BasicAllocator a, b;
    a = b;
}

TEST(ExternalAllocator, BumpsWithoutRoundingAndKeepsContentWhenGrowing)
{
    ExternalAllocator::init();
    ASSERT_NE(0, ExternalAllocator::base());
    EXPECT_EQ(0, ExternalAllocator::allocate(10));
    EXPECT_EQ(10, ExternalAllocator::allocate(5));
    EXPECT_EQ(15, ExternalAllocator::allocate(1));
    char* base = reinterpret_cast<char*>(ExternalAllocator::base());
    memcpy(base, "0123456789", 10);
    ExternalAllocator::deallocate(10, 5);
    for (int i = 10; i < 15; ++i)
        EXPECT_EQ(char(0xFF), base[i]);
    ExternalAllocator::reallocate(0x200000);
    base = reinterpret_cast<char*>(ExternalAllocator::base());
    EXPECT_EQ(0, memcmp(base, "0123456789", 10));
    EXPECT_EQ(char(0xFF), base[14]);
    EXPECT_EQ(16, ExternalAllocator::allocate(4));
    base[0x200000 - 1] = 1; // the whole new block is ours
    // Outside the block: left alone.
    ExternalAllocator::deallocate(0x200000 - 2, 8);
    EXPECT_EQ(1, base[0x200000 - 1]);
    ExternalAllocator a, b;
    a = b;
}
