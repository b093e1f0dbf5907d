// The writing half of the directive scanner: changes of the table, the normalising of values and
// the two ways back to disk. Only portable code here; the replacement of a file on disk is
// YScanDirSys::replaceFile (scan_dir_posix.cpp).
#include "scan_dir.h"

#include "scan_dir_p.h"

#include <QFile>
#include <QSet>

namespace {

const QString EXTENSION = QStringLiteral("extension");
const QString YOVO_EXTENSION = QStringLiteral("yovo_extension");
const char* const CRLF = "\r\n";

// The characters that the line syntax would take for its own in a bare value.
bool needsQuotes(const QByteArray& text)
{
    return text.contains(' ') || text.contains(';') || text.contains('!') || text.contains('=')
        || text.contains('[') || text.contains(']') || text.contains('(') || text.contains(')')
        || text.contains('$') || text.contains('~') || text.contains('&') || text.contains('|');
}

void appendDirective(
    QByteArray& out, const QString& key, const char* separator, const QString& value)
{
    out += key.toUtf8();
    out += separator;
    out += value.toUtf8();
    out += CRLF;
}

} // namespace

QString YScanDir::doNormalizeValue(const QString& key, const QString& value)
{
    QString text = value.trimmed();
    QString bareKey = key.trimmed();
    if (bareKey.startsWith(QLatin1Char('"')))
        bareKey.remove(0, 1);
    if (bareKey.endsWith(QLatin1Char('"')))
        bareKey.chop(1);

    // error_reporting holds an expression such as E_ALL & ~E_NOTICE, which must stay bare.
    if (bareKey == QLatin1String("error_reporting")) {
        if (text.startsWith(QLatin1Char('"')))
            text.remove(0, 1);
        if (text.endsWith(QLatin1Char('"')))
            text.chop(1);
        return text;
    }

    // A leading "@" is kept outside the quotes.
    const bool silenced = text.startsWith(QLatin1Char('@'));
    if (silenced)
        text = text.mid(1).trimmed();

    bool quotingWanted = true;
    if (!s_metadata.empty() && s_metadata.count(key) == 1)
        quotingWanted = s_metadata.find(key)->second.type == 1;

    if (quotingWanted && needsQuotes(text.toUtf8())) {
        if (!text.startsWith(QLatin1Char('"')))
            text.prepend(QLatin1Char('"'));
        if (!text.endsWith(QLatin1Char('"')))
            text.append(QLatin1Char('"'));
        if (silenced)
            text.prepend(QLatin1Char('@'));
        return text;
    }
    // Untouched, blanks included: only quoting changes a value.
    return value;
}

void YScanDir::setStringValue(const QString& key, const QString& value)
{
    DirectiveMap::iterator found;
    if (doFindDirective(key, found))
        found->second.value = doNormalizeValue(key, value);
}

void YScanDir::setStringValue(
    const QString& section, const QString& key, const QString& value, const QString& file)
{
    const auto fileEntry = _directives.find(file);
    if (fileEntry == _directives.end()) {
        _directives[file].emplace(key, YScanDirDirectiveValue {value, file, section});
        return;
    }
    DirectiveMap& directives = fileEntry->second;
    const auto range = directives.equal_range(key);
    for (auto it = range.first; it != range.second; ++it) {
        if (it->second.section == section) {
            it->second.value = value;
            return;
        }
    }
    directives.emplace(key, YScanDirDirectiveValue {value, file, section});
}

bool YScanDir::addDirective(const QString& key, const QString& file, const QString& value)
{
    const auto fileEntry = _directives.find(file);
    if (fileEntry == _directives.end())
        return false;
    fileEntry->second.emplace(key, YScanDirDirectiveValue {value, file, QString()});
    return true;
}

bool YScanDir::addDirective(const QString& key, const YScanDirDirectiveValue& value)
{
    const auto fileEntry = _directives.find(value.file);
    if (fileEntry == _directives.end())
        return false;
    fileEntry->second.emplace(key, value);
    return true;
}

bool YScanDir::removeDirective(const QString& key, const QString& file, const QString& value)
{
    const auto fileEntry = _directives.find(file);
    if (fileEntry == _directives.end())
        return false;
    DirectiveMap::iterator found;
    if (doFindDirective(fileEntry->second, key, value, found) != DirectiveMatched)
        return false;
    fileEntry->second.erase(found);
    return true;
}

bool YScanDir::setFileContent(
    const QString& file, const std::list<YScanDirDirectiveValueEx>& directives)
{
    const auto fileEntry = _directives.find(file);
    if (fileEntry == _directives.end())
        return false;
    DirectiveMap replacement;
    for (const YScanDirDirectiveValueEx& directive : directives)
        replacement.emplace(directive.name, directive.value);
    fileEntry->second = std::move(replacement);
    return true;
}

void YScanDir::setExtensionsWriteSorter(IYScanDirValueSorter* sorter)
{
    _extensionsSorter.reset(sorter);
}

void YScanDir::flush()
{
    for (const auto& file : _directives)
        doWriteFile(file.first, file.second);
}

void YScanDir::flushWithSections()
{
    for (const auto& file : _directives)
        doWriteFileWithSections(file.first, file.second);
}

void YScanDir::doWriteFile(const QString& file, DirectiveMap directives)
{
    QFile input(file);
    if (!input.open(QIODevice::ReadOnly)) {
        YLOG_ERROR(_logStream) << "Error while opening file" << file << "for read"
                               << input.errorString() << yflush;
        return;
    }
    const QByteArray content = input.readAll();
    input.close();

    QByteArray out;
    out.reserve(content.size() + content.size() / 8 + 64);
    bool extensionWritten = false;
    bool yovoExtensionWritten = false;
    QString key;
    QString value;
    int start = 0;
    const int size = content.size();
    while (start <= size) {
        const int end = yScanDirLineEnd(content, start);
        const char* line = content.constData() + start;
        const int length = end - start;
        start = end + 1;

        // Sections play no part here: a header holding "=" reads as a directive that the table
        // lacks, and leaves the file. // kept: rewrite-header-with-equals
        if (yScanDirParseLine(line, line + length, false, key, value)
            != YScanDirLineKind::DirectiveLine) {
            out.append(line, length);
            out += '\n';
        } else if (key == EXTENSION) {
            if (!extensionWritten) {
                extensionWritten = true;
                doWriteExtensions(EXTENSION, directives, out);
            }
        } else if (key == YOVO_EXTENSION) {
            if (!yovoExtensionWritten) {
                yovoExtensionWritten = true;
                doWriteExtensions(YOVO_EXTENSION, directives, out);
            }
        } else {
            DirectiveMap::iterator found;
            // A line with no entry left is a removed directive, and leaves the file.
            if (doFindDirective(directives, key, value, found) != DirectiveNotFound) {
                appendDirective(out, key, "=", found->second.value);
                directives.erase(found);
            }
        }
    }
    for (const auto& entry : directives)
        appendDirective(out, entry.first, "=", entry.second.value);

    writeFileContent(out.trimmed(), file);
}

void YScanDir::doWriteExtensions(const QString& key, DirectiveMap& directives, QByteArray& out)
{
    std::list<YScanDirDirectiveValueEx> values;
    const auto range = directives.equal_range(key);
    for (auto it = range.first; it != range.second; ++it)
        values.push_back(YScanDirDirectiveValueEx {key, it->second});
    if (_extensionsSorter)
        _extensionsSorter->sort(values);
    for (const YScanDirDirectiveValueEx& entry : values)
        appendDirective(out, key, "=", entry.value.value);
    directives.erase(range.first, range.second);
}

void YScanDir::doWriteFileWithSections(const QString& file, const DirectiveMap& directives)
{
    std::multimap<QString, YScanDirDirectiveValueEx> bySection;
    QSet<QString> sections;
    for (const auto& entry : directives) {
        bySection.emplace(
            entry.second.section, YScanDirDirectiveValueEx {entry.first, entry.second});
        sections.insert(entry.second.section);
    }
    QByteArray out;
    for (const QString& section : qAsConst(sections)) {
        if (!section.isEmpty()) {
            out += '[';
            out += section.toUtf8();
            out += ']';
            out += CRLF;
        }
        const auto range = bySection.equal_range(section);
        for (auto it = range.first; it != range.second; ++it) {
            appendDirective(out, it->second.name, " = ",
                doNormalizeValue(it->second.name, it->second.value.value));
        }
        out += CRLF;
    }
    writeFileContent(out.trimmed(), file);
}

bool YScanDir::writeFileContent(const QByteArray& content, const QString& file)
{
    const YScanDirSys::ReplaceResult result = YScanDirSys::replaceFile(file, content);
    switch (result.step) {
    case YScanDirSys::Replaced:
        return true;
    case YScanDirSys::OpenFailed:
        YLOG_WARNING(_logStream) << "Error while opening file" << result.temporary << "."
                                 << YScanDirSys::errorText(result.error) << yflush;
        break;
    case YScanDirSys::WriteFailed:
        YLOG_WARNING(_logStream) << "Error while writing file" << result.temporary << "."
                                 << YScanDirSys::errorText(result.error) << yflush;
        break;
    case YScanDirSys::RenameFailed:
        YLOG_WARNING(_logStream) << "Rename error:" << result.temporary << "->" << result.target
                                 << "." << YScanDirSys::errorText(result.error) << yflush;
        break;
    }
    return false;
}

void YScanDir::backup()
{
    if (_directives.empty()) {
        YLOG_DBG2(_logStream) << "There are no files to backup... did you remember to call scan() ?"
                              << yflush;
        return;
    }
    for (const auto& entry : _directives) {
        const QString& file = entry.first;
        const QString backupName = QStringLiteral("%1.backup").arg(file);
        QFile old(backupName);
        if (old.exists() && !old.remove()) {
            YLOG_WARNING(_logStream) << "Could not remove old backup file:" << backupName << ","
                                     << old.errorString() << yflush;
        }
        YLOG_DBG2(_logStream) << "Creating backup for file" << file << yflush;
        QFile source(file);
        if (!source.copy(backupName)) {
            YLOG_WARNING(_logStream)
                << "YScanDir: Failed to backup file:" << file << source.errorString() << yflush;
        }
    }
}

void YScanDir::modifyDirective(
    YDebug::StreamId stream, const QString& file, const QString& key, const QString& value)
{
    YScanDir scanner(stream);
    scanner.addFile(file);
    scanner.scan();
    scanner.setStringValue(key, value);
    scanner.flush();
}
