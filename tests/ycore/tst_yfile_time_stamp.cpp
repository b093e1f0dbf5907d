#include "test_support.h"

#include "yfile_time_stamp.h"

#include <gtest/gtest.h>

#include <QFile>

#include <cstdint>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QByteArray makeFile(const yovotest::TempDir& dir, const char* name)
{
    const QString path = dir.file(QString::fromLatin1(name));
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    file.write("content");
    file.close();
    return path.toLocal8Bit();
}

void* handleOf(int fd)
{
    return reinterpret_cast<void*>(intptr_t(fd));
}

quint64 fileTimeOf(const _FILETIME& time)
{
    return quint64(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

} // namespace

TEST(YFileTimeStamp, SetThenGetGivesTheSameSeconds)
{
    yovotest::TempDir dir;
    const QByteArray path = makeFile(dir, "f");
    const long t = 1234567890;
    ASSERT_TRUE(YFileTimeStamp::setFileTimeStamp(path.constData(), t));
    EXPECT_EQ(t, YFileTimeStamp::getFileTimeStamp(path.constData()));
    struct stat info;
    ASSERT_EQ(0, stat(path.constData(), &info));
    EXPECT_EQ(t, long(info.st_atime)); // access time too; Linux keeps no creation time
    EXPECT_EQ(0, info.st_mtim.tv_nsec);
    EXPECT_EQ(t, YFileTimeStamp::getFileTimeStamp(&info));
}

TEST(YFileTimeStamp, TimesBeforeAndLongAfter1970)
{
    yovotest::TempDir dir;
    const QByteArray path = makeFile(dir, "f");
    for (long t : {0L, -86400L, 4102444800L /* 2100-01-01 */}) {
        ASSERT_TRUE(YFileTimeStamp::setFileTimeStamp(path.constData(), t)) << t;
        EXPECT_EQ(t, YFileTimeStamp::getFileTimeStamp(path.constData()));
    }
}

TEST(YFileTimeStamp, MissingOrNullGivesMinusOne)
{
    yovotest::TempDir dir;
    EXPECT_EQ(-1, YFileTimeStamp::getFileTimeStamp(static_cast<const char*>(nullptr)));
    EXPECT_EQ(-1,
        YFileTimeStamp::getFileTimeStamp(
            dir.file(QStringLiteral("missing")).toLocal8Bit().constData()));
    EXPECT_EQ(-1, YFileTimeStamp::getFileTimeStamp(static_cast<struct stat*>(nullptr)));
    EXPECT_FALSE(YFileTimeStamp::setFileTimeStamp(
        dir.file(QStringLiteral("missing")).toLocal8Bit().constData(), 5));
    EXPECT_FALSE(YFileTimeStamp::setFileTimeStamp(static_cast<const char*>(nullptr), 5));
    EXPECT_FALSE(QFile::exists(dir.file(QStringLiteral("missing")))); // nothing was made
}

TEST(YFileTimeStamp, FolderCanNotBeOpenedForWriting)
{
    yovotest::TempDir dir;
    EXPECT_FALSE(YFileTimeStamp::setFileTimeStamp(dir.path().toLocal8Bit().constData(), 5));
}

TEST(YFileTimeStamp, FifoWithoutReaderFailsInsteadOfHanging)
{
    yovotest::TempDir dir;
    const QByteArray path = dir.file(QStringLiteral("fifo")).toLocal8Bit();
    ASSERT_EQ(0, mkfifo(path.constData(), 0600));
    EXPECT_FALSE(YFileTimeStamp::setFileTimeStamp(path.constData(), 5));
}

TEST(YFileTimeStamp, HandleForms)
{
    yovotest::TempDir dir;
    const QByteArray path = makeFile(dir, "f");
    const int fd = open(path.constData(), O_WRONLY);
    ASSERT_GE(fd, 0);
    const long t = 1000000000;
    ASSERT_TRUE(YFileTimeStamp::setFileTimeStamp(handleOf(fd), t));
    const _FILETIME time = YFileTimeStamp::getFileTimeStamp(handleOf(fd));
    // 100-nanosecond units since 1601.
    EXPECT_EQ(quint64(t) * 10000000ull + 0x19DB1DED53E8000ull, fileTimeOf(time));
    EXPECT_EQ(qint64(fileTimeOf(time)), YFileTimeStamp::toFileTime(t));
    close(fd);
    EXPECT_EQ(t, YFileTimeStamp::getFileTimeStamp(path.constData()));

    void* none = reinterpret_cast<void*>(intptr_t(-1));
    EXPECT_FALSE(YFileTimeStamp::setFileTimeStamp(none, t));
    EXPECT_EQ(0u, fileTimeOf(YFileTimeStamp::getFileTimeStamp(none)));
    // A closed descriptor is no file either.
    EXPECT_FALSE(YFileTimeStamp::setFileTimeStamp(handleOf(fd), t));
    EXPECT_EQ(0u, fileTimeOf(YFileTimeStamp::getFileTimeStamp(handleOf(fd))));
}

TEST(YFileTimeStamp, ConversionToFileTime)
{
    EXPECT_EQ(0x19DB1DED53E8000LL, YFileTimeStamp::toFileTime(0));
    EXPECT_EQ(0x19DB1DED53E8000LL + 10000000LL, YFileTimeStamp::toFileTime(1));
    EXPECT_EQ(0x19DB1DED53E8000LL - 10000000LL, YFileTimeStamp::toFileTime(-1));
    YFileTimeStamp a, b;
    a = b;
}
