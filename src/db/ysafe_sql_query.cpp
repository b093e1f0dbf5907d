#include "ysafe_sql_query.h"

#include "yexception.h"
#include "ythread.h"

#include <QSqlError>
#include <QVariant>
#include <QVector>
#include <QtDebug>

namespace {

const unsigned int LOCKED_RETRY_SLEEP_MS = 500;

bool debugFromEnvironment()
{
    return qgetenv("YS_SQL_DEBUG") == "1";
}

} // namespace

YSafeSqlQuery::YSafeSqlQuery(const QSqlDatabase& database)
    : QSqlQuery(database)
    , _database(database)
    , _debug(debugFromEnvironment())
{
}

bool YSafeSqlQuery::isConnectionLost(const QSqlError& error)
{
    // The client library of MariaDB says "Server has gone away" where MySQL's says "MySQL server
    // has gone away": the shorter text covers both.
    const QString text = error.text();
    return text.contains(QLatin1String("server has gone away"), Qt::CaseInsensitive)
        || text.contains(QLatin1String("lost connection to server"), Qt::CaseInsensitive);
}

bool YSafeSqlQuery::execPreparedAgain()
{
    // A server-side prepared statement dies with its connection: after the reconnect the same
    // text is prepared on the new one and the values are bound again, by position.
    const QString sql = lastQuery();
    const int count = boundValues().size();
    QVector<QVariant> values;
    values.reserve(count);
    for (int i = 0; i < count; ++i)
        values.append(boundValue(i));
    if (!QSqlQuery::prepare(sql))
        return false;
    for (int i = 0; i < count; ++i)
        bindValue(i, values.at(i));
    return QSqlQuery::exec();
}

bool YSafeSqlQuery::isConnectionAlive()
{
    QSqlQuery ping(_database);
    return ping.exec(QStringLiteral("SELECT 1"));
}

bool YSafeSqlQuery::exec()
{
    bool done = QSqlQuery::exec();
    if (!done && isConnectionLost(lastError())) {
        // A statement prepared before another query's reconnect reports the old connection as
        // lost although the database is open again: it is prepared anew, and the connection is
        // not dropped a second time, which would lose its session (locks, transaction) again.
        if (!isConnectionAlive())
            _database.open();
        done = execPreparedAgain();
    }
    logQuery();
    if (done)
        return true;
    // kept: exec-error-class-name. The exception names "QSafeSqlQuery", the log line
    // "YSafeSqlQuery": log readers match both texts as they are.
    throw YException(QStringLiteral("QSafeSqlQuery::exec -> error in query: %1. [%2]")
                         .arg(executedQuery(), lastError().text()));
}

bool YSafeSqlQuery::exec(const QString& query)
{
    bool done = QSqlQuery::exec(query);
    if (!done && isConnectionLost(lastError())) {
        _database.open();
        done = QSqlQuery::exec(query);
    }
    logQuery();
    if (done)
        return true;
    throw YException(QStringLiteral("QSafeSqlQuery::exec -> error in query: %1. [%2]")
                         .arg(query, lastError().text()));
}

bool YSafeSqlQuery::exec(YDebug::StreamId stream, int retries)
{
    int counter = 0;
    for (;;) {
        try {
            const bool result = exec();
            // kept: double-query-log. exec() has logged the statement already.
            logQuery();
            return result;
        } catch (const YException& e) {
            if (QByteArray(e.what()).contains("locked") && counter++ < retries) {
                YLOG_DBG3(stream) << "DB is locked. Performing retry number:" << counter << yflush;
                YThread::sleepMilli(LOCKED_RETRY_SLEEP_MS);
                continue;
            }
            throw;
        }
    }
}

void YSafeSqlQuery::logQuery() const
{
    if (_debug)
        qDebug().noquote() << QStringLiteral("YSafeSqlQuery: %1").arg(executedQuery());
}
