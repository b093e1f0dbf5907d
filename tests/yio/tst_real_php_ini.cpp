// Debian's own php.ini files, which nobody here wrote, read by both readers and rewritten.
#include "php_ini_parser.h"
#include "scan_dir.h"

#include "ini_test_util.h"
#include "test_support.h"

#include <gtest/gtest.h>

#include <QFile>

using yovotest::readFile;
using yovotest::tableName;
using yovotest::TempDir;
using yovotest::writeFile;

namespace {

const char* const PHP_INI_FOLDER = "/usr/lib/php/8.2/";

class RealPhpIni : public ::testing::TestWithParam<const char*>
{
protected:
    QString source() const
    {
        return QString::fromLatin1(PHP_INI_FOLDER) + QString::fromLatin1(GetParam());
    }
    void SetUp() override
    {
        ASSERT_TRUE(QFile::exists(source()))
            << qPrintable(source()) << " is missing: scripts/install-deps.sh installs php8.2-cli";
    }
};

// The scanner keeps a quoted value's quotes, the parser drops one pair.
QString unquoted(const QString& value)
{
    if (value.size() >= 2 && value.startsWith(QLatin1Char('"')) && value.endsWith(QLatin1Char('"')))
        return value.mid(1, value.size() - 2);
    return value;
}

QList<QByteArray> lines(const QByteArray& text)
{
    return text.split('\n');
}

} // namespace

TEST_P(RealPhpIni, ScannerAndParserAgree)
{
    YPhpIniParser parser;
    parser.addFile(source());
    YScanDir scanner;
    scanner.addFile(source());
    scanner.scan();
    const YScanDir::DirectiveMap& table = scanner.directives().at(tableName(source()));
    ASSERT_GT(table.size(), 50u);
    int compared = 0;
    for (auto it = table.begin(); it != table.end(); it = table.upper_bound(it->first)) {
        QStringList scanned;
        const auto range = table.equal_range(it->first);
        for (auto entry = range.first; entry != range.second; ++entry)
            scanned.append(unquoted(entry->second.value));
        EXPECT_EQ(scanned, parser.values(it->first)) << qPrintable(it->first);
        compared += scanned.size();
    }
    EXPECT_EQ(int(table.size()), compared);
    EXPECT_EQ(compared, parser.entriesByDeclarationOrder().size());
}

TEST_P(RealPhpIni, ModifyDirectiveChangesExactlyOneLine)
{
    TempDir dir;
    const QString path = dir.file("php.ini");
    const QByteArray original = readFile(source());
    writeFile(path, original);

    // A first flush brings directive lines to their written form; every other line stays as it
    // was, byte for byte and in its order.
    YScanDir scanner;
    scanner.addFile(path);
    scanner.scan();
    scanner.flush();
    const QByteArray normal = readFile(path);
    const QList<QByteArray> before = lines(original.trimmed());
    const QList<QByteArray> after = lines(normal);
    ASSERT_EQ(before.size(), after.size());
    for (int i = 0; i < before.size(); ++i) {
        const QByteArray line = before.at(i).trimmed();
        const bool directive = !line.isEmpty() && !line.startsWith(';') && !line.startsWith('[');
        if (!directive) {
            EXPECT_EQ(before.at(i), after.at(i)) << "line " << i + 1;
        }
    }

    YScanDir::modifyDirective(
        YDebug::STDERR, path, QStringLiteral("memory_limit"), QStringLiteral("256M"));
    const QList<QByteArray> changed = lines(readFile(path));
    ASSERT_EQ(after.size(), changed.size());
    QList<int> differing;
    for (int i = 0; i < after.size(); ++i) {
        if (after.at(i) != changed.at(i))
            differing.append(i);
    }
    ASSERT_EQ(1, differing.size());
    EXPECT_TRUE(after.at(differing.first()).startsWith("memory_limit="));
    EXPECT_EQ(QByteArray("memory_limit=256M\r"), changed.at(differing.first()));

    // A flush without a change keeps the written form as it is.
    YScanDir again;
    again.addFile(path);
    again.scan();
    const QByteArray once = readFile(path);
    again.flush();
    EXPECT_EQ(once, readFile(path));
}

INSTANTIATE_TEST_SUITE_P(Debian, RealPhpIni,
    ::testing::Values("php.ini-production", "php.ini-development"),
    [](const ::testing::TestParamInfo<const char*>& info) {
        return std::string(info.param).substr(8);
    });
