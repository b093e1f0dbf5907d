#include "db_test_support.h"

#include <QFile>
#include <QProcess>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariant>

#include <gtest/gtest.h>

namespace yovotest {

QSharedPointer<QTextStream> TestInitData::getStatements()
{
    if (!withStatements)
        return QSharedPointer<QTextStream>();
    _text = QSharedPointer<QString>::create(statementsXml);
    return QSharedPointer<QTextStream>::create(_text.data(), QIODevice::ReadOnly);
}

QString mariaDbFixtureFolder()
{
    return QStringLiteral(YOVO_DB_FIXTURE_DIR);
}

QString mariaDbFixtureScript()
{
    return QStringLiteral(YOVO_DB_FIXTURE_SCRIPT);
}

bool runMariaDbFixture(const QString& action, const QString& folder)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.start(mariaDbFixtureScript(), QStringList() << action << folder);
    return process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0;
}

MariaDbServer mariaDbServer(const QString& folder)
{
    MariaDbServer server;
    const QString dir = folder.isEmpty() ? mariaDbFixtureFolder() : folder;
    const QByteArray text = readFile(dir + QStringLiteral("/server.env"));
    for (const QByteArray& line : text.split('\n')) {
        const int eq = line.indexOf('=');
        if (eq < 0)
            continue;
        const QByteArray key = line.left(eq);
        const QString value = QString::fromUtf8(line.mid(eq + 1));
        if (key == "host")
            server.host = value;
        else if (key == "port")
            server.port = value.toUInt();
        else if (key == "socket")
            server.socket = value;
        else if (key == "user")
            server.user = value;
        else if (key == "password")
            server.password = value;
        else if (key == "database")
            server.database = value;
    }
    server.valid = server.port != 0 && !server.user.isEmpty();
    return server;
}

QSqlDatabase openSideConnection(const MariaDbServer& server, const QString& name)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(QStringLiteral("QMYSQL"), name);
    database.setHostName(server.host);
    database.setPort(static_cast<int>(server.port));
    database.setUserName(server.user);
    database.setPassword(server.password);
    database.setDatabaseName(server.database);
    EXPECT_TRUE(database.open()) << database.lastError().text().toStdString();
    return database;
}

void closeSideConnection(const QString& name)
{
    {
        QSqlDatabase database = QSqlDatabase::database(name, false);
        database.close();
    }
    QSqlDatabase::removeDatabase(name);
}

QVariant scalar(QSqlDatabase database, const QString& sql)
{
    QSqlQuery query(database);
    EXPECT_TRUE(query.exec(sql)) << sql.toStdString() << ": "
                                 << query.lastError().text().toStdString();
    if (!query.next())
        return QVariant();
    return query.value(0);
}

void execOrFail(QSqlDatabase database, const QString& sql)
{
    QSqlQuery query(database);
    EXPECT_TRUE(query.exec(sql)) << sql.toStdString() << ": "
                                 << query.lastError().text().toStdString();
}

LogCapture::LogCapture(int level)
{
    _stream = YDebug::registerStream(
        "db", _dir.file(QStringLiteral("log.txt")).toLocal8Bit().constData());
    YDebug::setDebugLevel(_stream, level);
}

LogCapture::~LogCapture()
{
    YDebug::unregisterStream(_stream);
}

QByteArray LogCapture::text() const
{
    return readFile(_dir.file(QStringLiteral("log.txt")));
}

} // namespace yovotest
