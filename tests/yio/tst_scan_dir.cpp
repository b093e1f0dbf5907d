#include "scan_dir.h"

#include "ini_test_util.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>

using yovotest::tableName;
using yovotest::TempDir;
using yovotest::writeFile;

namespace {

// Opens the protected steps to the tests.
class OpenScanDir : public YScanDir
{
public:
    using YScanDir::doFindDirective;
    using YScanDir::doGetFilesOfDirectory;
    using YScanDir::isIniLine;
};

struct ScannedFile
{
    explicit ScannedFile(const QByteArray& content, const char* name = "a.ini")
        : path(dir.file(QString::fromLatin1(name)))
    {
        writeFile(path, content);
        scanner.addFile(path);
        scanner.scan();
    }
    const YScanDir::DirectiveMap& table() const { return scanner.directives().at(tableName(path)); }
    // All entries of a key in the file, in table order.
    QStringList values(const QString& key) const
    {
        QStringList result;
        const auto range = table().equal_range(key);
        for (auto it = range.first; it != range.second; ++it)
            result.append(it->second.value);
        return result;
    }

    TempDir dir;
    QString path;
    OpenScanDir scanner;
};

} // namespace

TEST(YScanDir, QuoteRightBehindEqualsProtectsSemicolon)
{
    ScannedFile f("a=\"x;y\"\n");
    EXPECT_EQ(QStringList(QStringLiteral("\"x;y\"")), f.values(QStringLiteral("a")));
}

TEST(YScanDir, QuoteAfterBlankDoesNotProtectSemicolon)
{
    ScannedFile f("a = \"x;y\"\n");
    EXPECT_EQ(QStringList(QStringLiteral("\"x")), f.values(QStringLiteral("a")));
}

TEST(YScanDir, UnclosedQuoteLineIsNotInTable)
{
    ScannedFile f("a=\"x\nb=1\n");
    EXPECT_TRUE(f.values(QStringLiteral("a")).isEmpty());
    EXPECT_FALSE(f.scanner.contains(QStringLiteral("a")));
    EXPECT_EQ(1u, f.table().size());
}

TEST(YScanDir, SemicolonRules)
{
    ScannedFile f("a=;c\nb=b;c\nc=\nd = x ; comment\n");
    EXPECT_EQ(QStringList(QStringLiteral(";c")), f.values(QStringLiteral("a")));
    EXPECT_EQ(QStringList(QStringLiteral("b")), f.values(QStringLiteral("b")));
    EXPECT_EQ(QStringList(QString()), f.values(QStringLiteral("c")));
    EXPECT_TRUE(f.values(QStringLiteral("c")).at(0).isEmpty());
    EXPECT_EQ(QStringList(QStringLiteral("x")), f.values(QStringLiteral("d")));
}

TEST(YScanDir, EqualsInFirstPositionGivesEmptyKey)
{
    ScannedFile f("=b\n");
    EXPECT_EQ(QStringList(QStringLiteral("b")), f.values(QString()));
    EXPECT_EQ(1u, f.table().size());
}

TEST(YScanDir, CommentsBlankLinesAndLinesWithoutEquals)
{
    ScannedFile f("; note=1\n\n   \nno equals here\n#a=1\r\n  k  =  v  \r\n");
    ASSERT_EQ(2u, f.table().size());
    EXPECT_EQ(QStringList(QStringLiteral("1")), f.values(QStringLiteral("#a")));
    EXPECT_EQ(QStringList(QStringLiteral("v")), f.values(QStringLiteral("k")));
}

TEST(YScanDir, SectionsChangeForFollowingLines)
{
    ScannedFile f("k=0\n[PHP]\nk=1\n[Other]\nk=2\n");
    const auto range = f.table().equal_range(QStringLiteral("k"));
    QStringList values;
    QStringList sections;
    for (auto it = range.first; it != range.second; ++it) {
        values << it->second.value;
        sections << it->second.section;
        EXPECT_EQ(tableName(f.path), it->second.file);
    }
    EXPECT_EQ((QStringList {"0", "1", "2"}), values);
    EXPECT_EQ((QStringList {QString(), "PHP", "Other"}), sections);
    EXPECT_TRUE(f.table().find(QStringLiteral("k"))->second.section.isNull());
}

TEST(YScanDir, SectionNameEndsAtFirstBracket)
{
    ScannedFile f("[a]b]\nx=1\n[a=b]\ny=2\n");
    QString value;
    EXPECT_TRUE(f.scanner.getStringValue(QStringLiteral("a"), QStringLiteral("x"), f.path, value));
    EXPECT_EQ(QStringLiteral("1"), value);
    EXPECT_TRUE(
        f.scanner.getStringValue(QStringLiteral("a=b"), QStringLiteral("y"), f.path, value));
    EXPECT_EQ(QStringLiteral("2"), value);
    EXPECT_EQ(2u, f.table().size());
}

TEST(YScanDir, IsIniLineKnowsNoSections)
{
    OpenScanDir scanner;
    QString key;
    QString value;
    EXPECT_FALSE(scanner.isIniLine("[PHP]", key, value));
    EXPECT_TRUE(scanner.isIniLine("[a=b]", key, value));
    EXPECT_EQ(QStringLiteral("[a"), key);
    EXPECT_EQ(QStringLiteral("b]"), value);
    EXPECT_FALSE(scanner.isIniLine("", key, value));
    EXPECT_FALSE(scanner.isIniLine("  \r", key, value));
    EXPECT_FALSE(scanner.isIniLine("; a=b", key, value));
    EXPECT_FALSE(scanner.isIniLine("a", key, value));
    EXPECT_FALSE(scanner.isIniLine("a=\"b", key, value));
    EXPECT_TRUE(scanner.isIniLine(" x = \"1 ; 2\" ; c\r", key, value));
    EXPECT_EQ(QStringLiteral("x"), key);
    EXPECT_EQ(QStringLiteral("\"1"), value);
}

TEST(YScanDir, FileQueriesAcceptRelativeNames)
{
    ScannedFile f("[s]\nk=v\n");
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(f.dir.path()));
    QString value;
    const bool found = f.scanner.getStringValue(
        QStringLiteral("s"), QStringLiteral("k"), QStringLiteral("a.ini"), value);
    QDir::setCurrent(previous);
    EXPECT_TRUE(found);
    EXPECT_EQ(QStringLiteral("v"), value);
    EXPECT_FALSE(f.scanner.getStringValue(QString(), QStringLiteral("k"), f.path, value));
}

TEST(YScanDir, VanishedFileIsAbsentAfterScan)
{
    ScannedFile f("[s]\nk=v\n");
    ASSERT_EQ(1u, f.scanner.directives().size());
    ASSERT_TRUE(QFile::remove(f.path));
    f.scanner.scan();
    EXPECT_TRUE(f.scanner.directives().empty());
    EXPECT_TRUE(f.scanner.getListOfSections(f.path).isEmpty());
}

TEST(YScanDir, EmptyFileHasEntryWithoutDirectives)
{
    ScannedFile f("");
    ASSERT_EQ(1u, f.scanner.directives().size());
    EXPECT_TRUE(f.table().empty());
}

TEST(YScanDir, GetStringValueTrimmedRemovesOneQuotePair)
{
    ScannedFile f("a=\"a b\"\nb=\"a\nc = 'x'\nd=\"\"q\"\"\n");
    QString value;
    ASSERT_TRUE(f.scanner.getStringValueTrimmed(QStringLiteral("a"), value));
    EXPECT_EQ(QStringLiteral("a b"), value);
    // `b="a` has an unclosed quote and is no directive; the same value as a quoted tail is.
    EXPECT_FALSE(f.scanner.getStringValueTrimmed(QStringLiteral("b"), value));
    ScannedFile g("b=x \"a\n");
    EXPECT_TRUE(g.scanner.getStringValue(QStringLiteral("b"), value));
    EXPECT_EQ(QStringLiteral("x \"a"), value);
    ScannedFile h("b=\"\"a\n");
    ASSERT_TRUE(h.scanner.getStringValueTrimmed(QStringLiteral("b"), value));
    EXPECT_EQ(QStringLiteral("\"a"), value);
    ASSERT_TRUE(f.scanner.getStringValueTrimmed(QStringLiteral("d"), value));
    EXPECT_EQ(QStringLiteral("\"q\""), value);
    ASSERT_TRUE(
        f.scanner.getStringValueTrimmed(QStringLiteral(""), QStringLiteral("a"), f.path, value));
    EXPECT_EQ(QStringLiteral("a b"), value);
}

TEST(YScanDir, GetStringValueTrimmedOfOpenQuoteValue)
{
    // "a" with one opening quote only can stand in the table when it comes from a quoted tail.
    ScannedFile f("k=\"\"a;x\n");
    QString value;
    ASSERT_TRUE(f.scanner.getStringValue(QStringLiteral("k"), value));
    EXPECT_EQ(QStringLiteral("\"\"a"), value);
    ScannedFile g("k=\"a\" \n");
    ASSERT_TRUE(g.scanner.getStringValueTrimmed(QStringLiteral("k"), value));
    EXPECT_EQ(QStringLiteral("a"), value);
}

TEST(YScanDir, FailedLookupLeavesValueAlone)
{
    ScannedFile f("k=1\n");
    QString value = QStringLiteral("unchanged");
    EXPECT_FALSE(f.scanner.getStringValue(QStringLiteral("x"), value));
    EXPECT_FALSE(f.scanner.getStringValueTrimmed(QStringLiteral("x"), value));
    EXPECT_EQ(QStringLiteral("unchanged"), value);
}

TEST(YScanDir, GetInt)
{
    ScannedFile f("k = abc\nq = \"5\"\nn = -12\n");
    EXPECT_EQ(7, f.scanner.getInt(QStringLiteral("k"), 7));
    EXPECT_EQ(7, f.scanner.getInt(QStringLiteral("unknown"), 7));
    EXPECT_EQ(5, f.scanner.getInt(QStringLiteral("q"), 7));
    EXPECT_EQ(-12, f.scanner.getInt(QStringLiteral("n"), 7));
}

TEST(YScanDir, ContainsWithValueUsesCompareStrings)
{
    ScannedFile f("a=On\nb=\"c:\\php\\ext\"\n");
    EXPECT_TRUE(f.scanner.contains(QStringLiteral("a")));
    EXPECT_TRUE(f.scanner.contains(QStringLiteral("a"), QStringLiteral("1")));
    EXPECT_FALSE(f.scanner.contains(QStringLiteral("a"), QStringLiteral("0")));
    EXPECT_TRUE(f.scanner.contains(QStringLiteral("b"), QStringLiteral("c:/php/ext")));
    EXPECT_FALSE(f.scanner.contains(QStringLiteral("c"), QString()));
}

TEST(YScanDir, CompareStrings)
{
    EXPECT_TRUE(YScanDir::compareStrings(QStringLiteral("On"), QStringLiteral("\"1\"")));
    EXPECT_TRUE(YScanDir::compareStrings(QStringLiteral("OFF"), QStringLiteral("0")));
    EXPECT_TRUE(
        YScanDir::compareStrings(QStringLiteral("c:\\php\\ext"), QStringLiteral("\"c:/php/ext\"")));
    EXPECT_FALSE(YScanDir::compareStrings(QStringLiteral("Yes"), QStringLiteral("1")));
    EXPECT_FALSE(YScanDir::compareStrings(QStringLiteral("ABC"), QStringLiteral("abc")));
    EXPECT_TRUE(YScanDir::compareStrings(QStringLiteral("  x\" "), QStringLiteral("\"x")));
    // One quote is removed at each end, not more.
    EXPECT_FALSE(YScanDir::compareStrings(QStringLiteral("\"\"x\"\""), QStringLiteral("x")));
    EXPECT_TRUE(YScanDir::compareStrings(QString(), QStringLiteral("\"\"")));
}

TEST(YScanDir, FindDirectiveOverAllFiles)
{
    TempDir dir;
    writeFile(dir.file("b.ini"), "k=b1\nk=b2\n");
    writeFile(dir.file("a.ini"), "x=1\n");
    writeFile(dir.file("c.ini"), "k=c\n");
    OpenScanDir scanner;
    scanner.addFiles({dir.file("c.ini"), dir.file("b.ini"), dir.file("a.ini")});
    scanner.scan();
    YScanDir::DirectiveMap::iterator found;
    ASSERT_TRUE(scanner.doFindDirective(QStringLiteral("k"), found));
    EXPECT_EQ(QStringLiteral("b1"), found->second.value);
    EXPECT_FALSE(scanner.doFindDirective(QStringLiteral("zz"), found));
    QString value;
    ASSERT_TRUE(scanner.getStringValue(QStringLiteral("k"), value));
    EXPECT_EQ(QStringLiteral("b1"), value);
}

TEST(YScanDir, FindDirectiveMatchCodes)
{
    ScannedFile f("one=x\ntwo=1\ntwo=On\ntwo=3\n");
    YScanDir::DirectiveMap table = f.table();
    YScanDir::DirectiveMap::iterator found;
    EXPECT_EQ(YScanDir::DirectiveNotFound,
        f.scanner.doFindDirective(table, QStringLiteral("none"), QString(), found));
    EXPECT_EQ(YScanDir::DirectiveMatched,
        f.scanner.doFindDirective(table, QStringLiteral("one"), QStringLiteral("other"), found));
    EXPECT_EQ(QStringLiteral("x"), found->second.value);
    EXPECT_EQ(YScanDir::DirectiveMatched,
        f.scanner.doFindDirective(table, QStringLiteral("two"), QStringLiteral("on"), found));
    EXPECT_EQ(QStringLiteral("1"), found->second.value);
    EXPECT_EQ(YScanDir::DirectiveMatched,
        f.scanner.doFindDirective(table, QStringLiteral("two"), QStringLiteral("3"), found));
    EXPECT_EQ(QStringLiteral("3"), found->second.value);
    EXPECT_EQ(YScanDir::DirectiveKeyMatched,
        f.scanner.doFindDirective(table, QStringLiteral("two"), QStringLiteral("9"), found));
    EXPECT_EQ(QStringLiteral("1"), found->second.value);
}

TEST(YScanDir, ListOfSectionsAndKeysOfSection)
{
    ScannedFile f("top=1\n[A]\nz=1\nb=2\nb=3\n[Empty]\n[B]\nc=4\n");
    QStringList sections = f.scanner.getListOfSections(f.path);
    sections.sort();
    EXPECT_EQ((QStringList {"", "A", "B"}), sections);
    QStringList keys {QStringLiteral("kept")};
    f.scanner.getKeysOfSection(QStringLiteral("A"), f.path, keys);
    EXPECT_EQ((QStringList {"kept", "b", "b", "z"}), keys);
    keys.clear();
    f.scanner.getKeysOfSection(QStringLiteral("Empty"), f.path, keys);
    EXPECT_TRUE(keys.isEmpty());
    f.scanner.getKeysOfSection(QString(), f.path, keys);
    EXPECT_EQ(QStringList(QStringLiteral("top")), keys);
}

TEST(YScanDir, AddFilesRemovesDuplicates)
{
    YScanDir scanner;
    scanner.addFile(QStringLiteral("/x/a.ini"));
    scanner.addFiles({QStringLiteral("/x/b.ini"), QStringLiteral("/x/a.ini")});
    scanner.addFile(QStringLiteral("/x/b.ini"));
    QStringList files = scanner.getIniFiles();
    files.sort();
    EXPECT_EQ((QStringList {"/x/a.ini", "/x/b.ini"}), files);
    scanner.clear();
    EXPECT_TRUE(scanner.getIniFiles().isEmpty());
}

TEST(YScanDir, ClearKeepsTable)
{
    ScannedFile f("k=1\n");
    f.scanner.clear();
    EXPECT_TRUE(f.scanner.contains(QStringLiteral("k")));
    f.scanner.scan();
    EXPECT_TRUE(f.scanner.directives().empty());
}

TEST(YScanDir, DirectoriesGiveIniFilesOnly)
{
    TempDir dir;
    writeFile(dir.file("one.ini"), "a=1\n");
    writeFile(dir.file("two.ini"), "b=2\n");
    writeFile(dir.file("notes.txt"), "c=3\n");
    writeFile(dir.file("sub/three.ini"), "d=4\n");
    OpenScanDir scanner;
    QStringList files = scanner.doGetFilesOfDirectory(dir.path());
    files.sort();
    EXPECT_EQ((QStringList {dir.path() + QDir::separator() + "one.ini",
                  dir.path() + QDir::separator() + "two.ini"}),
        files);
    EXPECT_TRUE(scanner.doGetFilesOfDirectory(dir.file("missing")).isEmpty());
    EXPECT_TRUE(scanner.doGetFilesOfDirectory(dir.file("one.ini")).isEmpty());
    scanner.addDirectories({dir.path(), dir.file("missing")});
    scanner.scan();
    EXPECT_EQ(2u, scanner.directives().size());
    EXPECT_TRUE(scanner.contains(QStringLiteral("a")));
    EXPECT_FALSE(scanner.contains(QStringLiteral("c")));
    EXPECT_FALSE(scanner.contains(QStringLiteral("d")));
}

TEST(YScanDir, FoldersAndMissingFilesAreSkippedSilently)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "a=1\n");
    YScanDir scanner;
    scanner.addFiles({dir.path(), dir.file("missing.ini"), QString(), dir.file("a.ini")});
    scanner.scan();
    ASSERT_EQ(1u, scanner.directives().size());
    EXPECT_EQ(tableName(dir.file("a.ini")), scanner.directives().begin()->first);
}

TEST(YScanDir, SecondScanReplacesTable)
{
    ScannedFile f("k=1\n");
    writeFile(f.path, "k=2\nn=3\n");
    f.scanner.scan();
    EXPECT_EQ(QStringList(QStringLiteral("2")), f.values(QStringLiteral("k")));
    EXPECT_EQ(QStringList(QStringLiteral("3")), f.values(QStringLiteral("n")));
}

TEST(YScanDir, CopiesAreIndependentTables)
{
    ScannedFile f("k=1\n");
    YScanDir copy(f.scanner);
    writeFile(f.path, "k=2\n");
    f.scanner.scan();
    QString value;
    ASSERT_TRUE(copy.getStringValue(QStringLiteral("k"), value));
    EXPECT_EQ(QStringLiteral("1"), value);
    YScanDir assigned;
    assigned = f.scanner;
    ASSERT_TRUE(assigned.getStringValue(QStringLiteral("k"), value));
    EXPECT_EQ(QStringLiteral("2"), value);
}

TEST(YScanDir, NonAsciiKeysAndValuesAreUtf8)
{
    ScannedFile f("gr\xc3\xbc\xc3\x9f"
                  "e=\xe2\x82\xac\n");
    QString value;
    ASSERT_TRUE(f.scanner.getStringValue(QString::fromUtf8("gr\xc3\xbc\xc3\x9f"
                                                           "e"),
        value));
    EXPECT_EQ(QString::fromUtf8("\xe2\x82\xac"), value);
}
