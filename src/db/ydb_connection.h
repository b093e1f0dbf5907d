#ifndef YOVOLIB_YDB_CONNECTION_H
#define YOVOLIB_YDB_CONNECTION_H

#include "yovolib_export.h"
#include "ysafe_sql_query.h"

#include <QSharedPointer>
#include <QSqlDatabase>
#include <QSqlError>
#include <QString>
#include <QTextStream>

class YDb;
class YDbConfigReader;

/// A plain, non-atomic reference count: handles of one connection belong to one thread at a time.
class YOVOLIB_EXPORT YDbRefCount
{
public:
    YDbRefCount()
        : _count(0)
    {
    }
    void IncRef() { ++_count; }
    void DecRef() { --_count; }
    int GetRefCount() const { return _count; }

private:
    int _count;
};

/// One open database connection with its transaction state, its reference count and the
/// statement catalogue that createQuery reads.
class YOVOLIB_EXPORT YDbConnection
{
public:
    /// A pooled connection. It counts as SQLite when the pool's type is "QSQLITE".
    YDbConnection(
        QSqlDatabase database, YDb* pool, YDbConfigReader* configReader, bool commitOnDestruction);
    /// A stand-alone connection: no pool, no catalogue, an open transaction is rolled back at
    /// destruction. It counts as SQLite when the driver's name contains "SQLITE".
    explicit YDbConnection(QSqlDatabase database);
    /// Ends an open transaction (commit or rollback, by the constructor's flag) and closes.
    ~YDbConnection();

    /// Begins a transaction; within one already begun it does nothing. Reconnects once when the
    /// server has gone away.
    void beginTransaction();
    /// Throws on failure, and then the connection stays in its transaction.
    void commit();
    /// Commits, trying `times` attempts while the database is locked or deadlocked, sleeping
    /// 500 ms after each failed attempt (the last included). `times` must not be 0.
    void commitWithRetries(unsigned int times);
    /// Never throws; the transaction counts as ended whatever the driver says.
    void rollback();

    /// A query prepared with the catalogue's statement of that name.
    YSafeSqlQuery createQuery(const QString& statementName);
    QSqlError lastError();
    /// Hands the stream to the catalogue, when both exist.
    void readDbConfig(QSharedPointer<QTextStream> stream);

    void makeTemporary(bool temporary) { _temporary = temporary ? 1 : 0; }
    bool isTemporary() const { return _temporary != 0; }
    bool isSQlite() const { return _sqlite; }
    bool isInTransaction() const { return _inTransaction; }
    QSqlDatabase getDatabase() const { return _database; }
    QSqlDatabase& databaseRef() { return _database; }
    YDbRefCount& getRefCount() { return _refCount; }
    YDb* getYdb() const { return _pool; }

private:
    YDbConnection(const YDbConnection&) = delete;
    YDbConnection& operator=(const YDbConnection&) = delete;

    YDb* _pool;
    QSqlDatabase _database;
    bool _commitOnDestruction;
    YDbConfigReader* _configReader;
    int _temporary;
    bool _sqlite;
    YDbRefCount _refCount;
    bool _inTransaction;
};

/// The counted handle of a YDbConnection. The last handle gives a pooled connection back to its
/// pool, and deletes a connection without pool.
class YOVOLIB_EXPORT YDbConnectionPtr
{
public:
    YDbConnectionPtr();
    /// For a connection without pool, `removeFromQtSql` also removes its QtSql name at the last
    /// release; with the flag false the name stays registered for the caller.
    YDbConnectionPtr(YDbConnection* connection, bool removeFromQtSql);
    YDbConnectionPtr(const YDbConnectionPtr& other);
    YDbConnectionPtr& operator=(const YDbConnectionPtr& other);
    virtual ~YDbConnectionPtr();

    YDbConnection* operator->() const { return _connection; }
    YDbConnection* Get() const { return _connection; }
    bool operator!() const { return _connection == nullptr; }
    explicit operator bool() const { return _connection != nullptr; }

private:
    void Attach(YDbConnection* connection);
    void DeleteRefCount();

    YDbConnection* _connection;
    bool _removeFromQtSql;
};

#endif // YOVOLIB_YDB_CONNECTION_H
