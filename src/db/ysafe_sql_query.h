#ifndef YOVOLIB_YSAFE_SQL_QUERY_H
#define YOVOLIB_YSAFE_SQL_QUERY_H

#include "ydebug.h"
#include "yovolib_export.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>

/// A QSqlQuery that opens its connection again once when the server has gone away, that can
/// wait out a locked database, and that throws YException instead of returning false.
///
/// Setting the environment variable "YS_SQL_DEBUG" to exactly "1" logs every executed statement
/// through qDebug; the variable is read by each new query.
class YOVOLIB_EXPORT YSafeSqlQuery : public QSqlQuery
{
public:
    /// A query on the database; normally made by YDbConnection::createQuery.
    explicit YSafeSqlQuery(const QSqlDatabase& database);

    /// Executes the prepared statement; true, or throws.
    bool exec();
    /// Executes the text; true, or throws.
    bool exec(const QString& query);
    /// exec() that tries again, 500 ms later, up to `retries` more times while the error text
    /// says "locked". A statement that succeeds is logged twice in this form.
    bool exec(YDebug::StreamId stream, int retries);

    /// True when the error means the connection to the server is lost.
    static bool isConnectionLost(const QSqlError& error);

private:
    void logQuery() const;
    bool execPreparedAgain();
    bool isConnectionAlive();

    QSqlDatabase _database;
    bool _debug;
};

#endif // YOVOLIB_YSAFE_SQL_QUERY_H
