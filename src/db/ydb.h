#ifndef YOVOLIB_YDB_H
#define YOVOLIB_YDB_H

#include "ydb_connection.h"
#include "ydebug.h"
#include "yovolib_export.h"

#include <QList>
#include <QSharedPointer>
#include <QString>
#include <QTextStream>

/// What a daemon tells a pool about its database; the library only calls it.
class YOVOLIB_EXPORT YDbInitData
{
public:
    /// The first slot; the library never calls anything through it but the destructor.
    virtual ~YDbInitData();
    virtual QString getUserName() = 0;
    /// A QtSql driver name: "QSQLITE", "QMYSQL", "DRIZZLE", "QDB2" or any other.
    virtual QString getDbType() = 0;
    /// The database, or the file path for SQLite.
    virtual QString getDbName() = 0;
    virtual QString getPassword() = 0;
    virtual QString getConnectOpts() = 0;
    virtual QString getHostName() = 0;
    virtual unsigned int getPort() = 0;
    /// The statement catalogue's XML text; may be null.
    virtual QSharedPointer<QTextStream> getStatements() = 0;
};

/// A pool of open connections to one database: a free list and a used list, no limit, no health
/// check and no lock. A connection goes back on the free list when its last handle dies. The pool
/// must outlive every handle it gave out.
class YOVOLIB_EXPORT YDb
{
public:
    /// Not initialized; initMySQL follows.
    YDb();
    /// Initializes from the data; the outcome shows only in isInitialized().
    explicit YDb(YDbInitData* data);
    /// Closes every connection, used ones included, and removes their QtSql names.
    ~YDb();

    /// Always succeeds and sets the type "DRIZZLE". The connect options are applied to each
    /// connection, not to the base registration.
    bool initMySQL(const QString& hostName, const QString& userName, const QString& password,
        const QString& dbName, unsigned int port, const QString& connectOpts);

    bool isInitialized() const { return _initialized; }
    bool isSqlite() const;
    QString getBaseConnName() const { return _baseConnName; }
    QString getConnectOpts() const { return _connectOpts; }
    QString getDbName() const { return _dbName; }
    QString getDbType() const { return _dbType; }
    QString getHostName() const { return _hostName; }
    QString getPassword() const { return _password; }
    unsigned int getPort() const { return _port; }
    QString getUserName() const { return _userName; }

    /// The first free connection, or a new one; throws YException when it can't be opened.
    YDbConnectionPtr getConnection();
    /// As getConnection, but a null handle where an SQLite file doesn't exist yet, so that a
    /// reader never creates an empty database. The connection itself isn't read-only.
    YDbConnectionPtr getReadOnlyConnection();
    /// A new connection on neither list, closed and unregistered at its last release.
    YDbConnectionPtr getTemporaryConnection();
    /// Called by the last handle; a double release, or one of an unknown connection, does nothing.
    void releaseConnection(YDbConnection* connection);
    /// Opens and closes one connection; its QtSql name stays registered.
    bool testConnection();

    /// The value quoted and escaped by the connection's driver; with `removeQuotes`, without its
    /// outer single quotes.
    static QString sqlSafeString(
        YDbConnectionPtr connection, const QString& value, bool removeQuotes);

    /// Where the pools log; STDERR unless the daemon sets a stream of its own.
    static YDebug::StreamId YDbLog;

private:
    YDb(const YDb&) = delete;
    YDb& operator=(const YDb&) = delete;

    bool init(YDbInitData* data);
    QString nextName();
    YDbConnection* newConnection();
    YDbConnection* newReadOnlyConnection();
    void disposeConnection(YDbConnection* connection);

    QList<YDbConnection*> _freeList;
    QList<YDbConnection*> _usedList;
    QString _userName;
    QString _password;
    QSharedPointer<QTextStream> _statements;
    QString _baseConnName;
    QString _dbName;
    QString _dbType;
    unsigned int _port;
    QString _connectOpts;
    QString _hostName;
    bool _initialized;
};

#endif // YOVOLIB_YDB_H
