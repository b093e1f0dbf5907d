#ifndef YOVOLIB_YDB_CONFIG_READER_H
#define YOVOLIB_YDB_CONFIG_READER_H

#include "yovolib_export.h"

#include <QDomDocument>
#include <QDomElement>
#include <QMap>
#include <QSharedPointer>
#include <QString>
#include <QTextStream>

/// The process-wide catalogue of named SQL statements, read from XML texts whose elements named
/// "statement" carry a "name" and a "sql" attribute. Statements accumulate over every parse.
class YOVOLIB_EXPORT YDbConfigReader
{
public:
    /// Makes the catalogue at the first call; no lock, meant for start-up.
    static YDbConfigReader* instance();
    /// Deletes the catalogue. Connections made earlier keep a dangling pointer: for the very end.
    static void release();

    /// Adds the statements of the whole remaining text; a null stream does nothing, a malformed
    /// text adds nothing.
    void parse(QSharedPointer<QTextStream> stream);
    /// The SQL text, or an empty string for an unknown name.
    QString getStatement(const QString& name) const;

private:
    YDbConfigReader();
    ~YDbConfigReader();
    YDbConfigReader(const YDbConfigReader&) = delete;
    YDbConfigReader& operator=(const YDbConfigReader&) = delete;

    void doParseStatement(QDomElement element);

    QDomDocument _document;
    QMap<QString, QString> _statements;

    static YDbConfigReader* ms_instance;
};

#endif // YOVOLIB_YDB_CONFIG_READER_H
