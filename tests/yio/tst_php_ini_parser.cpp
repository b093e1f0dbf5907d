#include "php_ini_parser.h"

#include "ini_test_util.h"
#include "test_support.h"
#include "ydebug.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QDir>

#include <fcntl.h>
#include <unistd.h>

using yovotest::maskTimestamps;
using yovotest::readFile;
using yovotest::TempDir;
using yovotest::writeFile;

namespace {

// Sends what the library writes on STDERR to a file for the life of the object, at NOTICE level.
class StderrCapture
{
public:
    explicit StderrCapture(int level = YDebug::NOTICE)
        : _path(_dir.file("stderr.txt"))
    {
        std::fflush(stderr);
        _saved = ::dup(2);
        const int fd
            = ::open(QFile::encodeName(_path).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(fd, 2);
        ::close(fd);
        YDebug::setDebugLevel(YDebug::STDERR, level);
    }
    ~StderrCapture() { restore(); }
    QByteArray text()
    {
        restore();
        return maskTimestamps(readFile(_path));
    }

private:
    void restore()
    {
        if (_saved < 0)
            return;
        std::fflush(stderr);
        ::dup2(_saved, 2);
        ::close(_saved);
        _saved = -1;
        YDebug::setDebugLevel(YDebug::STDERR, YDebug::WARNING);
    }

    TempDir _dir;
    QString _path;
    int _saved;
};

class StreamParser : public YPhpIniParser
{
public:
    using YPhpIniParser::YPhpIniParser;
    void parse(const QString& text, const QString& onlyKey = QString())
    {
        QString copy = text;
        QTextStream stream(&copy);
        read(stream, onlyKey);
    }
};

QByteArray notice(const QByteArray& text)
{
    return "[<TS> NOTICE] YPhpIniParser: couldn't parse '" + text + " \r\n";
}

class RecordingHandler : public YPhpIniParserHandler
{
public:
    bool acceptDirective(const QString& key, const QString& value) override
    {
        seen.append(key + QLatin1Char('=') + value);
        return key != QLatin1String("vetoed");
    }
    QStringList seen;
};

using Pairs = QList<QPair<QString, QString>>;

} // namespace

TEST(YPhpIniParser, EmptyValue)
{
    StreamParser parser;
    parser.parse(QStringLiteral("a=\n"));
    EXPECT_TRUE(parser.contains(QStringLiteral("a")));
    EXPECT_TRUE(parser.value(QStringLiteral("a")).isEmpty());
    EXPECT_EQ(0, parser.longValue(QStringLiteral("a")));
    try {
        parser.longValues(QStringLiteral("a"));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QByteArray(e.what()).endsWith(" can't convert value  to long (the key is a)"))
            << e.what();
        EXPECT_NE(0u, e.getLine());
    }
}

TEST(YPhpIniParser, QuotedValues)
{
    StderrCapture capture;
    StreamParser parser;
    parser.parse(QStringLiteral("a=\"\"\nb=\"\nc=\"b\nd=\"b\"c\ne=\"b\"c\"\nf=b\"c\n"));
    EXPECT_TRUE(parser.contains(QStringLiteral("a")));
    EXPECT_TRUE(parser.value(QStringLiteral("a")).isEmpty());
    EXPECT_FALSE(parser.contains(QStringLiteral("b")));
    EXPECT_FALSE(parser.contains(QStringLiteral("c")));
    EXPECT_FALSE(parser.contains(QStringLiteral("d")));
    EXPECT_EQ(QStringLiteral("b\"c"), parser.value(QStringLiteral("e")));
    EXPECT_EQ(QStringLiteral("b\"c"), parser.value(QStringLiteral("f")));
    EXPECT_EQ(notice("b=\"'. missing closing quote.") + notice("c=\"b'. missing closing quote.")
            + notice("d=\"b\"c'. missing closing quote."),
        capture.text());
}

TEST(YPhpIniParser, Comments)
{
    StreamParser parser;
    parser.parse(QStringLiteral("a=\"b;c\" ; note\nb=b;c\nc=;c\nd = ;b\n; x=1\n#e=1\r\n"));
    EXPECT_EQ(QStringLiteral("b;c"), parser.value(QStringLiteral("a")));
    EXPECT_EQ(QStringLiteral("b"), parser.value(QStringLiteral("b")));
    EXPECT_EQ(QStringLiteral(";c"), parser.value(QStringLiteral("c")));
    EXPECT_EQ(QStringLiteral(";b"), parser.value(QStringLiteral("d")));
    EXPECT_FALSE(parser.contains(QStringLiteral("x")));
    EXPECT_EQ(QStringLiteral("1"), parser.value(QStringLiteral("#e")));
    EXPECT_EQ(5, parser.entriesByDeclarationOrder().size());
}

TEST(YPhpIniParser, MalformedLinesAreReported)
{
    StderrCapture capture;
    StreamParser parser;
    parser.parse(QStringLiteral("  =x  \nno equals\n[open\n[open=1\n[x]=y\n[x] ; note\n[a=b]\n"));
    EXPECT_EQ(QStringLiteral("1"), parser.value(QStringLiteral("[open")));
    EXPECT_EQ(QStringLiteral("y"), parser.value(QStringLiteral("[x]")));
    EXPECT_EQ(2, parser.entriesOrderedByKey().size());
    EXPECT_EQ(notice("=x'") + notice("no equals'") + notice("[open'") + notice("[x] ; note'"),
        capture.text());
}

TEST(YPhpIniParser, NoticeBelowStreamLevelIsNotPrinted)
{
    StderrCapture capture(YDebug::WARNING);
    StreamParser parser;
    parser.parse(QStringLiteral("broken\n"));
    EXPECT_TRUE(capture.text().isEmpty());
}

TEST(YPhpIniParser, SectionsDoNotChangeKeys)
{
    StreamParser parser;
    parser.parse(QStringLiteral("k=0\n[PHP]\nk=1\r\n  [Other]  \r\nk=2"));
    EXPECT_EQ((QStringList {"0", "1", "2"}), parser.values(QStringLiteral("k")));
}

TEST(YPhpIniParser, ThreeDeclarationsThenSetString)
{
    StreamParser parser;
    parser.parse(QStringLiteral("a=1\nb=x\na=2\na=3\nc=y\n"));
    EXPECT_EQ((QStringList {"1", "2", "3"}), parser.values(QStringLiteral("a")));
    EXPECT_EQ((QStringList {"1", "2", "3"}), parser.stringValues(QStringLiteral("a")));
    EXPECT_EQ(QStringLiteral("3"), parser.value(QStringLiteral("a")));
    EXPECT_EQ(QStringLiteral("3"), parser.stringValue(QStringLiteral("a")));
    EXPECT_EQ((Pairs {{"a", "1"}, {"b", "x"}, {"a", "2"}, {"a", "3"}, {"c", "y"}}),
        parser.entriesByDeclarationOrder());
    parser.setString(QStringLiteral("a"), QStringLiteral("z"));
    EXPECT_EQ(QStringList(QStringLiteral("z")), parser.values(QStringLiteral("a")));
    EXPECT_EQ((Pairs {{"a", "z"}, {"b", "x"}, {"c", "y"}}), parser.entriesByDeclarationOrder());
    parser.addString(QStringLiteral("a"), QStringLiteral("w"));
    EXPECT_EQ((Pairs {{"a", "z"}, {"b", "x"}, {"c", "y"}, {"a", "w"}}),
        parser.entriesByDeclarationOrder());
}

TEST(YPhpIniParser, NewKeysGoToTheEnd)
{
    StreamParser parser;
    parser.parse(QStringLiteral("a=1\nb=2\n"));
    parser.setString(QStringLiteral("n"), QStringLiteral("3"));
    parser.addString(QStringLiteral("m"), QStringLiteral("4"));
    parser.setLong(QStringLiteral("l"), -5);
    parser.addLong(QStringLiteral("l"), 6);
    EXPECT_EQ((Pairs {{"a", "1"}, {"b", "2"}, {"n", "3"}, {"m", "4"}, {"l", "-5"}, {"l", "6"}}),
        parser.entriesByDeclarationOrder());
    EXPECT_EQ((QList<long> {-5, 6}), parser.longValues(QStringLiteral("l")));
    EXPECT_EQ(6, parser.longValue(QStringLiteral("l")));
}

TEST(YPhpIniParser, EmptyPrefixListStoresNothingButReports)
{
    StderrCapture capture;
    StreamParser parser {QStringList()};
    parser.parse(QStringLiteral("a=1\nbad\nb=2\n"));
    EXPECT_TRUE(parser.entriesOrderedByKey().isEmpty());
    EXPECT_TRUE(parser.entriesByDeclarationOrder().isEmpty());
    EXPECT_EQ(notice("bad'"), capture.text());
}

TEST(YPhpIniParser, PrefixesAreCaseSensitive)
{
    StreamParser parser {QStringList {QStringLiteral("yovo."), QStringLiteral("db_")}};
    parser.parse(QStringLiteral("yovo.a=1\nYOVO.b=2\ndb_c=3\nother=4\n"));
    EXPECT_EQ((QStringList {"db_c", "yovo.a"}), [&parser]() {
        QStringList keys = parser.entriesOrderedByKey().keys();
        keys.sort();
        return keys;
    }());
}

TEST(YPhpIniParser, OnlyKeyRestrictsTheRead)
{
    StreamParser parser;
    parser.parse(QStringLiteral("a=1\nb=2\na=3\n"), QStringLiteral("  a "));
    EXPECT_EQ((QStringList {"1", "3"}), parser.values(QStringLiteral("a")));
    EXPECT_FALSE(parser.contains(QStringLiteral("b")));
}

TEST(YPhpIniParser, HandlerVetoesAfterTheOtherTests)
{
    StderrCapture capture;
    RecordingHandler handler;
    StreamParser parser {QStringList(QStringLiteral("v")), &handler};
    parser.parse(QStringLiteral("vetoed=1\nvalid=\"2\"\nother=3\nv=\"broken\n"));
    EXPECT_FALSE(parser.contains(QStringLiteral("vetoed")));
    EXPECT_EQ(QStringLiteral("2"), parser.value(QStringLiteral("valid")));
    EXPECT_EQ((QStringList {"vetoed=1", "valid=2"}), handler.seen);
    EXPECT_EQ(notice("v=\"broken'. missing closing quote."), capture.text());
}

TEST(YPhpIniParser, UnknownKey)
{
    YPhpIniParser parser;
    EXPECT_FALSE(parser.contains(QStringLiteral("x")));
    EXPECT_TRUE(parser.value(QStringLiteral("x")).isEmpty());
    EXPECT_TRUE(parser.values(QStringLiteral("x")).isEmpty());
    EXPECT_EQ(0, parser.longValue(QStringLiteral("x")));
    EXPECT_TRUE(parser.longValues(QStringLiteral("x")).isEmpty());
    EXPECT_TRUE(parser.path().isEmpty());
}

TEST(YPhpIniParser, NumbersAre32BitDecimal)
{
    StreamParser parser;
    parser.parse(QStringLiteral("a=12\nb=\" -7 \"\nc=+5\nd=2147483647\ne=-2147483648\n"
                                "hex=0x10\nsuffix=10M\nbig=2147483648\nsmall=-2147483649\n"));
    EXPECT_EQ(12, parser.longValue(QStringLiteral("a")));
    EXPECT_EQ(-7, parser.longValue(QStringLiteral("b")));
    EXPECT_EQ(5, parser.longValue(QStringLiteral("c")));
    EXPECT_EQ(2147483647L, parser.longValue(QStringLiteral("d")));
    EXPECT_EQ(-2147483648L, parser.longValue(QStringLiteral("e")));
    for (const char* key : {"hex", "suffix", "big", "small"}) {
        try {
            parser.longValue(QLatin1String(key));
            ADD_FAILURE() << key;
        } catch (const YException& e) {
            const QByteArray expected = "can't convert value "
                + parser.value(QLatin1String(key)).toLatin1() + " to long (the key is " + key + ")";
            EXPECT_TRUE(QByteArray(e.what()).endsWith(expected)) << e.what();
        }
    }
}

TEST(YPhpIniParser, TwoFilesAccumulate)
{
    TempDir dir;
    writeFile(dir.file("one.ini"), "k=1\nk=2\n");
    writeFile(dir.file("two.ini"), "k=3\r\nonly=x\r\n");
    YPhpIniParser parser;
    parser.addFile(dir.file("one.ini"));
    parser.addFile(dir.file("two.ini"));
    EXPECT_EQ((QStringList {"1", "2", "3"}), parser.values(QStringLiteral("k")));
    EXPECT_EQ(QStringLiteral("3"), parser.value(QStringLiteral("k")));
    EXPECT_EQ((QStringList {dir.file("one.ini"), dir.file("two.ini")}), parser.path());
}

TEST(YPhpIniParser, AddFileRejectsOtherPaths)
{
    TempDir dir;
    YPhpIniParser parser;
    for (const QString& path : {dir.path(), dir.file("missing.ini")}) {
        try {
            parser.addFile(path);
            ADD_FAILURE() << qPrintable(path);
        } catch (const YException& e) {
            EXPECT_TRUE(QString::fromUtf8(e.what()).endsWith(
                QStringLiteral(" Error: \"%1\" is not a regular file").arg(path)))
                << e.what();
        }
    }
    EXPECT_TRUE(parser.path().isEmpty());
}

TEST(YPhpIniParser, UnreadableFileThrows)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root reads every file";
    TempDir dir;
    writeFile(dir.file("locked.ini"), "k=1\n");
    QFile::setPermissions(dir.file("locked.ini"), QFileDevice::WriteOwner);
    YPhpIniParser parser;
    try {
        parser.addFile(dir.file("locked.ini"));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromUtf8(e.what()).endsWith(
            QStringLiteral(" Error: can't open \"%1\" for parsing").arg(dir.file("locked.ini"))));
    }
}

TEST(YPhpIniParser, AddDirectoryReadsIniFilesOnly)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "a=1\n");
    writeFile(dir.file("b.ini"), "b=2\n");
    writeFile(dir.file("c.txt"), "c=3\n");
    writeFile(dir.file("sub/d.ini"), "d=4\n");
    YPhpIniParser parser;
    parser.addDirectory(dir.path());
    EXPECT_TRUE(parser.contains(QStringLiteral("a")));
    EXPECT_TRUE(parser.contains(QStringLiteral("b")));
    EXPECT_FALSE(parser.contains(QStringLiteral("c")));
    EXPECT_FALSE(parser.contains(QStringLiteral("d")));
    EXPECT_EQ(QStringList(dir.path()), parser.path());
    try {
        parser.addDirectory(dir.file("a.ini"));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromUtf8(e.what()).endsWith(
            QStringLiteral(" Error: \"%1\" is not a directory").arg(dir.file("a.ini"))));
    }
    EXPECT_EQ(QStringList(dir.path()), parser.path());
}

TEST(YPhpIniParser, Utf8Text)
{
    TempDir dir;
    writeFile(dir.file("u.ini"),
        "gr\xc3\xbc\xc3\x9f"
        "e = \"\xe2\x82\xac\"\n");
    YPhpIniParser parser;
    parser.addFile(dir.file("u.ini"));
    EXPECT_EQ(QString::fromUtf8("\xe2\x82\xac"),
        parser.value(QString::fromUtf8("gr\xc3\xbc\xc3\x9f"
                                       "e")));
}
