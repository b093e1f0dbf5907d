#include "yovo_server_info.h"

#include "scan_dir.h"

#include <QDir>

namespace {

const int DEFAULT_APACHE_VERSION = 2020;

// A missing key leaves `text` as it was, so the field takes the number of the key read before:
// the installation's tools have always seen ports this way. // kept: server-info-carry-over
int readNumber(YScanDir& scanner, const char* key, QString& text)
{
    scanner.getStringValueTrimmed(QLatin1String(key), text);
    return text.toInt(nullptr, 10);
}

} // namespace

YovoServerInfo::YovoServerInfo()
    : _userWebserverPort(0)
    , _uiWebserverPort(0)
    , _uiWebserverSecuredPort(0)
    , _apacheVersion(DEFAULT_APACHE_VERSION)
    , _nodeId(0)
    , _dbPort(0)
{
}

YovoServerInfo::YovoServerInfo(const QString& root, const QString& webserver)
    : YovoServerInfo()
{
    initialize(root, webserver);
}

YovoServerInfo::YovoServerInfo(const YovoServerInfo& other) = default;
YovoServerInfo& YovoServerInfo::operator=(const YovoServerInfo& other) = default;
YovoServerInfo::~YovoServerInfo() = default;

void YovoServerInfo::initialize(const QString& root, const QString& webserver)
{
    _root = root;
    _etc = QStringLiteral("%1/etc").arg(root);
    _confd = QStringLiteral("%1/etc/cfg").arg(root);
    _sited = QStringLiteral("%1/etc/sites.d").arg(root);
    _apps = QStringLiteral("%1/data/apps").arg(root);
    _logs = QStringLiteral("%1/logs").arg(root);
    _tmp = QStringLiteral("%1/tmp").arg(root);
    _dbDir = QStringLiteral("%1/data/db").arg(root);

    YScanDir scanner(YDebug::STDERR);
    scanner.addFile(QStringLiteral("%1/gui/config/ys_ui.ini").arg(root));
    scanner.addFile(QDir::toNativeSeparators(QStringLiteral("%1/ysd.ini").arg(_etc)));
    scanner.scan();

    QString globalIni;
    scanner.getStringValueTrimmed(
        QStringLiteral("yovo_server_daemon.global_directives_ini_file"), globalIni);
    scanner.addFile(globalIni);
    scanner.scan();

    QString text;
    _userWebserverPort = readNumber(scanner, "yovo.user_webserver_port", text);
    scanner.getStringValueTrimmed(QStringLiteral("yovo.user_webserver_ip"), _userWebserverIp);
    _uiWebserverPort = readNumber(scanner, "yovo_gui.defaultPort", text);
    _uiWebserverSecuredPort = readNumber(scanner, "yovo_gui.securedPort", text);

    _webserver = webserver;
    if (_webserver.isEmpty())
        scanner.getStringValueTrimmed(QStringLiteral("yovo.webserver_type"), _webserver);

    scanner.addFile(QStringLiteral("%1/etc/yovo_database.ini").arg(root));
    scanner.scan();

    scanner.getStringValueTrimmed(QStringLiteral("yovo.database.type"), _dbType);
    scanner.getStringValueTrimmed(QStringLiteral("yovo.database.name"), _dbName);
    scanner.getStringValueTrimmed(QStringLiteral("yovo.database.host_name"), _dbHostName);
    scanner.getStringValueTrimmed(QStringLiteral("yovo.database.user"), _dbUsername);
    scanner.getStringValueTrimmed(QStringLiteral("yovo.database.password"), _dbPassword);
    _dbPort = readNumber(scanner, "yovo.database.port", text);
    _nodeId = readNumber(scanner, "yovo.node_id", text);
}

void YovoServerInfo::print(YDebug::StreamId stream) const
{
    YLOG_DBG1(stream) << "YovoServerInfo:" << yflush;
    YLOG_DBG1(stream) << "root folder      :" << _root << yflush;
    YLOG_DBG1(stream) << "WebServer Type   :" << _webserver << yflush;
    YLOG_DBG1(stream) << "etc folder       :" << _etc << yflush;
    YLOG_DBG1(stream) << "conf.d folder    :" << _confd << yflush;
    YLOG_DBG1(stream) << "sites.d folder   :" << _sited << yflush;
    YLOG_DBG1(stream) << "logs folder      :" << _logs << yflush;
    YLOG_DBG1(stream) << "database folder  :" << _dbDir << yflush;
    YLOG_DBG1(stream) << "tmp folder       :" << _tmp << yflush;
    YLOG_DBG1(stream) << "Apache version   :" << _apacheVersion << yflush;
}
