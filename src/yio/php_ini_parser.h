#ifndef YOVOLIB_PHP_INI_PARSER_H
#define YOVOLIB_PHP_INI_PARSER_H

#include "yovolib_export.h"

#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QTextStream>

/// Decides about each directive that passed the parser's other tests; false drops it silently.
class YOVOLIB_EXPORT YPhpIniParserHandler
{
public:
    virtual ~YPhpIniParserHandler();
    virtual bool acceptDirective(const QString& key, const QString& value) = 0;
};

/// The read-only reader of php.ini-style text: every key with all its values in declaration order.
/// No comments, no sections (a key under a section is the same key), no escapes: a value is the
/// text behind "=", less a comment and one pair of quotes. Keys are case sensitive.
class YOVOLIB_EXPORT YPhpIniParser
{
public:
    /// Only keys starting with one of `keyPrefixes` are kept; the default, one empty string,
    /// accepts every key and an empty list accepts none.
    YPhpIniParser(const QStringList& keyPrefixes = QStringList(QLatin1String("")),
        YPhpIniParserHandler* handler = nullptr);
    YPhpIniParser(const YPhpIniParser&) = delete;
    YPhpIniParser& operator=(const YPhpIniParser&) = delete;

    /// Throws YException for a path that is not a regular file or does not open.
    void addFile(const QString& path);
    /// Reads the readable "*.ini" files of a folder, not of its sub-folders, in the file system's
    /// order. Throws YException for a path that is not a folder.
    void addDirectory(const QString& path);

    /// Appends a value to the key's list, or sets it when the key is new.
    void addString(const QString& key, const QString& value);
    /// Makes `value` the only value; the key keeps the place of its first declaration.
    void setString(const QString& key, const QString& value);
    void addLong(const QString& key, long value);
    void setLong(const QString& key, long value);

    /// The last declared value, or an empty string.
    QString value(const QString& key) const;
    QString stringValue(const QString& key) const;
    QStringList values(const QString& key) const;
    QStringList stringValues(const QString& key) const;
    /// 0 for an empty or unknown value; throws YException when the value is not a number.
    long longValue(const QString& key) const;
    /// Every value as a number; unlike longValue(), an empty value throws.
    QList<long> longValues(const QString& key) const;
    bool contains(const QString& key) const;
    /// Despite its name, the hash itself, in hash order.
    QHash<QString, QStringList> entriesOrderedByKey() const;
    /// One pair per declaration; a key declared three times stands there three times.
    QList<QPair<QString, QString>> entriesByDeclarationOrder() const;
    /// The files and folders added, in the order they finished reading.
    const QStringList& path() const;

protected:
    /// The line reader: malformed lines are logged at NOTICE on STDERR and skipped.
    void read(QTextStream& stream, const QString& onlyKey);

private:
    void read(const QString& fileName, const QString& onlyKey);
    void readLine(const QChar* begin, const QChar* end, const QString& onlyKey);
    bool acceptsKey(const QString& key) const;
    static long toLongValue(const QString& value, const QString& key);

    QHash<QString, QStringList> _directives;
    QList<QPair<QString, quint32>> _keysOrdered;
    QStringList _keyPrefixes;
    QTextStream _fileStream;
    QStringList _paths;
    YPhpIniParserHandler* _handler;
};

#endif // YOVOLIB_PHP_INI_PARSER_H
