#ifndef YOVOLIB_DB_TEST_SUPPORT_H
#define YOVOLIB_DB_TEST_SUPPORT_H

#include "test_support.h"
#include "ydb.h"
#include "ydebug.h"

#include <QByteArray>
#include <QSharedPointer>
#include <QSqlDatabase>
#include <QString>
#include <QTextStream>

namespace yovotest {

/// Settings that a test hands to a pool, filled field by field.
class TestInitData : public YDbInitData
{
public:
    QString userName;
    QString dbType;
    QString dbName;
    QString password;
    QString connectOpts;
    QString hostName;
    unsigned int port = 0;
    QString statementsXml;
    bool withStatements = true;

    QString getUserName() override { return userName; }
    QString getDbType() override { return dbType; }
    QString getDbName() override { return dbName; }
    QString getPassword() override { return password; }
    QString getConnectOpts() override { return connectOpts; }
    QString getHostName() override { return hostName; }
    unsigned int getPort() override { return port; }
    QSharedPointer<QTextStream> getStatements() override;

private:
    QSharedPointer<QString> _text;
};

/// The private MariaDB server of the test fixture.
struct MariaDbServer
{
    QString host;
    unsigned int port = 0;
    QString socket;
    QString user;
    QString password;
    QString database;
    bool valid = false;
};

/// Reads the fixture's server.env from the folder (default: the build's fixture folder).
MariaDbServer mariaDbServer(const QString& folder = QString());
/// The build's fixture folder and script.
QString mariaDbFixtureFolder();
QString mariaDbFixtureScript();
/// Runs the fixture script; true on success.
bool runMariaDbFixture(const QString& action, const QString& folder);

/// A plain QtSql connection of its own to the server, for setting up and checking behind the
/// library's back. Opened; the name is removed by closeSideConnection.
QSqlDatabase openSideConnection(const MariaDbServer& server, const QString& name);
void closeSideConnection(const QString& name);

/// Runs one statement on a plain connection and returns the first column of the first row.
QVariant scalar(QSqlDatabase database, const QString& sql);
/// Runs statements on a plain connection; fails the test on an error.
void execOrFail(QSqlDatabase database, const QString& sql);

/// A log stream into a file of its own, at the given level.
class LogCapture
{
public:
    explicit LogCapture(int level = 5);
    ~LogCapture();
    YDebug::StreamId stream() const { return _stream; }
    QByteArray text() const;

private:
    TempDir _dir;
    YDebug::StreamId _stream;
};

} // namespace yovotest

#endif // YOVOLIB_DB_TEST_SUPPORT_H
