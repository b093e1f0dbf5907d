#include "scan_dir.h"

#include "ini_test_util.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

using yovotest::readFile;
using yovotest::tableName;
using yovotest::TempDir;
using yovotest::writeFile;

namespace {

class OpenScanDir : public YScanDir
{
public:
    explicit OpenScanDir(YDebug::StreamId stream = YDebug::STDERR)
        : YScanDir(stream)
    {
    }
    using YScanDir::doNormalizeValue;
};

// The scanner's own stream, at the level the expected log texts were taken at.
struct Log : public yovotest::LogFile
{
    Log()
        : LogFile("SD", "scan.log", YDebug::DBG2)
    {
    }
};

struct IniFile
{
    explicit IniFile(const QByteArray& content, YDebug::StreamId stream = YDebug::STDERR)
        : path(dir.file("php.ini"))
        , name(tableName(dir.file("php.ini")))
        , scanner(stream)
    {
        writeFile(path, content);
        scanner.addFile(path);
        scanner.scan();
    }
    QByteArray flushed()
    {
        scanner.flush();
        return readFile(path);
    }

    TempDir dir;
    QString path;
    QString name;
    OpenScanDir scanner;
};

// Restores the process-wide metadata when a test ends.
struct MetadataGuard
{
    ~MetadataGuard() { YScanDir::setMetadata(YScanDir::MetadataMap()); }
};

class ReverseSorter : public IYScanDirValueSorter
{
public:
    explicit ReverseSorter(int* destroyed)
        : _destroyed(destroyed)
    {
    }
    ~ReverseSorter() override { ++*_destroyed; }
    void sort(std::list<YScanDirDirectiveValueEx>& values) override { values.reverse(); }

private:
    int* _destroyed;
};

} // namespace

TEST(YScanDirRewrite, ChangedDirectiveKeepsItsPlaceAndOtherLines)
{
    IniFile f("; head\n[PHP]\na = 1 ; old\nb=\"x y\" ; c\n");
    f.scanner.setStringValue(QStringLiteral("a"), QStringLiteral("2"));
    EXPECT_EQ(QByteArray("; head\n[PHP]\na=2\r\nb=\"x y\""), f.flushed());
}

TEST(YScanDirRewrite, UntouchedLinesKeepTheirBytesAndLineEnds)
{
    IniFile f("\n\n; caf\xe9 \r\n  [Sec]  \r\nno equals\r\n\t; x=1\nk=v\n\n");
    EXPECT_EQ(QByteArray("; caf\xe9 \r\n  [Sec]  \r\nno equals\r\n\t; x=1\nk=v"), f.flushed());
}

TEST(YScanDirRewrite, NormalisingQuotesValuesWithSyntaxCharacters)
{
    IniFile f("p=1\nerror_reporting=E_ALL\n");
    const auto value = [&f]() {
        QString v;
        f.scanner.getStringValue(QStringLiteral("p"), v);
        return v;
    };
    f.scanner.setStringValue(QStringLiteral("p"), QStringLiteral("C:\\Program Files"));
    EXPECT_EQ(QStringLiteral("\"C:\\Program Files\""), value());
    f.scanner.setStringValue(QStringLiteral("p"), QStringLiteral("on"));
    EXPECT_EQ(QStringLiteral("on"), value());
    f.scanner.setStringValue(QStringLiteral("p"), QStringLiteral("@a b"));
    EXPECT_EQ(QStringLiteral("@\"a b\""), value());
    f.scanner.setStringValue(QStringLiteral("p"), QStringLiteral(" keep blanks "));
    EXPECT_EQ(QStringLiteral("\"keep blanks\""), value());
    f.scanner.setStringValue(QStringLiteral("p"), QStringLiteral(" bare "));
    EXPECT_EQ(QStringLiteral(" bare "), value());
    f.scanner.setStringValue(QStringLiteral("p"), QStringLiteral("\"half x"));
    EXPECT_EQ(QStringLiteral("\"half x\""), value());
    f.scanner.setStringValue(
        QStringLiteral("error_reporting"), QStringLiteral("\"E_ALL & ~E_NOTICE\""));
    QString v;
    f.scanner.getStringValue(QStringLiteral("error_reporting"), v);
    EXPECT_EQ(QStringLiteral("E_ALL & ~E_NOTICE"), v);
    EXPECT_EQ(QByteArray("p=\"half x\"\r\nerror_reporting=E_ALL & ~E_NOTICE"), f.flushed());
}

TEST(YScanDirRewrite, NormalisingAllTwelveCharacters)
{
    for (const char c : QByteArray(" ;!=[]()$~&|")) {
        const QString value = QStringLiteral("a") + QLatin1Char(c) + QStringLiteral("b");
        EXPECT_EQ(QLatin1Char('"') + value + QLatin1Char('"'),
            OpenScanDir::doNormalizeValue(QStringLiteral("k"), value))
            << c;
    }
    EXPECT_EQ(QStringLiteral("a\"b,c"),
        OpenScanDir::doNormalizeValue(QStringLiteral("k"), QStringLiteral("a\"b,c")));
    EXPECT_EQ(QStringLiteral("E_ALL"),
        OpenScanDir::doNormalizeValue(
            QStringLiteral(" \"error_reporting\" "), QStringLiteral("\"E_ALL")));
}

TEST(YScanDirRewrite, MetadataDecidesQuoting)
{
    MetadataGuard guard;
    YScanDir::MetadataMap metadata;
    metadata.emplace(QStringLiteral("p"), YScanDirDirectiveInfo {QStringLiteral("plain"), 0});
    metadata.emplace(QStringLiteral("q"), YScanDirDirectiveInfo {QString(), 1});
    metadata.emplace(QStringLiteral("twice"), YScanDirDirectiveInfo {QString(), 0});
    metadata.emplace(QStringLiteral("twice"), YScanDirDirectiveInfo {QString(), 0});
    YScanDir::setMetadata(metadata);
    EXPECT_EQ(QStringLiteral("a b"),
        OpenScanDir::doNormalizeValue(QStringLiteral("p"), QStringLiteral("a b")));
    EXPECT_EQ(QStringLiteral("\"a b\""),
        OpenScanDir::doNormalizeValue(QStringLiteral("q"), QStringLiteral("a b")));
    // Two entries, or none, for a key leave quoting wanted.
    EXPECT_EQ(QStringLiteral("\"a b\""),
        OpenScanDir::doNormalizeValue(QStringLiteral("twice"), QStringLiteral("a b")));
    EXPECT_EQ(QStringLiteral("\"a b\""),
        OpenScanDir::doNormalizeValue(QStringLiteral("other"), QStringLiteral("a b")));
}

TEST(YScanDirRewrite, UnknownKeyChangesNothingButFlushNormalisesEveryFile)
{
    TempDir dir;
    writeFile(dir.file("one.ini"), "a = 1 ; c\n");
    writeFile(dir.file("two.ini"), "b=\"2\"   ; c\r\n");
    YScanDir scanner;
    scanner.addFiles({dir.file("one.ini"), dir.file("two.ini")});
    scanner.scan();
    scanner.setStringValue(QStringLiteral("missing"), QStringLiteral("x"));
    EXPECT_FALSE(scanner.contains(QStringLiteral("missing")));
    scanner.flush();
    EXPECT_EQ(QByteArray("a=1"), readFile(dir.file("one.ini")));
    EXPECT_EQ(QByteArray("b=\"2\""), readFile(dir.file("two.ini")));
}

TEST(YScanDirRewrite, SetStringValueChangesFirstFileOnly)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "k=1\nk=2\n");
    writeFile(dir.file("b.ini"), "k=3\n");
    YScanDir scanner;
    scanner.addFiles({dir.file("b.ini"), dir.file("a.ini")});
    scanner.scan();
    scanner.setStringValue(QStringLiteral("k"), QStringLiteral("9"));
    scanner.flush();
    EXPECT_EQ(QByteArray("k=9\r\nk=2"), readFile(dir.file("a.ini")));
    EXPECT_EQ(QByteArray("k=3"), readFile(dir.file("b.ini")));
}

TEST(YScanDirRewrite, DuplicateKeysKeepTheirLines)
{
    IniFile f("a=1\nx=0\na=2\n");
    f.scanner.setStringValue(QStringLiteral("a"), QStringLiteral("3"));
    EXPECT_EQ(QByteArray("a=3\r\nx=0\r\na=2"), f.flushed());
}

TEST(YScanDirRewrite, RemovingOneOfTwoEqualLinesDropsTheLaterLine)
{
    IniFile f("a=1\n; between\na=1\n");
    EXPECT_TRUE(f.scanner.removeDirective(QStringLiteral("a"), f.name, QStringLiteral("1")));
    EXPECT_EQ(QByteArray("a=1\r\n; between\n"), f.flushed().append('\n'));
}

TEST(YScanDirRewrite, RemoveDirectiveMatchRules)
{
    IniFile f("one=x\ntwo=1\ntwo=2\n");
    EXPECT_FALSE(f.scanner.removeDirective(QStringLiteral("two"), f.name, QStringLiteral("3")));
    EXPECT_FALSE(f.scanner.removeDirective(QStringLiteral("none"), f.name, QString()));
    EXPECT_FALSE(
        f.scanner.removeDirective(QStringLiteral("one"), f.name + "x", QStringLiteral("x")));
    // A single entry goes whatever the value says.
    EXPECT_TRUE(f.scanner.removeDirective(QStringLiteral("one"), f.name, QStringLiteral("zzz")));
    EXPECT_TRUE(f.scanner.removeDirective(QStringLiteral("two"), f.name, QStringLiteral("2")));
    EXPECT_EQ(QByteArray("two=1"), f.flushed());
}

TEST(YScanDirRewrite, ExtensionsAreGatheredInOneBlock)
{
    IniFile f("; ext\nextension=a\nx=1\nextension=b\n");
    EXPECT_TRUE(f.scanner.addDirective(QStringLiteral("extension"), f.name, QStringLiteral("c")));
    EXPECT_EQ(QByteArray("; ext\nextension=a\r\nextension=b\r\nextension=c\r\nx=1"), f.flushed());
}

TEST(YScanDirRewrite, ExtensionKindsKeepSeparateBlocks)
{
    IniFile f("yovo_extension=y1\nextension=a\nyovo_extension=y2\nextension=b\nz=1\n");
    EXPECT_EQ(QByteArray("yovo_extension=y1\r\nyovo_extension=y2\r\nextension=a\r\nextension=b\r\n"
                         "z=1"),
        f.flushed());
}

TEST(YScanDirRewrite, RemovedExtensionsVanish)
{
    IniFile f("a=1\nextension=x\nb=2\n");
    EXPECT_TRUE(f.scanner.removeDirective(QStringLiteral("extension"), f.name, QString()));
    EXPECT_EQ(QByteArray("a=1\r\nb=2"), f.flushed());
}

TEST(YScanDirRewrite, AddedExtensionWithoutExistingLineGoesInKeyOrder)
{
    IniFile f("b=1\nz=2\n");
    EXPECT_TRUE(f.scanner.addDirective(QStringLiteral("extension"), f.name, QStringLiteral("e")));
    EXPECT_TRUE(f.scanner.addDirective(QStringLiteral("c"), f.name, QStringLiteral("3")));
    // The file's final line feed leaves an empty line in front of the appended entries.
    EXPECT_EQ(QByteArray("b=1\r\nz=2\r\n\nc=3\r\nextension=e"), f.flushed());
}

TEST(YScanDirRewrite, SorterOrdersExtensionsAndIsOwned)
{
    int destroyed = 0;
    {
        IniFile f("extension=a\nextension=b\nextension=c\n");
        f.scanner.setExtensionsWriteSorter(new ReverseSorter(&destroyed));
        EXPECT_EQ(QByteArray("extension=c\r\nextension=b\r\nextension=a"), f.flushed());
        YScanDir copy(f.scanner);
        f.scanner.setExtensionsWriteSorter(new ReverseSorter(&destroyed));
        EXPECT_EQ(0, destroyed) << "the copy still holds the first sorter";
    }
    EXPECT_EQ(2, destroyed);
}

TEST(YScanDirRewrite, UnclosedQuoteLineStaysAndHeaderWithEqualsIsDropped)
{
    IniFile f("a=\"open\n[x=y]\nk=1\n");
    EXPECT_FALSE(f.scanner.contains(QStringLiteral("a")));
    EXPECT_EQ(QStringList(QStringLiteral("x=y")), f.scanner.getListOfSections(f.path));
    EXPECT_EQ(QByteArray("a=\"open\nk=1"), f.flushed());
}

TEST(YScanDirRewrite, AddDirectiveAfterFinalLineFeed)
{
    IniFile f("; only a comment\n");
    EXPECT_TRUE(f.scanner.addDirective(QStringLiteral("n"), f.name, QStringLiteral("1")));
    EXPECT_EQ(QByteArray("; only a comment\n\nn=1"), f.flushed());
    IniFile g("; no final line feed");
    EXPECT_TRUE(g.scanner.addDirective(QStringLiteral("n"), g.name, QStringLiteral("1")));
    EXPECT_EQ(QByteArray("; no final line feed\nn=1"), g.flushed());
}

TEST(YScanDirRewrite, AddDirectiveNeedsScannedFile)
{
    IniFile f("k=1\n");
    EXPECT_FALSE(f.scanner.addDirective(QStringLiteral("n"), f.path + "x", QStringLiteral("1")));
    YScanDirDirectiveValue value {QStringLiteral("v"), f.name, QStringLiteral("S")};
    EXPECT_TRUE(f.scanner.addDirective(QStringLiteral("k"), value));
    QString found;
    EXPECT_TRUE(f.scanner.getStringValue(QStringLiteral("S"), QStringLiteral("k"), f.path, found));
    EXPECT_EQ(QStringLiteral("v"), found);
    value.file = f.name + "x";
    EXPECT_FALSE(f.scanner.addDirective(QStringLiteral("k"), value));
}

TEST(YScanDirRewrite, FourArgumentSetStringValue)
{
    IniFile f("[S]\nk=1\n");
    // Stored as given, without quotes.
    f.scanner.setStringValue(
        QStringLiteral("S"), QStringLiteral("k"), QStringLiteral("a b"), f.name);
    f.scanner.setStringValue(
        QStringLiteral("T"), QStringLiteral("k"), QStringLiteral("\"a"), f.name);
    QString value;
    EXPECT_TRUE(f.scanner.getStringValue(QStringLiteral("S"), QStringLiteral("k"), f.path, value));
    EXPECT_EQ(QStringLiteral("a b"), value);
    EXPECT_TRUE(
        f.scanner.getStringValueTrimmed(QStringLiteral("T"), QStringLiteral("k"), f.path, value));
    EXPECT_EQ(QStringLiteral("a"), value);
    // A new section's entry goes to the end, under whatever header stands last.
    EXPECT_EQ(QByteArray("[S]\nk=a b\r\n\nk=\"a"), f.flushed());
}

TEST(YScanDirRewrite, FourArgumentSetStringValueCreatesFileEntry)
{
    TempDir dir;
    const QString file = tableName(dir.file("new.ini"));
    YScanDir scanner;
    scanner.setStringValue(QStringLiteral("S"), QStringLiteral("k"), QStringLiteral("v"), file);
    EXPECT_TRUE(scanner.getIniFiles().isEmpty());
    ASSERT_EQ(1u, scanner.directives().count(file));
    scanner.flushWithSections();
    EXPECT_EQ(QByteArray("[S]\r\nk = v"), readFile(file));
}

TEST(YScanDirRewrite, FlushOfMissingFileLogsAndWritesNothing)
{
    Log log;
    TempDir dir;
    const QString file = tableName(dir.file("new.ini"));
    YScanDir scanner(log.stream());
    scanner.setStringValue(QString(), QStringLiteral("k"), QStringLiteral("v"), file);
    scanner.flush();
    EXPECT_FALSE(QFile::exists(file));
    EXPECT_FALSE(QFile::exists(file + ".new"));
    EXPECT_EQ("[SD <TS> ERROR] Error while opening file " + file.toUtf8()
            + " for read No such file or directory \r\n",
        log.text());
}

TEST(YScanDirRewrite, SetFileContentReplacesTheFileTable)
{
    IniFile f("a=1\nb=2\n");
    std::list<YScanDirDirectiveValueEx> content;
    content.push_back({QStringLiteral("z"), {QStringLiteral("26"), f.name, QString()}});
    content.push_back({QStringLiteral("b"), {QStringLiteral("3"), f.name, QString()}});
    EXPECT_FALSE(f.scanner.setFileContent(f.name + "x", content));
    EXPECT_TRUE(f.scanner.setFileContent(f.name, content));
    EXPECT_FALSE(f.scanner.contains(QStringLiteral("a")));
    EXPECT_EQ(QByteArray("b=3\r\n\nz=26"), f.flushed());
}

TEST(YScanDirRewrite, FlushWithSectionsRegeneratesTheFile)
{
    IniFile f("; comment\nc=3\n[S]\nb = x y\na=1\n");
    f.scanner.flushWithSections();
    const QByteArray s = "[S]\r\na = 1\r\nb = \"x y\"\r\n";
    const QByteArray top = "c = 3\r\n";
    const QByteArray text = readFile(f.path);
    // The order of the sections is a set's: either may come first.
    EXPECT_TRUE(text == (s + "\r\n" + top).trimmed() || text == (top + "\r\n" + s).trimmed())
        << text.constData();
}

TEST(YScanDirRewrite, FlushWritesCrLfAndKeepsOldFileWhenContentHasNul)
{
    Log log;
    IniFile f("k=1\n", log.stream());
    f.scanner.setStringValue(
        QString(), QStringLiteral("k"), QStringLiteral("a") + QChar(0) + "b", f.name);
    f.scanner.flush();
    EXPECT_EQ(QByteArray("k=1\n"), readFile(f.path));
    EXPECT_EQ(QByteArray("k=a"), readFile(f.path + ".new"));
    EXPECT_EQ(
        "[SD <TS> WARNING] Error while writing file " + f.name.toUtf8() + ".new . Success \r\n",
        log.text());
}

TEST(YScanDirRewrite, FailedRenameLeavesNewFileAndOldFile)
{
    Log log;
    TempDir dir;
    // A folder with content cannot be renamed over.
    const QString file = tableName(dir.file("busy"));
    writeFile(dir.file("busy/inside"), "x");
    YScanDir scanner(log.stream());
    scanner.setStringValue(QString(), QStringLiteral("k"), QStringLiteral("v"), file);
    scanner.flushWithSections();
    EXPECT_TRUE(QFileInfo(file).isDir());
    EXPECT_EQ(QByteArray("x"), readFile(dir.file("busy/inside")));
    EXPECT_EQ(QByteArray("k = v"), readFile(file + ".new"));
    EXPECT_EQ("[SD <TS> WARNING] Rename error: " + file.toUtf8() + ".new -> " + file.toUtf8()
            + " . Is a directory \r\n",
        log.text());
}

TEST(YScanDirRewrite, FailedOpenOfNewFileIsLogged)
{
    Log log;
    TempDir dir;
    const QString file = tableName(dir.file("a.ini"));
    // "<file>.new" is a folder, so it cannot be opened for writing.
    QDir().mkpath(file + ".new");
    YScanDir scanner(log.stream());
    scanner.setStringValue(QString(), QStringLiteral("k"), QStringLiteral("v"), file);
    scanner.flushWithSections();
    EXPECT_FALSE(QFile::exists(file));
    EXPECT_EQ("[SD <TS> WARNING] Error while opening file " + file.toUtf8()
            + ".new . Is a directory \r\n",
        log.text());
}

TEST(YScanDirRewrite, FailedWriteKeepsTableForRetry)
{
    TempDir dir;
    const QString file = tableName(dir.file("a.ini"));
    QDir().mkpath(file + ".new");
    YScanDir scanner;
    scanner.setStringValue(QString(), QStringLiteral("k"), QStringLiteral("v"), file);
    scanner.flushWithSections();
    ASSERT_TRUE(QDir(file + ".new").removeRecursively());
    scanner.flushWithSections();
    EXPECT_EQ(QByteArray("k = v"), readFile(file));
}

TEST(YScanDirRewrite, SecondScanLosesUnflushedChanges)
{
    IniFile f("k=1\n");
    f.scanner.setStringValue(QStringLiteral("k"), QStringLiteral("2"));
    f.scanner.scan();
    QString value;
    ASSERT_TRUE(f.scanner.getStringValue(QStringLiteral("k"), value));
    EXPECT_EQ(QStringLiteral("1"), value);
}

TEST(YScanDirRewrite, ModifyDirectiveIsOneCall)
{
    TempDir dir;
    const QString path = dir.file("php.ini");
    writeFile(path, "; c\nmemory_limit = 128M ; note\nx=1\n");
    YScanDir::modifyDirective(
        YDebug::STDERR, path, QStringLiteral("memory_limit"), QStringLiteral("256M"));
    EXPECT_EQ(QByteArray("; c\nmemory_limit=256M\r\nx=1"), readFile(path));
}

TEST(YScanDirRewrite, SymbolicLinkStaysALink)
{
    TempDir dir;
    const QString target = dir.file("real/php.ini");
    writeFile(target, "k=1\n");
    const QString link = dir.file("link.ini");
    ASSERT_EQ(
        0, ::symlink(QFile::encodeName(target).constData(), QFile::encodeName(link).constData()));
    YScanDir::modifyDirective(YDebug::STDERR, link, QStringLiteral("k"), QStringLiteral("2"));
    EXPECT_TRUE(QFileInfo(link).isSymLink());
    EXPECT_EQ(QByteArray("k=2"), readFile(target));
    EXPECT_FALSE(QFile::exists(link + ".new"));
}

TEST(YScanDirRewrite, ModeAndOwnerStay)
{
    TempDir dir;
    const QString path = dir.file("php.ini");
    writeFile(path, "k=1\n");
    const QByteArray name = QFile::encodeName(path);
    ASSERT_EQ(0, ::chmod(name.constData(), 0640));
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(0, ::chown(name.constData(), 4242, 4343));
    }
    YScanDir::modifyDirective(YDebug::STDERR, path, QStringLiteral("k"), QStringLiteral("2"));
    EXPECT_EQ(QByteArray("k=2"), readFile(path));
    struct stat info;
    ASSERT_EQ(0, ::stat(name.constData(), &info));
    EXPECT_EQ(0640u, info.st_mode & 07777u);
    if (root) {
        EXPECT_EQ(4242u, info.st_uid);
        EXPECT_EQ(4343u, info.st_gid);
    }
}

TEST(YScanDirRewrite, BackupBeforeScanOnlyLogs)
{
    Log log;
    YScanDir scanner(log.stream());
    scanner.backup();
    EXPECT_EQ(QByteArray("[SD <TS> DBG2] There are no files to backup... did you remember to call "
                         "scan() ? \r\n"),
        log.text());
}

TEST(YScanDirRewrite, BackupCopiesEachFileAndReplacesOldBackup)
{
    Log log;
    IniFile f("k=1\n", log.stream());
    writeFile(f.path + ".backup", "old");
    f.scanner.backup();
    EXPECT_EQ(QByteArray("k=1\n"), readFile(f.path + ".backup"));
    EXPECT_EQ("[SD <TS> DBG2] Creating backup for file " + f.name.toUtf8() + " \r\n", log.text());
}

TEST(YScanDirRewrite, BackupTriesCopyDespiteUndeletableOldBackup)
{
    Log log;
    IniFile f("k=1\n", log.stream());
    // A folder with content is a backup that cannot be removed.
    writeFile(f.path + ".backup/keep", "x");
    f.scanner.backup();
    const QByteArray text = log.text();
    const QByteArray backup = f.name.toUtf8() + ".backup";
    EXPECT_TRUE(
        text.startsWith("[SD <TS> WARNING] Could not remove old backup file: " + backup + " , "))
        << text.constData();
    EXPECT_TRUE(
        text.contains("[SD <TS> DBG2] Creating backup for file " + f.name.toUtf8() + " \r\n"));
    EXPECT_TRUE(text.contains(
        "[SD <TS> WARNING] YScanDir: Failed to backup file: " + f.name.toUtf8() + " "))
        << text.constData();
    EXPECT_EQ(QByteArray("x"), readFile(f.path + ".backup/keep"));
}
