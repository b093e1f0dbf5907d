#include "ini_file_values_manager.h"

#include "ini_test_util.h"
#include "test_support.h"
#include "ydebug.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QDir>

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <unistd.h>

using yovotest::maskTimestamps;
using yovotest::readFile;
using yovotest::TempDir;
using yovotest::writeFile;

namespace {

using Descriptors = QHash<QString, YParameterDescriptor>;
using ValuesList = QList<QPair<QByteArray, QByteArray>>;

QString failure(const std::function<void()>& call)
{
    try {
        call();
    } catch (const YException& e) {
        return QString::fromLocal8Bit(e.what());
    }
    return QString();
}

Descriptors descriptors(std::initializer_list<YParameterDescriptor> list)
{
    Descriptors hash;
    for (const YParameterDescriptor& d : list)
        hash.insert(d.getName(), d);
    return hash;
}

} // namespace

TEST(YIniFileValuesManager, LastAddedFileWinsAndOldParserStays)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "k=a\nonlyA=1\n");
    writeFile(dir.file("b.ini"), "k=b1\nk=b2\n");
    YIniFileValuesManager manager({dir.file("a.ini"), dir.file("b.ini")}, Descriptors());
    EXPECT_EQ(QStringLiteral("b2"), manager.getValue(QStringLiteral("k")));
    EXPECT_EQ(QStringLiteral("1"), manager.getValue(QStringLiteral("onlyA")));
    writeFile(dir.file("b.ini"), "other=1\n");
    manager.addIniFile(dir.file("b.ini"));
    // Nothing clears the key's entry: the old parser of b.ini still answers.
    EXPECT_EQ(QStringLiteral("b2"), manager.getValue(QStringLiteral("k")));
    EXPECT_EQ(QStringLiteral("1"), manager.getValue(QStringLiteral("other")));
    manager.addIniFile(QFileInfo(dir.file("a.ini")));
    EXPECT_EQ(QStringLiteral("a"), manager.getValue(QStringLiteral("k")));
}

TEST(YIniFileValuesManager, DirectoryReadsEveryFile)
{
    TempDir dir;
    writeFile(dir.file("conf/one.ini"), "a=1\n");
    writeFile(dir.file("conf/notes.txt"), "b=2\njust words\n");
    writeFile(dir.file("conf/sub/deep.ini"), "c=3\n");
    const QString errPath = dir.file("stderr.txt");
    std::fflush(stderr);
    const int saved = ::dup(2);
    const int fd
        = ::open(QFile::encodeName(errPath).constData(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(fd, 2);
    ::close(fd);
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::NOTICE);
    YIniFileValuesManager manager({dir.file("conf")}, Descriptors());
    std::fflush(stderr);
    ::dup2(saved, 2);
    ::close(saved);
    YDebug::setDebugLevel(YDebug::STDERR, YDebug::WARNING);
    EXPECT_EQ(QStringLiteral("1"), manager.getValue(QStringLiteral("a")));
    EXPECT_EQ(QStringLiteral("2"), manager.getValue(QStringLiteral("b")));
    EXPECT_FALSE(manager.containsValue(QStringLiteral("c")));
    EXPECT_EQ(QByteArray("[<TS> NOTICE] YPhpIniParser: couldn't parse 'just words' \r\n"),
        maskTimestamps(readFile(errPath)));
}

TEST(YIniFileValuesManager, DefaultsApplyWhereNoFileDeclares)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "fromFile=file\n");
    YIniFileValuesManager manager({dir.file("a.ini")},
        descriptors({YParameterDescriptor(QVariant::String, "fromFile", "default"),
            YParameterDescriptor(QVariant::String, "empty", QLatin1String("")),
            YParameterDescriptor(QVariant::Int, "port", "80"),
            YParameterDescriptor(QVariant::Int, "none")}));
    EXPECT_EQ(QStringLiteral("file"), manager.getValue(QStringLiteral("fromFile")));
    EXPECT_TRUE(manager.containsValue(QStringLiteral("empty")));
    EXPECT_TRUE(manager.getValue(QStringLiteral("empty")).isEmpty());
    EXPECT_EQ(QStringLiteral("80"), manager.getValue(QStringLiteral("port")));
    EXPECT_FALSE(manager.containsValue(QStringLiteral("none")));
    EXPECT_TRUE(failure([&] { manager.getValue(QStringLiteral("none")); })
                    .endsWith(QStringLiteral(
                        " The parameter 'none' is not defined in any of the INI file(s): %1")
                                  .arg(QFileInfo(dir.file("a.ini")).absoluteFilePath())));
}

TEST(YIniFileValuesManager, UndefinedWithoutFilesListsNoFile)
{
    YIniFileValuesManager manager(
        QStringList(), descriptors({YParameterDescriptor(QVariant::Int, "none")}));
    EXPECT_TRUE(failure([&] { manager.getValue(QStringLiteral("none")); })
                    .endsWith(QStringLiteral(
                        " The parameter 'none' is not defined in any of the INI file(s): ")));
}

TEST(YIniFileValuesManager, UndefinedListsEveryFile)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "x=1\n");
    writeFile(dir.file("b.ini"), "y=1\n");
    YIniFileValuesManager manager({dir.file("a.ini"), dir.file("b.ini")}, Descriptors());
    const QString text = failure([&] { manager.getValue(QStringLiteral("z")); });
    const QString head
        = QStringLiteral(" The parameter 'z' is not defined in any of the INI file(s): ");
    const int at = text.indexOf(head);
    ASSERT_GE(at, 0) << qPrintable(text);
    QStringList files = text.mid(at + head.size()).split(QStringLiteral(", "));
    files.sort();
    EXPECT_EQ((QStringList {QFileInfo(dir.file("a.ini")).absoluteFilePath(),
                  QFileInfo(dir.file("b.ini")).absoluteFilePath()}),
        files);
}

TEST(YIniFileValuesManager, SetValueStaysInMemory)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "k=1\nk=2\n");
    YIniFileValuesManager manager({dir.file("a.ini")}, Descriptors());
    manager.setValue(QStringLiteral("k"), QStringLiteral("3"));
    manager.setValue(QStringLiteral("new"), QStringLiteral("4"));
    EXPECT_EQ(QStringLiteral("3"), manager.getValue(QStringLiteral("k")));
    EXPECT_EQ(QStringLiteral("4"), manager.getValue(QStringLiteral("new")));
    EXPECT_TRUE(manager.containsValue(QStringLiteral("new")));
    EXPECT_EQ(QByteArray("k=1\nk=2\n"), readFile(dir.file("a.ini")));
}

TEST(YIniFileValuesManager, ValuesListHasEachKeyOnce)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "k=1\nk=2\nx=\xc3\xa4\n");
    YIniFileValuesManager manager(
        {dir.file("a.ini")}, descriptors({YParameterDescriptor(QVariant::Int, "d", "5")}));
    ValuesList list = manager.getValuesList();
    std::sort(list.begin(), list.end());
    EXPECT_EQ(
        (ValuesList {{"d", "5"}, {"k", "2"}, {"x", QString::fromUtf8("\xc3\xa4").toLocal8Bit()}}),
        list);
}

TEST(YIniFileValuesManager, BadPaths)
{
    TempDir dir;
    const QString missing = dir.file("missing");
    EXPECT_TRUE(failure([&] { YIniFileValuesManager({missing}, Descriptors()); })
                    .endsWith(QStringLiteral(" Error to access the %1 file (is not a regular "
                                             "file/directory or it does not exists)")
                                  .arg(missing)));
    YIniFileValuesManager manager {QStringList(), Descriptors()};
    EXPECT_TRUE(
        failure([&] { manager.addIniFile(missing); })
            .endsWith(QStringLiteral(" Error to access the %1 file (is not a regular file, "
                                     "does not exists, wrong permissions or is not readable)")
                          .arg(missing)));
    EXPECT_TRUE(
        failure([&] { manager.addIniFile(dir.path()); })
            .endsWith(QStringLiteral(" Error to access the %1 file (is not a regular file, "
                                     "does not exists, wrong permissions or is not readable)")
                          .arg(dir.path())));
    writeFile(dir.file("a.ini"), "k=1\n");
    EXPECT_TRUE(failure([&] { manager.addIniDir(QFileInfo(dir.file("a.ini"))); })
                    .endsWith(QStringLiteral(" Error to access the %1 file (is not a directory "
                                             "file, does not exists, wrong permissions or is not "
                                             "readable)")
                                  .arg(dir.file("a.ini"))));
    EXPECT_TRUE(failure([&] {
        manager.addIniDir(missing);
    }).contains(QStringLiteral("is not a directory file")));
}

TEST(YIniFileValuesManager, RelativePathsBecomeAbsolute)
{
    TempDir dir;
    writeFile(dir.file("a.ini"), "k=1\n");
    const QString previous = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(dir.path()));
    YIniFileValuesManager manager {QStringList(), Descriptors()};
    manager.addIniFile(QStringLiteral("a.ini"));
    manager.addIniDir(QStringLiteral("."));
    QDir::setCurrent(previous);
    const QString text = failure([&] { manager.getValue(QStringLiteral("z")); });
    EXPECT_TRUE(text.contains(QFileInfo(dir.file("a.ini")).absoluteFilePath())) << qPrintable(text);
    EXPECT_EQ(QStringLiteral("1"), manager.getValue(QStringLiteral("k")));
}
