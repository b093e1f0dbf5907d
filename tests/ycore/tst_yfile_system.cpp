#include "yfile_system.h"

#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

void* handleOf(int fd)
{
    return reinterpret_cast<void*>(intptr_t(fd));
}

void* const invalidHandle = reinterpret_cast<void*>(intptr_t(-1));

std::string capturedErrorLine(const std::string& written)
{
    return yovotest::maskTimestamps(QByteArray::fromStdString(written)).toStdString();
}

} // namespace

TEST(YFileSystemImpl, CheckAccessNeedsReadAndWrite)
{
    yovotest::TempDir dir;
    const QString path = dir.file("f");
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    YFileSystemImpl fs;
    EXPECT_TRUE(fs.checkAccess(QFile::encodeName(path).constData()));
    EXPECT_FALSE(fs.checkAccess(QFile::encodeName(dir.file("missing")).constData()));
}

TEST(YFileSystemImpl, CreateDirOnExistingFolderIsTrue)
{
    yovotest::TempDir dir;
    YFileSystemImpl fs;
    const QByteArray path = QFile::encodeName(dir.file("made"));
    EXPECT_TRUE(fs.createDir(path.constData()));
    EXPECT_TRUE(QFileInfo(dir.file("made")).isDir());
    EXPECT_TRUE(fs.createDir(path.constData()));
    EXPECT_FALSE(fs.createDir(QFile::encodeName(dir.file("no/such/parent")).constData()));
}

TEST(YFileSystemImpl, MakePathBuildsEachPartBelowBase)
{
    yovotest::TempDir dir;
    YFileSystemImpl fs;
    const QByteArray base = QFile::encodeName(dir.file("a"));
    ASSERT_TRUE(QDir().mkdir(dir.file("a")));
    // "ab/c" is absent, so the parts are made below "a".
    EXPECT_EQ(fs.makePath(base, "b/c"), base + "/b/c");
    EXPECT_TRUE(QFileInfo(dir.file("a/b")).isDir());
    EXPECT_TRUE(QFileInfo(dir.file("a/b/c")).isDir());
    EXPECT_FALSE(QFileInfo::exists(dir.file("ab")));
}

TEST(YFileSystemImpl, MakePathReturnsConcatenationWhenItExists)
{
    yovotest::TempDir dir;
    YFileSystemImpl fs;
    ASSERT_TRUE(QDir().mkdir(dir.file("a")));
    ASSERT_TRUE(QDir().mkpath(dir.file("ab/c")));
    const QByteArray base = QFile::encodeName(dir.file("a"));
    EXPECT_EQ(fs.makePath(base, "b/c"), base + "b/c");
    EXPECT_FALSE(QFileInfo::exists(dir.file("a/b")));
}

TEST(YFileSystemImpl, MakePathOfMissingBaseOrUnmakeablePartIsEmpty)
{
    yovotest::TempDir dir;
    YFileSystemImpl fs;
    EXPECT_TRUE(fs.makePath(QFile::encodeName(dir.file("missing")), "b").isEmpty());
    QFile blocker(dir.file("base/file"));
    ASSERT_TRUE(QDir().mkdir(dir.file("base")));
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    // "file" is a plain file, so "file/x" can't be made.
    EXPECT_TRUE(fs.makePath(QFile::encodeName(dir.file("base")), "file/x").isEmpty());
}

TEST(YFileSystemImpl, ReadFromFileReadsAllAndLeavesHandleOpen)
{
    yovotest::TempDir dir;
    QFile file(dir.file("data"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("hello\0world", 11);
    file.close();
    const int fd = open(QFile::encodeName(dir.file("data")).constData(), O_RDONLY);
    ASSERT_GE(fd, 0);
    YFileSystemImpl fs;
    unsigned int size = 99;
    char* block = fs.readFromFile(handleOf(fd), &size);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(size, 11u);
    EXPECT_EQ(QByteArray(block, int(size)), QByteArray("hello\0world", 11));
    free(block);
    EXPECT_EQ(fcntl(fd, F_GETFD), 0);
    close(fd);
}

TEST(YFileSystemImpl, ReadFromFileWithInvalidHandleOrNullSizeGivesNull)
{
    YFileSystemImpl fs;
    unsigned int size = 5;
    EXPECT_EQ(fs.readFromFile(invalidHandle, &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(fs.readFromFile(handleOf(0), nullptr), nullptr);
}

TEST(YFileSystemImpl, FailedReadClosesTheHandle)
{
    yovotest::TempDir dir;
    QFile file(dir.file("data"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("abc");
    file.close();
    // Open for writing only: the size is known, the read fails.
    const int fd = open(QFile::encodeName(dir.file("data")).constData(), O_WRONLY);
    ASSERT_GE(fd, 0);
    YFileSystemImpl fs;
    unsigned int size = 5;
    EXPECT_EQ(fs.readFromFile(handleOf(fd), &size), nullptr);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(YFileSystemImpl, WriteToFileWritesAllBytes)
{
    yovotest::TempDir dir;
    const int fd = open(QFile::encodeName(dir.file("out")).constData(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    YFileSystemImpl fs;
    EXPECT_TRUE(fs.writeToFile(handleOf(fd), "abc\0d", 5));
    close(fd);
    EXPECT_EQ(yovotest::readFile(dir.file("out")), QByteArray("abc\0d", 5));
}

TEST(YFileSystemImpl, WriteToFileFailuresAreLoggedWithTheirWords)
{
    YFileSystemImpl fs;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(fs.writeToFile(invalidHandle, "a", 1));
    EXPECT_FALSE(fs.writeToFile(handleOf(1), nullptr, 1));
    EXPECT_FALSE(fs.writeToFile(handleOf(1), "a", 0));
    EXPECT_EQ(capturedErrorLine(testing::internal::GetCapturedStderr()),
        "[<TS> ERROR] Failed in writeToFile - invalid handle received. \r\n"
        "[<TS> ERROR] Failed in writeToFile - null data received. \r\n"
        "[<TS> ERROR] Failed in writeToFile - data with length 0 received. \r\n");
}

TEST(YFileSystemImpl, WriteToFileReportsTheErrorCode)
{
    yovotest::TempDir dir;
    QFile file(dir.file("ro"));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.close();
    const int fd = open(QFile::encodeName(dir.file("ro")).constData(), O_RDONLY);
    ASSERT_GE(fd, 0);
    YFileSystemImpl fs;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(fs.writeToFile(handleOf(fd), "abc", 3));
    EXPECT_EQ(capturedErrorLine(testing::internal::GetCapturedStderr()),
        "[<TS> ERROR] Failed in writeToFile - error code " + std::to_string(EBADF) + " \r\n");
    close(fd);
}

TEST(YFileSystemImpl, WriteToFileReportsAShortWrite)
{
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ASSERT_EQ(fcntl(fds[1], F_SETFL, O_NONBLOCK), 0);
    const int capacity = fcntl(fds[1], F_GETPIPE_SZ);
    ASSERT_GT(capacity, 0);
    const QByteArray data(capacity + 100, 'x');
    YFileSystemImpl fs;
    testing::internal::CaptureStderr();
    EXPECT_FALSE(fs.writeToFile(handleOf(fds[1]), data.constData(), unsigned(data.size())));
    EXPECT_EQ(capturedErrorLine(testing::internal::GetCapturedStderr()),
        "[<TS> ERROR] Failed in writeToFile - wrote " + std::to_string(capacity) + " out of "
            + std::to_string(data.size()) + " \r\n");
    close(fds[0]);
    close(fds[1]);
}
