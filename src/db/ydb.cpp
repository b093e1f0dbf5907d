#include "ydb.h"

#include "ydb_config_reader.h"
#include "ydb_drivers_p.h"
#include "yexception.h"
#include "ythread_p.h"

#include <QFile>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlField>
#include <QVariant>

#include <cstdlib>
#include <ctime>

YDebug::StreamId YDb::YDbLog = YDebug::STDERR;

namespace {

const char SQLITE_TYPE[] = "QSQLITE";
const char DB2_TYPE[] = "QDB2";
const char MYSQL_TYPE[] = "QMYSQL";
const char DRIZZLE_TYPE[] = "DRIZZLE";

// Numbers every connection of the process, over all pools; plain, as the pools take no lock.
int connectionCounter = 0;
bool randomSeeded = false;

QString randomString(int length)
{
    static const char alphabet[] = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    if (!randomSeeded) {
        srand(static_cast<unsigned int>(time(nullptr)));
        randomSeeded = true;
    }
    QString result;
    result.reserve(length);
    for (int i = 0; i < length; ++i)
        result.append(QLatin1Char(alphabet[rand() % 62]));
    return result;
}

// The random part and the thread id keep pools of one database apart, in one process and over
// several threads that each make their own pool.
QString makeBaseConnName()
{
    return QStringLiteral("baseConnection%1%2")
        .arg(randomString(15))
        .arg(YThreadPrivate::currentThreadIdSys());
}

bool isMysqlType(const QString& type)
{
    return type == QLatin1String(MYSQL_TYPE) || type == QLatin1String(DRIZZLE_TYPE);
}

} // namespace

YDbInitData::~YDbInitData() = default;

YDb::YDb()
    : _port(0)
    , _initialized(false)
{
}

YDb::YDb(YDbInitData* data)
    : _port(0)
    , _initialized(false)
{
    init(data);
}

YDb::~YDb()
{
    for (YDbConnection* connection : qAsConst(_freeList))
        disposeConnection(connection);
    for (YDbConnection* connection : qAsConst(_usedList))
        disposeConnection(connection);
    QSqlDatabase::removeDatabase(_baseConnName);
    _freeList.clear();
    _usedList.clear();
}

void YDb::disposeConnection(YDbConnection* connection)
{
    const QString name = connection->databaseRef().connectionName();
    delete connection;
    QSqlDatabase::removeDatabase(name);
}

bool YDb::init(YDbInitData* data)
{
    try {
        _dbType = data->getDbType();
        _dbName = data->getDbName();
        _userName = data->getUserName();
        _password = data->getPassword();
        _port = data->getPort();
        _connectOpts = data->getConnectOpts();
        _hostName = data->getHostName();

        _baseConnName = makeBaseConnName();
        yDbRegisterDrivers();
        // The base connection is never opened: it reserves the name and carries the parameters.
        QSqlDatabase base = QSqlDatabase::addDatabase(_dbType, _baseConnName);
        if (_dbType == QLatin1String(SQLITE_TYPE)) {
            base.setDatabaseName(_dbName);
            if (_connectOpts != QLatin1String("N/A") && !_connectOpts.isEmpty())
                base.setConnectOptions(_connectOpts);
        } else if (_dbType == QLatin1String(DB2_TYPE)) {
            base.setDatabaseName(_dbName);
            base.setPassword(_password);
            base.setUserName(_userName);
            base.setPort(static_cast<int>(_port));
            base.setHostName(_hostName);
        } else {
            base.setDatabaseName(_dbName);
            base.setPassword(_password);
            base.setUserName(_userName);
            base.setConnectOptions(_connectOpts);
            base.setPort(static_cast<int>(_port));
            base.setHostName(_hostName);
        }
        _statements = data->getStatements();
        _initialized = true;
        return true;
    } catch (const YException& e) {
        // One item: the stream's separator must not stand between the two texts.
        YLOG_ERROR(YDbLog) << QStringLiteral("Failed to initialize database layer, reason: ")
                + QString::fromLatin1(e.what())
                           << yflush;
        return false;
    }
}

bool YDb::initMySQL(const QString& hostName, const QString& userName, const QString& password,
    const QString& dbName, unsigned int port, const QString& connectOpts)
{
    _dbType = QLatin1String(DRIZZLE_TYPE);
    _hostName = hostName;
    _userName = userName;
    _password = password;
    _dbName = dbName;
    _port = port;
    _connectOpts = connectOpts;
    _baseConnName = makeBaseConnName();
    yDbRegisterDrivers();
    QSqlDatabase base = QSqlDatabase::addDatabase(_dbType, _baseConnName);
    base.setDatabaseName(_dbName);
    base.setPassword(_password);
    base.setUserName(_userName);
    base.setPort(static_cast<int>(_port));
    base.setHostName(_hostName);
    _initialized = true;
    return true;
}

bool YDb::isSqlite() const
{
    return _dbType == QLatin1String(SQLITE_TYPE);
}

QString YDb::nextName()
{
    ++connectionCounter;
    return _baseConnName + QString::number(connectionCounter);
}

YDbConnection* YDb::newConnection()
{
    const QString name = nextName();
    yDbRegisterDrivers();
    QSqlDatabase database = QSqlDatabase::addDatabase(_dbType, name);
    if (_dbType == QLatin1String(SQLITE_TYPE)) {
        database.setDatabaseName(_dbName);
        if (_connectOpts != QLatin1String("N/A") && !_connectOpts.isEmpty())
            database.setConnectOptions(_connectOpts);
        if (!database.open())
            throw YException(QStringLiteral("Failed to allocate connection, reason: ")
                + database.lastError().text() + QStringLiteral(" in db ") + _dbName);
    } else {
        if (_dbType == QLatin1String(DB2_TYPE)) {
            database.setPassword(_password);
            database.setUserName(_userName);
            database.setDatabaseName(_dbName);
            database.setPort(static_cast<int>(_port));
            database.setHostName(_hostName);
        } else if (isMysqlType(_dbType)) {
            database.setConnectOptions(_connectOpts);
            database.setPassword(_password);
            database.setUserName(_userName);
            database.setDatabaseName(_dbName);
            database.setPort(static_cast<int>(_port));
            database.setHostName(_hostName);
        }
        // kept: other-driver-unset. Any other type gets no parameter at all here, unlike in
        // init(): such a connection opens with the driver's own defaults.
        if (!database.open(_userName, _password))
            throw YException(QStringLiteral("Failed to allocate %1 connection, reason: %2")
                                 .arg(_dbType, database.lastError().text()));
    }
    // kept: failed-open-name-kept. A failed open above leaves the name registered with QtSql;
    // the next attempt takes a new name anyway.
    auto* connection = new YDbConnection(database, this, YDbConfigReader::instance(), false);
    connection->readDbConfig(_statements);
    return connection;
}

YDbConnection* YDb::newReadOnlyConnection()
{
    if (_dbType == QLatin1String(SQLITE_TYPE) && !QFile::exists(_dbName))
        return nullptr;
    return newConnection();
}

YDbConnectionPtr YDb::getConnection()
{
    YDbConnection* connection = _freeList.isEmpty() ? newConnection() : _freeList.takeFirst();
    _usedList.append(connection);
    return YDbConnectionPtr(connection, false);
}

YDbConnectionPtr YDb::getReadOnlyConnection()
{
    // kept: readonly-any-free. A free connection serves first, whatever made it.
    YDbConnection* connection
        = _freeList.isEmpty() ? newReadOnlyConnection() : _freeList.takeFirst();
    if (connection == nullptr)
        return YDbConnectionPtr();
    _usedList.append(connection);
    return YDbConnectionPtr(connection, false);
}

YDbConnectionPtr YDb::getTemporaryConnection()
{
    YDbConnection* connection = newConnection();
    connection->makeTemporary(true);
    return YDbConnectionPtr(connection, false);
}

void YDb::releaseConnection(YDbConnection* connection)
{
    if (connection != nullptr && connection->isTemporary()) {
        disposeConnection(connection);
        return;
    }
    if (_freeList.contains(connection))
        return;
    const int index = _usedList.indexOf(connection);
    if (index < 0)
        return;
    _usedList.removeAt(index);
    // Taken from the front, given back at the end: the longest idle connection serves first.
    _freeList.append(connection);
}

bool YDb::testConnection()
{
    // kept: failed-open-name-kept. The tested connection's name stays registered.
    try {
        YDbConnection* connection = newConnection();
        connection->databaseRef().close();
        delete connection;
        return true;
    } catch (const YException&) {
        return false;
    }
}

QString YDb::sqlSafeString(YDbConnectionPtr connection, const QString& value, bool removeQuotes)
{
    if (!connection)
        return QString();
    try {
        QSqlField field(QStringLiteral("dummyField"), QVariant::String);
        field.setValue(value);
        QString result = connection->databaseRef().driver()->formatValue(field, false);
        if (removeQuotes) {
            if (result.startsWith(QLatin1String("'")))
                result.remove(0, 1);
            if (result.endsWith(QLatin1String("'")))
                result.chop(1);
        }
        return result;
    } catch (const YException&) {
        return QString();
    }
}
