#include "ydb_table_copier.h"

#include "yexception.h"
#include "ysafe_sql_query.h"

#include <QDateTime>
#include <QSqlError>
#include <QStringList>

namespace {

const int LOCKED_RETRIES = 3;

YDbConnection* checked(const YDbConnectionPtr& connection)
{
    if (!connection)
        throw YException("YDbTableCopier: null connection");
    return connection.Get();
}

QString failure(const char* what, const QSqlQuery& query)
{
    return QStringLiteral("%1. %2. %3")
        .arg(QLatin1String(what), query.lastQuery(), query.lastError().text());
}

} // namespace

QString YDbTableCopier::ColumnInfo::toString() const
{
    return QStringLiteral("%1 %2 %3 %4")
        .arg(QString::number(index), name, QString::number(static_cast<int>(type)),
            QString::number(flag ? 1 : 0));
}

YDbTableCopier::YDbTableCopier(YDebug::StreamId stream)
    : _stream(stream)
{
}

void YDbTableCopier::copy(YDbConnectionPtr source, YDbConnectionPtr target, const QString& table,
    const QString& condition)
{
    if (checked(source)->isSQlite())
        copySQliteToMysql(source, target, table, condition);
    else
        copyMysqlToSqlite(source, target, table, condition);
}

void YDbTableCopier::copySQliteToMysql(
    YDbConnectionPtr, YDbConnectionPtr, const QString&, const QString&)
{
    throw YException("YDbTableCopier::copySQliteToMysql not implemented yet");
}

void YDbTableCopier::logColumns(const char* title, const QList<ColumnInfo>& columns) const
{
    YLOG_DBG3(_stream) << title << yflush;
    for (const ColumnInfo& column : columns)
        YLOG_DBG3(_stream) << column.toString() << yflush;
}

QVariant::Type YDbTableCopier::qtTypeFrom(const QString& type, const char* unknownText) const
{
    static const struct
    {
        const char* substring;
        QVariant::Type type;
    } map[] = {{"char", QVariant::String}, {"text", QVariant::String}, {"int", QVariant::Int},
        {"blob", QVariant::ByteArray}, {"bit", QVariant::Int}, {"timestamp", QVariant::DateTime}};
    for (const auto& entry : map) {
        if (type.contains(QLatin1String(entry.substring), Qt::CaseInsensitive))
            return entry.type;
    }
    YLOG_ERROR(_stream) << unknownText << type << yflush;
    return QVariant::String;
}

QVariant::Type YDbTableCopier::qtTypeFromMysqlType(const QString& type) const
{
    return qtTypeFrom(type, "YDbTableCopier: Unknown mysql field type:");
}

QVariant::Type YDbTableCopier::qtTypeFromSqliteType(const QString& type) const
{
    return qtTypeFrom(type, "YDbTableCopier: Unknown sqlite field type:");
}

QList<YDbTableCopier::ColumnInfo> YDbTableCopier::getMysqlColumnsInfo(
    YDbConnectionPtr connection, const QString& table)
{
    YSafeSqlQuery query(checked(connection)->getDatabase());
    query.prepare(QStringLiteral("SHOW COLUMNS FROM %1").arg(table));
    if (!query.exec(_stream, LOCKED_RETRIES))
        throw YException(failure("Unable to read table info", query));
    QList<ColumnInfo> columns;
    int index = 0;
    while (query.next()) {
        ColumnInfo column;
        column.index = index++;
        column.name = query.value(0).toString();
        column.type = qtTypeFromMysqlType(query.value(1).toString());
        column.flag = query.value(2).toString() == QLatin1String("YES");
        columns.append(column);
    }
    return columns;
}

QList<YDbTableCopier::ColumnInfo> YDbTableCopier::getSqliteColumnsInfo(
    YDbConnectionPtr connection, const QString& table)
{
    YSafeSqlQuery query(checked(connection)->getDatabase());
    query.prepare(QStringLiteral("pragma table_info(\"%1\")").arg(table));
    if (!query.exec(_stream, LOCKED_RETRIES))
        throw YException(failure("Unable to read table info", query));
    QList<ColumnInfo> columns;
    while (query.next()) {
        ColumnInfo column;
        column.index = query.value(0).toInt();
        column.name = query.value(1).toString();
        column.type = qtTypeFromSqliteType(query.value(2).toString());
        column.flag = query.value(3).toInt() == 1;
        columns.append(column);
    }
    return columns;
}

void YDbTableCopier::copyMysqlToSqlite(YDbConnectionPtr source, YDbConnectionPtr target,
    const QString& table, const QString& condition)
{
    YLOG_DBG2(_stream) << "Copying table" << table << "from mysql to sqlite" << yflush;
    const QList<ColumnInfo> sourceColumns = getMysqlColumnsInfo(source, table);
    const QList<ColumnInfo> targetColumns = getSqliteColumnsInfo(target, table);
    logColumns("Source columns:", sourceColumns);
    logColumns("Target columns:", targetColumns);

    // kept: copier-deletes-all. The condition selects source rows only; the target is emptied.
    YSafeSqlQuery cleanup(checked(target)->getDatabase());
    cleanup.prepare(QStringLiteral("delete from %1").arg(table));
    if (!cleanup.exec(_stream, LOCKED_RETRIES))
        throw YException(failure("Unable to cleanup table data", cleanup));

    QStringList names;
    QStringList placeholders;
    for (const ColumnInfo& column : sourceColumns) {
        names << column.name;
        placeholders << QLatin1Char(':') + column.name;
    }
    const QString insertText = QStringLiteral("INSERT INTO %1 (").arg(table)
        + names.join(QLatin1String(", ")) + QLatin1String(") VALUES (")
        + placeholders.join(QLatin1String(", ")) + QLatin1String(")");

    YSafeSqlQuery select(source->getDatabase());
    select.prepare(QStringLiteral("select * from %1 %2").arg(table, condition));
    if (!select.exec(_stream, LOCKED_RETRIES))
        throw YException(failure("Unable to read table data", select));

    const int count = sourceColumns.size();
    while (select.next()) {
        QVector<QVariant> values;
        values.reserve(count);
        for (int i = 0; i < count; ++i) {
            // Pairing by position: a target with fewer columns is the caller's error and shows
            // as a failed insert, never as a read past the list.
            const ColumnInfo* targetColumn
                = i < targetColumns.size() ? &targetColumns.at(i) : nullptr;
            const QVariant value = select.value(i);
            if (targetColumn != nullptr && targetColumn->type == QVariant::String
                && targetColumn->flag && value.toString().isEmpty()) {
                YLOG_DBG3(_stream) << "Will convert empty value of" << targetColumn->name
                                   << "to an empty string" << yflush;
                values.append(QVariant(QString(QLatin1String(""))));
            } else if (targetColumn != nullptr && targetColumn->type == QVariant::Int
                && sourceColumns.at(i).type == QVariant::DateTime) {
                values.append(QVariant(static_cast<uint>(value.toDateTime().toSecsSinceEpoch())));
            } else {
                values.append(value);
            }
        }
        YSafeSqlQuery insert(target->getDatabase());
        insert.prepare(insertText);
        for (int i = 0; i < count; ++i)
            insert.bindValue(QLatin1Char(':') + sourceColumns.at(i).name, values.at(i));
        if (!insert.exec(_stream, LOCKED_RETRIES))
            throw YException(failure("Unable to write table data", insert));
    }
    YLOG_DBG2(_stream) << "Copied" << select.size() << "rows" << yflush;
}
