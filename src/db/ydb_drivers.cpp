// Daemons configured for "DRIZZLE" talk to MySQL or MariaDB. QtSql has no driver of that name,
// so the name is registered for Qt's own MySQL driver, created from the same plugin that QtSql
// loads for "QMYSQL". Going through the plugin rather than linking the driver keeps the library
// free of a build dependency on the client library: a system without the plugin gets QtSql's
// usual "driver not loaded" error when the connection opens.
#include "ydb_drivers_p.h"

#include <QCoreApplication>
#include <QDir>
#include <QLatin1String>
#include <QPluginLoader>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlDriverCreatorBase>
#include <QSqlDriverPlugin>
#include <QStringList>

namespace {

const char MYSQL_DRIVER[] = "QMYSQL";

QSqlDriverPlugin* loadMysqlPlugin()
{
    const QStringList paths = QCoreApplication::libraryPaths();
    for (const QString& path : paths) {
        QDir folder(path + QLatin1String("/sqldrivers"));
        const QStringList files
            = folder.entryList(QStringList() << QStringLiteral("*qsqlmysql*"), QDir::Files);
        for (const QString& file : files) {
            QPluginLoader loader(folder.absoluteFilePath(file));
            if (auto* plugin = qobject_cast<QSqlDriverPlugin*>(loader.instance()))
                return plugin;
        }
    }
    return nullptr;
}

class MysqlDriverCreator : public QSqlDriverCreatorBase
{
public:
    QSqlDriver* createObject() const override
    {
        // The plugin's root object lives as long as the process keeps the plugin loaded, which
        // QPluginLoader does until unload() is called: it is never called here.
        static QSqlDriverPlugin* plugin = loadMysqlPlugin();
        return plugin != nullptr ? plugin->create(QLatin1String(MYSQL_DRIVER)) : nullptr;
    }
};

} // namespace

void yDbRegisterDrivers()
{
    // Registered once; at the end of the process the name is registered again without a creator,
    // which is how QtSql lets go of the one it owns.
    static const struct Registration
    {
        Registration()
        {
            QSqlDatabase::registerSqlDriver(QStringLiteral("DRIZZLE"), new MysqlDriverCreator());
        }
        ~Registration() { QSqlDatabase::registerSqlDriver(QStringLiteral("DRIZZLE"), nullptr); }
    } registration;
    (void)registration;
}
