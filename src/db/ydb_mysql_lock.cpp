#include "ydb_mysql_lock.h"

#include "yexception.h"
#include "ysafe_sql_query.h"

#include <QSqlError>
#include <QVariant>

YDbMysqlLock::YDbMysqlLock(
    YDbConnectionPtr connection, const QString& name, YDebug::StreamId stream)
    : _connection(connection)
    , _name(name)
    , _stream(stream)
{
}

YDbMysqlLock::YDbMysqlLock(const YDbMysqlLock& other) = default;

YDbMysqlLock& YDbMysqlLock::operator=(const YDbMysqlLock& other) = default;

YDbMysqlLock::~YDbMysqlLock()
{
    try {
        YLOG_DBG2(_stream) << "Unlocking" << _name << yflush;
        if (!_connection)
            throw YException("no connection");
        const QString text = QStringLiteral("SELECT RELEASE_LOCK('%1')").arg(_name);
        YSafeSqlQuery query(_connection->getDatabase());
        if (!query.exec(text))
            YLOG_ERROR(_stream) << QStringLiteral("Unable to release the lock: %1. %2")
                                       .arg(_name, query.lastError().text())
                                << yflush;
    } catch (const YException& e) {
        YLOG_WARNING(_stream) << "Unable to release server lock" << _name << "." << e.what()
                              << yflush;
    }
}

void YDbMysqlLock::lock(int timeoutSeconds)
{
    YLOG_DBG2(_stream) << "Locking" << _name << yflush;
    if (!_connection)
        throw YException(QStringLiteral("Unable to prepare query: %1. %2")
                             .arg(_name, QStringLiteral("no connection")));
    // kept: unescaped-lock-name. The name is pasted as it stands; a quote in it breaks the
    // statement, and callers rely on passing names that are already safe.
    const QString text
        = QStringLiteral("select GET_LOCK('%1', '%2')").arg(_name, QString::number(timeoutSeconds));
    YSafeSqlQuery query(_connection->getDatabase());
    if (!query.prepare(text))
        throw YException(
            QStringLiteral("Unable to prepare query: %1. %2").arg(_name, query.lastError().text()));
    if (!query.exec())
        throw YException(
            QStringLiteral("Unable to acquire lock: %1. %2").arg(_name, query.lastError().text()));
    if (query.next() && query.value(0).toString() == QLatin1String("1")) {
        YLOG_DBG2(_stream) << "Received lock" << _name << yflush;
        return;
    }
    throw YException(
        QStringLiteral("Unable to obtain lock: %1. %2").arg(_name, query.lastError().text()));
}
