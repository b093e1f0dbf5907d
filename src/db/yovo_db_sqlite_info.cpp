#include "yovo_db_sqlite_info.h"

#include "yexception.h"

#include <QSqlError>

YDebug::StreamId YovoDbSQliteInfo::_log = YDebug::STDERR;

namespace {

const int BUSY_TIMEOUT_MS = 60000;

const char* const DB_FILES[] = {"deployment.db", "monitor.db", "jobqueue.db", "ysd.db", "geo.db",
    "statistics.db", "gui.db", "codetracing.db", "devbar.db"};

} // namespace

YovoDbSQliteInfo& YovoDbSQliteInfo::get(const QString& installDir)
{
    // Lives until the process ends, as daemons reach it from anywhere up to their last moment.
    static YovoDbSQliteInfo* instance = new YovoDbSQliteInfo(installDir);
    return *instance;
}

YovoDbSQliteInfo::YovoDbSQliteInfo(const QString& installDir)
    : _installDir(installDir)
{
}

YovoDbSQliteInfo::YovoDbSQliteInfo(const YovoDbSQliteInfo& other) = default;

YovoDbSQliteInfo& YovoDbSQliteInfo::operator=(const YovoDbSQliteInfo& other) = default;

YovoDbSQliteInfo::~YovoDbSQliteInfo() = default;

void YovoDbSQliteInfo::setLogStream(YDebug::StreamId stream)
{
    _log = stream;
}

QString YovoDbSQliteInfo::dbFileName(DAEMON_TYPE type) const
{
    if (type == INVALID)
        throw YException("YovoDbSQliteInfo::dbFileName: Invalid database type");
    QString result = _installDir + QLatin1String("/data/db/");
    const int index = static_cast<int>(type);
    // kept: folder-for-unknown-type. A value past INVALID names no file and yields the folder.
    if (index >= 0 && index < INVALID)
        result += QLatin1String(DB_FILES[index]);
    return result;
}

QSqlDatabase YovoDbSQliteInfo::connection(DAEMON_TYPE type, const QString& connectionName) const
{
    const QString file = dbFileName(type);
    QSqlDatabase database;
    if (connectionName.isEmpty()) {
        database = QSqlDatabase::addDatabase(
            QStringLiteral("QSQLITE"), QLatin1String(QSqlDatabase::defaultConnection));
    } else {
        if (QSqlDatabase::contains(connectionName))
            QSqlDatabase::removeDatabase(connectionName);
        database = QSqlDatabase::addDatabase(QStringLiteral("QSQLITE"), connectionName);
    }
    database.setDatabaseName(file);
    database.setConnectOptions(QStringLiteral("QSQLITE_BUSY_TIMEOUT=%1").arg(BUSY_TIMEOUT_MS));
    if (!database.open())
        throw YException(QStringLiteral("Unable to connect to sqlite database: %1. %2")
                             .arg(file, database.lastError().text()));
    return database;
}
