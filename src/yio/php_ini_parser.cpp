#include "php_ini_parser.h"

#include "yassert.h"
#include "ydebug.h"
#include "yexception.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <limits>

YPhpIniParserHandler::~YPhpIniParserHandler() = default;

namespace {

void reportParseError(const QString& line, const char* tail)
{
    YLOG_NOTICE(YDebug::STDERR) << QStringLiteral("YPhpIniParser: couldn't parse '") + line
            + QLatin1String(tail)
                                << yflush;
}

} // namespace

YPhpIniParser::YPhpIniParser(const QStringList& keyPrefixes, YPhpIniParserHandler* handler)
    : _keyPrefixes(keyPrefixes)
    , _handler(handler)
{
    // Files are read as UTF-8 whatever the locale, so that a daemon sees the same keys everywhere.
    _fileStream.setCodec("UTF-8");
}

void YPhpIniParser::addFile(const QString& path)
{
    if (!QFileInfo(path).isFile())
        Y_THROW(QStringLiteral("Error: \"%1\" is not a regular file").arg(path));
    read(path, QString());
    _paths.append(path);
}

void YPhpIniParser::addDirectory(const QString& path)
{
    if (!QFileInfo(path).isDir())
        Y_THROW(QStringLiteral("Error: \"%1\" is not a directory").arg(path));
    const QStringList names = QDir(path).entryList(QStringList(QStringLiteral("*.ini")),
        QDir::Files | QDir::Readable | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QString& name : names)
        read(QStringLiteral("%1%2%3").arg(path, QDir::separator(), name), QString());
    _paths.append(path);
}

void YPhpIniParser::read(const QString& fileName, const QString& onlyKey)
{
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        Y_THROW(QStringLiteral("Error: can't open \"%1\" for parsing").arg(fileName));
    _fileStream.setDevice(&file);
    try {
        read(_fileStream, onlyKey);
    } catch (...) {
        _fileStream.setDevice(nullptr);
        throw;
    }
    _fileStream.setDevice(nullptr);
}

void YPhpIniParser::read(QTextStream& stream, const QString& onlyKey)
{
    const QString text = stream.readAll();
    int start = 0;
    const int size = text.size();
    while (start < size) {
        int end = text.indexOf(QLatin1Char('\n'), start);
        if (end < 0)
            end = size;
        readLine(text.constData() + start, text.constData() + end, onlyKey);
        start = end + 1;
    }
}

void YPhpIniParser::readLine(const QChar* begin, const QChar* end, const QString& onlyKey)
{
    // Trimmed as by QString::trimmed(), which also takes the CR of a CR LF line end; most lines
    // of a php.ini are comments, and are passed over without being copied.
    while (begin < end && begin->isSpace())
        ++begin;
    while (end > begin && end[-1].isSpace())
        --end;
    if (begin == end)
        return;
    if (*begin == QLatin1Char('[') && end[-1] == QLatin1Char(']'))
        return;
    if (*begin == QLatin1Char(';'))
        return;
    const QString line(begin, int(end - begin));
    const int equals = line.indexOf(QLatin1Char('='));
    if (equals <= 0) {
        reportParseError(line, "'");
        return;
    }
    const QString key = line.left(equals).trimmed();
    QString value = line.mid(equals + 1).trimmed();

    int commentFrom = 0;
    if (value.startsWith(QLatin1Char('"'))) {
        const int closing = value.indexOf(QLatin1Char('"'), 1);
        if (closing < 0) {
            reportParseError(line, "'. missing closing quote.");
            return;
        }
        commentFrom = closing + 1;
    }
    // A ";" right behind "=" is not a comment: `a = ;b` holds ";b". // kept:
    // parser-leading-semicolon
    const int semicolon = value.indexOf(QLatin1Char(';'), commentFrom);
    if (semicolon > 0)
        value = value.left(semicolon).trimmed();
    if (value.startsWith(QLatin1Char('"'))) {
        if (!value.endsWith(QLatin1Char('"'))) {
            reportParseError(line, "'. missing closing quote.");
            return;
        }
        value = value.mid(1, value.size() - 2);
    }

    if (!acceptsKey(key))
        return;
    if (!onlyKey.isEmpty() && key != onlyKey.trimmed())
        return;
    if (_handler && !_handler->acceptDirective(key, value))
        return;
    addString(key, value);
}

bool YPhpIniParser::acceptsKey(const QString& key) const
{
    for (const QString& prefix : _keyPrefixes) {
        if (prefix.isEmpty() || key.startsWith(prefix))
            return true;
    }
    return false;
}

void YPhpIniParser::addString(const QString& key, const QString& value)
{
    const auto it = _directives.find(key);
    if (it == _directives.end()) {
        setString(key, value);
        return;
    }
    it->append(value);
    _keysOrdered.append(qMakePair(key, quint32(it->size() - 1)));
}

void YPhpIniParser::setString(const QString& key, const QString& value)
{
    if (_directives.contains(key)) {
        bool first = true;
        for (auto it = _keysOrdered.begin(); it != _keysOrdered.end();) {
            if (it->first != key) {
                ++it;
            } else if (first) {
                first = false;
                it->second = 0;
                ++it;
            } else {
                it = _keysOrdered.erase(it);
            }
        }
    } else {
        _keysOrdered.append(qMakePair(key, quint32(0)));
    }
    _directives.insert(key, QStringList(value));
}

void YPhpIniParser::addLong(const QString& key, long value)
{
    addString(key, QString::number(value, 10));
}

void YPhpIniParser::setLong(const QString& key, long value)
{
    setString(key, QString::number(value, 10));
}

QString YPhpIniParser::value(const QString& key) const
{
    const auto it = _directives.constFind(key);
    if (it == _directives.cend() || it->isEmpty())
        return QString();
    return it->last();
}

QString YPhpIniParser::stringValue(const QString& key) const
{
    return value(key);
}

QStringList YPhpIniParser::values(const QString& key) const
{
    return _directives.value(key);
}

QStringList YPhpIniParser::stringValues(const QString& key) const
{
    return values(key);
}

long YPhpIniParser::longValue(const QString& key) const
{
    const QString text = value(key);
    if (text.isEmpty())
        return 0;
    return toLongValue(text, key);
}

QList<long> YPhpIniParser::longValues(const QString& key) const
{
    QList<long> numbers;
    const QStringList texts = values(key);
    for (const QString& text : texts)
        numbers.append(toLongValue(text, key));
    return numbers;
}

bool YPhpIniParser::contains(const QString& key) const
{
    return _directives.contains(key);
}

QHash<QString, QStringList> YPhpIniParser::entriesOrderedByKey() const
{
    return _directives;
}

QList<QPair<QString, QString>> YPhpIniParser::entriesByDeclarationOrder() const
{
    QList<QPair<QString, QString>> entries;
    entries.reserve(_keysOrdered.size());
    for (const auto& declaration : _keysOrdered) {
        const QStringList values = _directives.value(declaration.first);
        const quint32 index = declaration.second;
        Y_ASSERT_X(index < static_cast<quint32>(values.size()),
            qPrintable(QStringLiteral("Inconsistent parser state: key \"%1\", index %2 resides in "
                                      "_keysOrdered, but not in _directives")
                           .arg(declaration.first)
                           .arg(index)));
        entries.append(qMakePair(declaration.first, values.at(int(index))));
    }
    return entries;
}

const QStringList& YPhpIniParser::path() const
{
    return _paths;
}

long YPhpIniParser::toLongValue(const QString& value, const QString& key)
{
    // A long has 32 bits on the system the files are shared with: a number beyond that range
    // fails here as it fails there.
    bool ok = false;
    const qlonglong number = value.toLongLong(&ok, 10);
    if (!ok || number < std::numeric_limits<qint32>::min()
        || number > std::numeric_limits<qint32>::max()) {
        Y_THROW(QStringLiteral("can't convert value %1 to long (the key is %2)").arg(value, key));
    }
    return long(number);
}
