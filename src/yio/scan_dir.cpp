// The reading half of the directive scanner: gathering files, the line rules, the table and its
// queries. Only portable code here; replacing a file on disk lives in scan_dir_posix.cpp.
//
// Text is handled as bytes as long as possible: a line is cut at its "=", ";" and quotes while
// still a byte array (those characters never occur inside a multi-byte UTF-8 sequence), and only
// key and value become QStrings. Lines the table does not own are never decoded at all.
#include "scan_dir.h"

#include "scan_dir_p.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <cstdio>
#include <cstring>
#include <limits>

YScanDir::MetadataMap YScanDir::s_metadata;

IYScanDirValueSorter::~IYScanDirValueSorter() = default;

namespace {

// The white space of QByteArray::trimmed().
inline bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

inline const char* find(const char* from, const char* end, char c)
{
    return from < end ? static_cast<const char*>(std::memchr(from, c, size_t(end - from)))
                      : nullptr;
}

} // namespace

// Steps shared by the scan and by the rewriter's line test, on the bytes of one line without its
// LF. With `sections` false a header is just another line, so "[a=b]" reads as the key "[a" with
// the value "b]". Works on the bytes in place: only key and value are ever copied.
YScanDirLineKind yScanDirParseLine(
    const char* begin, const char* end, bool sections, QString& key, QString& value)
{
    while (begin < end && isBlank(*begin))
        ++begin;
    while (end > begin && isBlank(end[-1]))
        --end;
    if (begin == end)
        return YScanDirLineKind::NotADirective;
    if (sections && *begin == '[' && end[-1] == ']') {
        const char* close = find(begin, end, ']');
        key = QString::fromUtf8(begin + 1, int(close - begin - 1));
        return YScanDirLineKind::SectionHeader;
    }
    if (*begin == ';')
        return YScanDirLineKind::NotADirective;
    const char* equals = find(begin, end, '=');
    if (!equals)
        return YScanDirLineKind::NotADirective;

    const char* valueStart = equals + 1;
    // The value is not trimmed before the quote test: only a quote right behind "=" protects a
    // ";", so `a = "x;y"` reads as `"x`. // kept: scanner-quote-after-blank
    const char* commentFrom = valueStart;
    if (valueStart < end && *valueStart == '"') {
        const char* closing = find(valueStart + 1, end, '"');
        if (!closing)
            return YScanDirLineKind::NotADirective;
        commentFrom = closing + 1;
    }
    const char* valueEnd = end;
    const char* semicolon = find(commentFrom, end, ';');
    // A ";" right behind "=" is part of the value, so `a=;c` reads as ";c".
    if (semicolon && semicolon > valueStart)
        valueEnd = semicolon;

    key = QString::fromUtf8(begin, int(equals - begin)).trimmed();
    value = QString::fromUtf8(valueStart, int(valueEnd - valueStart)).trimmed();
    return YScanDirLineKind::DirectiveLine;
}

namespace {

QString removeOneQuotePair(QString text)
{
    if (text.endsWith(QLatin1Char('"')))
        text.chop(1);
    if (text.startsWith(QLatin1Char('"')))
        text.remove(0, 1);
    return text;
}

} // namespace

YScanDir::YScanDir(YDebug::StreamId stream)
    : _logStream(stream)
{
}

YScanDir::YScanDir(const YScanDir& other) = default;
YScanDir& YScanDir::operator=(const YScanDir& other) = default;
YScanDir::~YScanDir() = default;

void YScanDir::addFile(const QString& file)
{
    _iniFiles.append(file);
    removeDuplicateFiles();
}

void YScanDir::addFiles(const QStringList& files)
{
    _iniFiles.append(files);
    removeDuplicateFiles();
}

void YScanDir::addDirectories(const QStringList& directories)
{
    for (const QString& directory : directories)
        addFiles(doGetFilesOfDirectory(directory));
}

void YScanDir::clear()
{
    _iniFiles.clear();
}

const QStringList& YScanDir::getIniFiles() const
{
    return _iniFiles;
}

void YScanDir::scan()
{
    doScan();
}

void YScanDir::removeDuplicateFiles()
{
    // The order of the list becomes the set's; callers must not rely on the order of adding.
    const QSet<QString> unique(_iniFiles.cbegin(), _iniFiles.cend());
    _iniFiles = QStringList(unique.cbegin(), unique.cend());
}

QStringList YScanDir::doGetFilesOfDirectory(const QString& directory) const
{
    QStringList files;
    if (!QFileInfo(directory).isDir())
        return files;
    const QStringList names = QDir(directory).entryList(QStringList(QStringLiteral("*.ini")),
        QDir::Files | QDir::Readable | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QString& name : names)
        files.append(QStringLiteral("%1%2%3").arg(directory, QDir::separator(), name));
    return files;
}

void YScanDir::doScan()
{
    _directives.clear();
    removeDuplicateFiles();
    for (const QString& file : qAsConst(_iniFiles)) {
        FILE* stream = std::fopen(QFile::encodeName(file).constData(), "rb");
        if (!stream)
            continue;
        QByteArray content;
        long size = -1;
        if (std::fseek(stream, 0, SEEK_END) == 0)
            size = std::ftell(stream);
        if (size < 0 || size >= long(std::numeric_limits<int>::max())
            || std::fseek(stream, 0, SEEK_SET) != 0) {
            // Not a seekable file (a folder opens on Linux, too), or one larger than a byte array
            // holds: like a file that doesn't open, it has no place in the table.
            std::fclose(stream);
            continue;
        }
        content.resize(int(size));
        const size_t read = size > 0 ? std::fread(content.data(), 1, size_t(size), stream) : 0;
        std::fclose(stream);
        content.resize(int(read));
        doParseFileContent(content, tableName(file));
    }
}

void YScanDir::doParseFileContent(const QByteArray& content, const QString& file)
{
    DirectiveMap directives;
    QString section;
    QString key;
    QString value;
    int start = 0;
    const int size = content.size();
    while (start <= size) {
        const int end = yScanDirLineEnd(content, start);
        const char* data = content.constData();
        switch (yScanDirParseLine(data + start, data + end, true, key, value)) {
        case YScanDirLineKind::SectionHeader:
            section = key;
            break;
        case YScanDirLineKind::DirectiveLine:
            directives.emplace(key, YScanDirDirectiveValue {value, file, section});
            break;
        case YScanDirLineKind::NotADirective:
            break;
        }
        start = end + 1;
    }
    _directives[file] = std::move(directives);
}

bool YScanDir::isIniLine(const QByteArray& line, QString& key, QString& value)
{
    return yScanDirParseLine(line.constData(), line.constData() + line.size(), false, key, value)
        == YScanDirLineKind::DirectiveLine;
}

QString YScanDir::tableName(const QString& file)
{
    return QDir::toNativeSeparators(QFileInfo(file).absoluteFilePath());
}

bool YScanDir::contains(const QString& key)
{
    DirectiveMap::iterator found;
    return doFindDirective(key, found);
}

bool YScanDir::contains(const QString& key, const QString& value) const
{
    for (const auto& file : _directives) {
        const auto range = file.second.equal_range(key);
        for (auto it = range.first; it != range.second; ++it) {
            if (compareStrings(it->second.value, value))
                return true;
        }
    }
    return false;
}

bool YScanDir::getStringValue(const QString& key, QString& value)
{
    DirectiveMap::iterator found;
    if (!doFindDirective(key, found))
        return false;
    value = found->second.value;
    return true;
}

bool YScanDir::getStringValueTrimmed(const QString& key, QString& value)
{
    QString raw;
    if (!getStringValue(key, raw))
        return false;
    value = removeOneQuotePair(raw.trimmed());
    return true;
}

int YScanDir::getInt(const QString& key, int defaultValue)
{
    QString text;
    if (!getStringValueTrimmed(key, text))
        return defaultValue;
    bool ok = false;
    const int number = text.trimmed().toInt(&ok, 10);
    return ok ? number : defaultValue;
}

const YScanDirDirectiveValue* YScanDir::findInFile(
    const QString& section, const QString& key, const QString& file) const
{
    const auto fileEntry = _directives.find(tableName(file));
    if (fileEntry == _directives.end())
        return nullptr;
    const auto range = fileEntry->second.equal_range(key);
    for (auto it = range.first; it != range.second; ++it) {
        if (it->second.section == section)
            return &it->second;
    }
    return nullptr;
}

bool YScanDir::getStringValue(
    const QString& section, const QString& key, const QString& file, QString& value) const
{
    const YScanDirDirectiveValue* found = findInFile(section, key, file);
    if (!found)
        return false;
    value = found->value;
    return true;
}

bool YScanDir::getStringValueTrimmed(
    const QString& section, const QString& key, const QString& file, QString& value) const
{
    const YScanDirDirectiveValue* found = findInFile(section, key, file);
    if (!found)
        return false;
    value = removeOneQuotePair(found->value.trimmed());
    return true;
}

QStringList YScanDir::getListOfSections(const QString& file) const
{
    const auto fileEntry = _directives.find(tableName(file));
    if (fileEntry == _directives.end())
        return QStringList();
    QSet<QString> sections;
    for (const auto& entry : fileEntry->second)
        sections.insert(entry.second.section);
    return QStringList(sections.cbegin(), sections.cend());
}

void YScanDir::getKeysOfSection(
    const QString& section, const QString& file, QStringList& keys) const
{
    const auto fileEntry = _directives.find(tableName(file));
    if (fileEntry == _directives.end())
        return;
    for (const auto& entry : fileEntry->second) {
        if (entry.second.section == section)
            keys.append(entry.first);
    }
}

const YScanDir::FileMap& YScanDir::directives() const
{
    return _directives;
}

void YScanDir::setMetadata(const MetadataMap& metadata)
{
    s_metadata = metadata;
}

namespace {

QString comparable(const QString& text)
{
    QString result = removeOneQuotePair(text.trimmed());
    if (result.compare(QLatin1String("on"), Qt::CaseInsensitive) == 0)
        result = QStringLiteral("1");
    else if (result.compare(QLatin1String("off"), Qt::CaseInsensitive) == 0)
        result = QStringLiteral("0");
    return result;
}

} // namespace

bool YScanDir::compareStrings(const QString& first, const QString& second)
{
    QString left = comparable(first);
    QString right = comparable(second);
    if (left == right)
        return true;
    left.replace(QLatin1Char('\\'), QLatin1Char('/'));
    right.replace(QLatin1Char('\\'), QLatin1Char('/'));
    return left == right;
}

bool YScanDir::doFindDirective(const QString& key, DirectiveMap::iterator& found)
{
    for (auto& file : _directives) {
        const auto it = file.second.lower_bound(key);
        if (it != file.second.end() && it->first == key) {
            found = it;
            return true;
        }
    }
    return false;
}

YScanDir::DirectiveMatchCode YScanDir::doFindDirective(DirectiveMap& directives, const QString& key,
    const QString& value, DirectiveMap::iterator& found)
{
    const auto range = directives.equal_range(key);
    found = range.first;
    if (range.first == range.second)
        return DirectiveNotFound;
    if (std::next(range.first) == range.second)
        return DirectiveMatched;
    for (auto it = range.first; it != range.second; ++it) {
        if (compareStrings(it->second.value, value)) {
            found = it;
            return DirectiveMatched;
        }
    }
    found = range.first;
    return DirectiveKeyMatched;
}
