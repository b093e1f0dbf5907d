#ifndef YOVOLIB_YOVO_SERVER_INFO_H
#define YOVOLIB_YOVO_SERVER_INFO_H

#include "ydebug.h"
#include "yovolib_export.h"

#include <QString>

/// Where the installation lies and what it talks to: folders below the root, the web server's kind
/// and ports, the central database. Filled once from the installation's ini files.
class YOVOLIB_EXPORT YovoServerInfo
{
public:
    /// Empty strings, zero numbers and version 2020; initialize() follows later.
    YovoServerInfo();
    YovoServerInfo(const QString& root, const QString& webserver);
    YovoServerInfo(const YovoServerInfo& other);
    YovoServerInfo& operator=(const YovoServerInfo& other);
    virtual ~YovoServerInfo();

    /// Never throws: a missing file or key leaves its field empty or 0. A missing numeric key
    /// takes the number of the numeric key read before it, deliberately.
    void initialize(const QString& root, const QString& webserver);
    /// One line per folder at level DBG1; the database settings are not printed.
    void print(YDebug::StreamId stream) const;

    const QString& getRoot() const { return _root; }
    const QString& getEtc() const { return _etc; }
    const QString& getConfd() const { return _confd; }
    const QString& getSited() const { return _sited; }
    const QString& getApps() const { return _apps; }
    const QString& getLogs() const { return _logs; }
    const QString& getDbDir() const { return _dbDir; }
    const QString& getTmp() const { return _tmp; }
    const QString& getWebserver() const { return _webserver; }

    QString getUserWebserverIp() const { return _userWebserverIp; }
    void setUserWebserverIp(QString ip) { _userWebserverIp = ip; }
    QString getDbType() const { return _dbType; }
    void setDbType(QString type) { _dbType = type; }
    QString getDbName() const { return _dbName; }
    void setDbName(QString name) { _dbName = name; }
    QString getDbHostName() const { return _dbHostName; }
    void setDbHostName(QString hostName) { _dbHostName = hostName; }
    QString getDbUsername() const { return _dbUsername; }
    void setDbUsername(QString username) { _dbUsername = username; }
    QString getDbPassword() const { return _dbPassword; }
    /// Changes the field only; nothing is written back to the files.
    void setDbPassword(QString password) { _dbPassword = password; }

    int getUserWebserverPort() const { return _userWebserverPort; }
    void setUserWebserverPort(int port) { _userWebserverPort = port; }
    int getUiWebserverPort() const { return _uiWebserverPort; }
    void setUiWebserverPort(int port) { _uiWebserverPort = port; }
    int getUiWebserverSecuredPort() const { return _uiWebserverSecuredPort; }
    void setUiWebserverSecuredPort(int port) { _uiWebserverSecuredPort = port; }
    int getApacheVersion() const { return _apacheVersion; }
    void setApacheVersion(int version) { _apacheVersion = version; }
    int getNodeId() const { return _nodeId; }
    void setNodeId(int nodeId) { _nodeId = nodeId; }
    int getDbPort() const { return _dbPort; }
    void setDbPort(int port) { _dbPort = port; }

private:
    QString _etc;
    QString _confd;
    QString _sited;
    QString _apps;
    QString _root;
    QString _logs;
    QString _tmp;
    QString _dbDir;
    QString _webserver;
    QString _userWebserverIp;
    int _userWebserverPort;
    int _uiWebserverPort;
    int _uiWebserverSecuredPort;
    int _apacheVersion;
    int _nodeId;
    QString _dbType;
    QString _dbName;
    QString _dbHostName;
    int _dbPort;
    QString _dbUsername;
    QString _dbPassword;
};

#endif // YOVOLIB_YOVO_SERVER_INFO_H
