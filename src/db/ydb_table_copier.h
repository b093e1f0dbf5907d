#ifndef YOVOLIB_YDB_TABLE_COPIER_H
#define YOVOLIB_YDB_TABLE_COPIER_H

#include "ydb_connection.h"
#include "ydebug.h"
#include "yovolib_export.h"

#include <QList>
#include <QString>
#include <QVariant>

/// Copies one table from a MySQL database into the table of the same name in an SQLite database,
/// replacing what the target held. Columns are paired by position, never by name.
class YOVOLIB_EXPORT YDbTableCopier
{
public:
    struct YOVOLIB_EXPORT ColumnInfo
    {
        /// Counted from 0 for MySQL; the "cid" value for SQLite.
        int index;
        QString name;
        QVariant::Type type;
        // kept: column-flag-senses.
        /// From MySQL true when nullable, from SQLite true when not nullable: the two sources
        /// give it opposite senses, and the copy reads it only on the SQLite side.
        bool flag;

        /// "index name type flag", for the logs.
        QString toString() const;
    };

    explicit YDbTableCopier(YDebug::StreamId stream);

    /// Deletes every row of the target's table, then inserts the source's rows selected with
    /// `condition` (a whole tail such as a WHERE clause, or empty). Atomic only inside a
    /// transaction that the caller began on the target.
    void copy(YDbConnectionPtr source, YDbConnectionPtr target, const QString& table,
        const QString& condition);

    QList<ColumnInfo> getMysqlColumnsInfo(YDbConnectionPtr connection, const QString& table);
    QList<ColumnInfo> getSqliteColumnsInfo(YDbConnectionPtr connection, const QString& table);
    QVariant::Type qtTypeFromMysqlType(const QString& type) const;
    QVariant::Type qtTypeFromSqliteType(const QString& type) const;

private:
    void copyMysqlToSqlite(YDbConnectionPtr source, YDbConnectionPtr target, const QString& table,
        const QString& condition);
    void copySQliteToMysql(YDbConnectionPtr source, YDbConnectionPtr target, const QString& table,
        const QString& condition);
    QVariant::Type qtTypeFrom(const QString& type, const char* unknownText) const;
    void logColumns(const char* title, const QList<ColumnInfo>& columns) const;

    YDebug::StreamId _stream;
};

#endif // YOVOLIB_YDB_TABLE_COPIER_H
