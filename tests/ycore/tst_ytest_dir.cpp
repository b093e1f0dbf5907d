#include "ytest_dir.h"

#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

namespace {

void touch(const QString& path)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("x");
}

} // namespace

TEST(YTestDir, NamesItsFolderFromRootModuleAndName)
{
    yovotest::TempDir tmp;
    const QByteArray root = QFile::encodeName(tmp.path());
    YTestDir dir(root.constData(), "mod", "case");
    EXPECT_EQ(dir.getAbsoluteDirName(), tmp.path() + "/mod/case");
    EXPECT_TRUE(QFileInfo(tmp.path() + "/mod/case").isDir());
    EXPECT_EQ(dir.getAbsoluteFileName("f.txt"), tmp.path() + "/mod/case/f.txt");
}

TEST(YTestDir, ConstructionEmptiesAnExistingFolder)
{
    yovotest::TempDir tmp;
    ASSERT_TRUE(QDir().mkpath(tmp.path() + "/mod/case/sub/deeper"));
    touch(tmp.path() + "/mod/case/a");
    touch(tmp.path() + "/mod/case/.hidden");
    touch(tmp.path() + "/mod/case/sub/deeper/b");
    YTestDir dir(QFile::encodeName(tmp.path()).constData(), "mod", "case");
    EXPECT_TRUE(QFileInfo(dir.getAbsoluteDirName()).isDir());
    EXPECT_TRUE(QDir(dir.getAbsoluteDirName())
                    .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)
                    .isEmpty());
}

TEST(YTestDir, CleanKeepsTheFolderWhenOnlyASubfolderWasInside)
{
    yovotest::TempDir tmp;
    YTestDir dir(QFile::encodeName(tmp.path()).constData(), "mod", "case");
    ASSERT_TRUE(QDir().mkpath(dir.getAbsoluteDirName() + "/only"));
    dir.clean();
    EXPECT_TRUE(QFileInfo(dir.getAbsoluteDirName()).isDir());
    EXPECT_FALSE(QFileInfo::exists(dir.getAbsoluteDirName() + "/only"));
}

TEST(YTestDir, RecursiveCleanRemovesEmptiedParentsToo)
{
    yovotest::TempDir tmp;
    ASSERT_TRUE(QDir().mkpath(tmp.path() + "/p/q/r"));
    touch(tmp.path() + "/p/keep");
    touch(tmp.path() + "/p/q/r/f");
    YTestDir::recursiveClean(tmp.path() + "/p/q/r");
    // "q" was left empty and went along; "p" still holds a file and stays.
    EXPECT_FALSE(QFileInfo::exists(tmp.path() + "/p/q"));
    EXPECT_TRUE(QFileInfo::exists(tmp.path() + "/p/keep"));
    YTestDir::recursiveClean(tmp.path() + "/p/keep");
    EXPECT_FALSE(QFileInfo::exists(tmp.path() + "/p/keep"));
}

TEST(YTestDir, FolderNamesUnderABase)
{
    EXPECT_EQ(YTestDir::getUnittestsDirName("/b"), "/b/unittests");
    EXPECT_EQ(YTestDir::getInputDirName("/b"), "/b/unittests/input");
    EXPECT_EQ(YTestDir::getOutputDirName("/b"), "/b/unittests/output");
}
