#ifndef YOVOLIB_YDB_MYSQL_LOCK_H
#define YOVOLIB_YDB_MYSQL_LOCK_H

#include "ydb_connection.h"
#include "ydebug.h"
#include "yovolib_export.h"

#include <QString>

/// A named mutex among the clients of one MySQL server, held by one connection and released by
/// the destructor. A reconnect of that connection drops the lock without notice.
class YOVOLIB_EXPORT YDbMysqlLock
{
public:
    /// Takes nothing yet. The name goes into the statement as it stands, unescaped.
    YDbMysqlLock(YDbConnectionPtr connection, const QString& name, YDebug::StreamId stream);
    /// A copy releases the same name at its own destruction.
    YDbMysqlLock(const YDbMysqlLock& other);
    YDbMysqlLock& operator=(const YDbMysqlLock& other);
    /// Sends the release, whether or not lock() ever succeeded; never throws.
    virtual ~YDbMysqlLock();

    /// Waits in the server up to the time-out; throws YException when the lock isn't obtained.
    void lock(int timeoutSeconds);

private:
    YDbConnectionPtr _connection;
    QString _name;
    YDebug::StreamId _stream;
};

#endif // YOVOLIB_YDB_MYSQL_LOCK_H
