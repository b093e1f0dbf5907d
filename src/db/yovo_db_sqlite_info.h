#ifndef YOVOLIB_YOVO_DB_SQLITE_INFO_H
#define YOVOLIB_YOVO_DB_SQLITE_INFO_H

#include "ydebug.h"
#include "yovolib_export.h"

#include <QSqlDatabase>
#include <QString>

/// Where each daemon's SQLite database lies under the installation directory, and how it is
/// opened: with a busy time-out of a minute.
class YOVOLIB_EXPORT YovoDbSQliteInfo
{
public:
    // A fixed underlying type: values past INVALID are valid input (they name the folder).
    enum DAEMON_TYPE : int
    {
        DEPLOYMENT = 0,
        MONITOR = 1,
        JOBQUEUE = 2,
        YSD = 3,
        GEO = 4,
        STATISTICS = 5,
        GUI = 6,
        CODETRACING = 7,
        DEVBAR = 8,
        INVALID = 9
    };

    /// The process-wide object, made with the directory of the first call; later arguments are
    /// ignored.
    static YovoDbSQliteInfo& get(const QString& installDir);
    explicit YovoDbSQliteInfo(const QString& installDir);
    YovoDbSQliteInfo(const YovoDbSQliteInfo& other);
    YovoDbSQliteInfo& operator=(const YovoDbSQliteInfo& other);
    virtual ~YovoDbSQliteInfo();

    /// Stored only: nothing in this class logs.
    static void setLogStream(YDebug::StreamId stream);

    QString getYovoInstallDir() const { return _installDir; }
    void setYovoInstallDir(const QString& installDir) { _installDir = installDir; }

    /// "<dir>/data/db/<file>"; INVALID throws, a value beyond it gives the folder alone.
    QString dbFileName(DAEMON_TYPE type) const;
    /// Registers (or, for a known name, registers anew) and opens the database; an empty name
    /// means QtSql's default connection. Throws YException when it can't be opened.
    QSqlDatabase connection(DAEMON_TYPE type, const QString& connectionName) const;

private:
    QString _installDir;

    static YDebug::StreamId _log;
};

#endif // YOVOLIB_YOVO_DB_SQLITE_INFO_H
