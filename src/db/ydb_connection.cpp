#include "ydb_connection.h"

#include "ydb.h"
#include "ydb_config_reader.h"
#include "yexception.h"
#include "ythread.h"

#include <QSqlDriver>

namespace {

const unsigned int RETRY_SLEEP_MS = 500;

} // namespace

// ---------------------------------------------------------------------------------------------
// YDbConnection

YDbConnection::YDbConnection(
    QSqlDatabase database, YDb* pool, YDbConfigReader* configReader, bool commitOnDestruction)
    : _pool(pool)
    , _database(database)
    , _commitOnDestruction(commitOnDestruction)
    , _configReader(configReader)
    , _temporary(0)
    , _sqlite(pool != nullptr && pool->getDbType() == QLatin1String("QSQLITE"))
    , _inTransaction(false)
{
}

YDbConnection::YDbConnection(QSqlDatabase database)
    : _pool(nullptr)
    , _database(database)
    , _commitOnDestruction(false)
    , _configReader(nullptr)
    , _temporary(0)
    , _sqlite(database.driverName().contains(QLatin1String("SQLITE"), Qt::CaseInsensitive))
    , _inTransaction(false)
{
}

YDbConnection::~YDbConnection()
{
    if (_database.isOpen()) {
        if (_inTransaction) {
            if (_commitOnDestruction)
                _database.commit();
            else
                _database.rollback();
        }
        _database.close();
    }
    _inTransaction = false;
}

void YDbConnection::beginTransaction()
{
    if (_inTransaction)
        return;
    bool started = _database.transaction();
    if (!started && YSafeSqlQuery::isConnectionLost(_database.lastError())) {
        _database.open();
        started = _database.transaction();
    }
    if (!started) {
        _inTransaction = false;
        throw YException(QStringLiteral("Begin transaction operation failed, reason: ")
            + _database.lastError().text());
    }
    _inTransaction = true;
}

void YDbConnection::commit()
{
    if (!_database.commit())
        throw YException(
            QStringLiteral("Commit operation failed, reason: ") + _database.lastError().text());
    _inTransaction = false;
}

void YDbConnection::commitWithRetries(unsigned int times)
{
    QString message;
    for (unsigned int attempt = 0; attempt < times; ++attempt) {
        if (_database.commit()) {
            _inTransaction = false;
            return;
        }
        message
            = QStringLiteral("Commit operation failed, reason: ") + _database.lastError().text();
        if (!message.contains(QLatin1String("database is locked"))
            && !message.contains(QLatin1String("Deadlock found when trying to get lock")))
            throw YException(message);
        // kept: sleep-after-last-commit. The pause follows the last attempt too, so a caller
        // that gives up has waited times * 500 ms in all.
        YThread::sleepMilli(RETRY_SLEEP_MS);
    }
    throw YException(message);
}

void YDbConnection::rollback()
{
    _database.rollback();
    _inTransaction = false;
}

YSafeSqlQuery YDbConnection::createQuery(const QString& statementName)
{
    if (_configReader == nullptr)
        throw YException("NULL ConfigReader, can not create SqlQuery");
    const QString sql = _configReader->getStatement(statementName);
    if (sql.isEmpty())
        throw YException(QStringLiteral("No such query: ") + statementName);

    YSafeSqlQuery query(_database);
    bool prepared = query.prepare(sql);
    if (!prepared) {
        if (!_database.isOpen())
            _database.open();
        if (YSafeSqlQuery::isConnectionLost(query.lastError())) {
            // The same QtSql connection opens again with what it holds: no new name.
            if (!_database.open())
                throw YException(QStringLiteral("Sql query prepared after reconnect failed: %1")
                                     .arg(_database.lastError().text()));
            prepared = query.prepare(sql);
        }
    }
    if (!prepared)
        throw YException(
            QStringLiteral("Sql query prepared failed: %1").arg(query.lastError().text()));
    return query;
}

QSqlError YDbConnection::lastError()
{
    return _database.lastError();
}

void YDbConnection::readDbConfig(QSharedPointer<QTextStream> stream)
{
    if (_configReader != nullptr && !stream.isNull())
        _configReader->parse(stream);
}

// ---------------------------------------------------------------------------------------------
// YDbConnectionPtr

YDbConnectionPtr::YDbConnectionPtr()
    : _connection(nullptr)
    , _removeFromQtSql(false)
{
}

YDbConnectionPtr::YDbConnectionPtr(YDbConnection* connection, bool removeFromQtSql)
    : _connection(nullptr)
    , _removeFromQtSql(removeFromQtSql)
{
    Attach(connection);
}

YDbConnectionPtr::YDbConnectionPtr(const YDbConnectionPtr& other)
    : _connection(nullptr)
    , _removeFromQtSql(other._removeFromQtSql)
{
    Attach(other._connection);
}

YDbConnectionPtr& YDbConnectionPtr::operator=(const YDbConnectionPtr& other)
{
    if (_connection == other._connection)
        return *this;
    DeleteRefCount();
    _removeFromQtSql = other._removeFromQtSql;
    Attach(other._connection);
    return *this;
}

YDbConnectionPtr::~YDbConnectionPtr()
{
    DeleteRefCount();
}

void YDbConnectionPtr::Attach(YDbConnection* connection)
{
    _connection = connection;
    if (_connection != nullptr)
        _connection->getRefCount().IncRef();
}

void YDbConnectionPtr::DeleteRefCount()
{
    if (_connection == nullptr)
        return;
    _connection->getRefCount().DecRef();
    if (_connection->getRefCount().GetRefCount() == 0) {
        if (YDb* pool = _connection->getYdb()) {
            pool->releaseConnection(_connection);
        } else {
            QString name;
            if (_removeFromQtSql)
                name = _connection->databaseRef().connectionName();
            delete _connection;
            if (!name.isEmpty())
                QSqlDatabase::removeDatabase(name);
        }
    }
    _connection = nullptr;
}
