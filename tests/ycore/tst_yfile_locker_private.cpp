#include "test_support.h"

#include "yfile_locker_private.h"

#include <gtest/gtest.h>

#include <QFile>

TEST(YFileLockerPrivate, HasNoWorkingBody)
{
    yovotest::TempDir dir;
    const QByteArray path = dir.file(QStringLiteral("lock")).toLocal8Bit();
    {
        YFileLockerPrivate locker(path.constData());
        EXPECT_EQ(path.constData(), locker.fileName()); // kept as given, not copied
        EXPECT_EQ(-1, locker.fileDescriptor());
        locker.readLock();
        locker.writeLock();
        locker.unlock();
        locker.unlock();
        EXPECT_EQ(-1, locker.fileDescriptor());
    }
    // No lock file was ever made.
    EXPECT_FALSE(QFile::exists(QString::fromLocal8Bit(path)));
    YFileLockerPrivate nameless(nullptr);
    nameless.writeLock();
    EXPECT_EQ(nullptr, nameless.fileName());
}
