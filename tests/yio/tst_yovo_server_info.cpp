#include "yovo_server_info.h"

#include "ini_test_util.h"
#include "test_support.h"

#include <gtest/gtest.h>

using yovotest::maskTimestamps;
using yovotest::readFile;
using yovotest::TempDir;
using yovotest::writeFile;

namespace {

void expectFolders(const YovoServerInfo& info, const QString& root)
{
    EXPECT_EQ(root, info.getRoot());
    EXPECT_EQ(root + "/etc", info.getEtc());
    EXPECT_EQ(root + "/etc/cfg", info.getConfd());
    EXPECT_EQ(root + "/etc/sites.d", info.getSited());
    EXPECT_EQ(root + "/data/apps", info.getApps());
    EXPECT_EQ(root + "/logs", info.getLogs());
    EXPECT_EQ(root + "/tmp", info.getTmp());
    EXPECT_EQ(root + "/data/db", info.getDbDir());
}

} // namespace

TEST(YovoServerInfo, DefaultConstructedIsEmpty)
{
    YovoServerInfo info;
    EXPECT_TRUE(info.getRoot().isEmpty());
    EXPECT_TRUE(info.getTmp().isEmpty());
    EXPECT_TRUE(info.getWebserver().isEmpty());
    EXPECT_EQ(2020, info.getApacheVersion());
    EXPECT_EQ(0, info.getUserWebserverPort());
    EXPECT_EQ(0, info.getUiWebserverPort());
    EXPECT_EQ(0, info.getUiWebserverSecuredPort());
    EXPECT_EQ(0, info.getNodeId());
    EXPECT_EQ(0, info.getDbPort());
}

TEST(YovoServerInfo, WithoutFilesFoldersAreSetAndRestEmpty)
{
    TempDir dir;
    YovoServerInfo info(dir.path(), QString());
    expectFolders(info, dir.path());
    EXPECT_TRUE(info.getWebserver().isEmpty());
    EXPECT_TRUE(info.getUserWebserverIp().isEmpty());
    EXPECT_TRUE(info.getDbType().isEmpty());
    EXPECT_TRUE(info.getDbName().isEmpty());
    EXPECT_TRUE(info.getDbHostName().isEmpty());
    EXPECT_TRUE(info.getDbUsername().isEmpty());
    EXPECT_TRUE(info.getDbPassword().isEmpty());
    EXPECT_EQ(0, info.getUserWebserverPort());
    EXPECT_EQ(0, info.getUiWebserverPort());
    EXPECT_EQ(0, info.getUiWebserverSecuredPort());
    EXPECT_EQ(0, info.getNodeId());
    EXPECT_EQ(0, info.getDbPort());
    EXPECT_EQ(2020, info.getApacheVersion());
}

TEST(YovoServerInfo, ReadsAllThreeFilesAndTheGlobalOne)
{
    TempDir dir;
    const QString global = dir.file("elsewhere/global.ini");
    writeFile(dir.file("gui/config/ys_ui.ini"),
        "[gui]\nyovo_gui.defaultPort = \"8080\"\nyovo_gui.securedPort = 8443 ; tls\n");
    writeFile(dir.file("etc/ysd.ini"),
        "yovo_server_daemon.global_directives_ini_file=\"" + global.toUtf8() + "\"\n");
    writeFile(global,
        "yovo.user_webserver_port=81\nyovo.user_webserver_ip=\"10.0.0.1\"\n"
        "yovo.webserver_type=nginx\n");
    writeFile(dir.file("etc/yovo_database.ini"),
        "yovo.database.type=MYSQL\nyovo.database.name=yovo\nyovo.database.host_name=db.local\n"
        "yovo.database.user=\"admin\"\nyovo.database.password=se;cret\n"
        "yovo.database.port=3306\nyovo.node_id=7\n");
    YovoServerInfo info(dir.path(), QString());
    expectFolders(info, dir.path());
    EXPECT_EQ(8080, info.getUiWebserverPort());
    EXPECT_EQ(8443, info.getUiWebserverSecuredPort());
    EXPECT_EQ(81, info.getUserWebserverPort());
    EXPECT_EQ(QStringLiteral("10.0.0.1"), info.getUserWebserverIp());
    EXPECT_EQ(QStringLiteral("nginx"), info.getWebserver());
    EXPECT_EQ(QStringLiteral("MYSQL"), info.getDbType());
    EXPECT_EQ(QStringLiteral("yovo"), info.getDbName());
    EXPECT_EQ(QStringLiteral("db.local"), info.getDbHostName());
    EXPECT_EQ(QStringLiteral("admin"), info.getDbUsername());
    EXPECT_EQ(QStringLiteral("se"), info.getDbPassword());
    EXPECT_EQ(3306, info.getDbPort());
    EXPECT_EQ(7, info.getNodeId());
}

TEST(YovoServerInfo, WebserverArgumentWins)
{
    TempDir dir;
    writeFile(dir.file("etc/ysd.ini"), "yovo.webserver_type=nginx\n");
    YovoServerInfo info(dir.path(), QStringLiteral("apache"));
    EXPECT_EQ(QStringLiteral("apache"), info.getWebserver());
    YovoServerInfo fromFile(dir.path(), QString());
    EXPECT_EQ(QStringLiteral("nginx"), fromFile.getWebserver());
}

TEST(YovoServerInfo, MissingPortCarriesThePreviousNumber)
{
    TempDir dir;
    writeFile(dir.file("etc/ysd.ini"), "yovo.user_webserver_port=80\n");
    YovoServerInfo info(dir.path(), QString());
    EXPECT_EQ(80, info.getUserWebserverPort());
    EXPECT_EQ(80, info.getUiWebserverPort());
    EXPECT_EQ(80, info.getUiWebserverSecuredPort());
    EXPECT_EQ(80, info.getDbPort());
    EXPECT_EQ(80, info.getNodeId());
}

TEST(YovoServerInfo, CarryOverReachesTheDatabaseKeys)
{
    TempDir dir;
    writeFile(dir.file("etc/ysd.ini"), "yovo.user_webserver_port=80\nyovo_gui.securedPort=443\n");
    writeFile(dir.file("etc/yovo_database.ini"), "yovo.database.port=3306\n");
    YovoServerInfo info(dir.path(), QString());
    EXPECT_EQ(80, info.getUiWebserverPort());
    EXPECT_EQ(443, info.getUiWebserverSecuredPort());
    EXPECT_EQ(3306, info.getDbPort());
    EXPECT_EQ(3306, info.getNodeId());
}

TEST(YovoServerInfo, BadNumberGivesZero)
{
    TempDir dir;
    writeFile(
        dir.file("etc/ysd.ini"), "yovo.user_webserver_port=eighty\nyovo_gui.defaultPort=0x50\n");
    YovoServerInfo info(dir.path(), QString());
    EXPECT_EQ(0, info.getUserWebserverPort());
    EXPECT_EQ(0, info.getUiWebserverPort());
}

TEST(YovoServerInfo, FirstFileByPathNameWins)
{
    TempDir dir;
    // "<root>/etc/ysd.ini" sorts before "<root>/gui/config/ys_ui.ini".
    writeFile(dir.file("etc/ysd.ini"), "yovo.user_webserver_ip=from-etc\n");
    writeFile(dir.file("gui/config/ys_ui.ini"), "yovo.user_webserver_ip=from-gui\n");
    YovoServerInfo info(dir.path(), QString());
    EXPECT_EQ(QStringLiteral("from-etc"), info.getUserWebserverIp());
}

TEST(YovoServerInfo, SettersChangeTheFieldOnly)
{
    TempDir dir;
    writeFile(dir.file("etc/yovo_database.ini"), "yovo.database.password=old\n");
    YovoServerInfo info(dir.path(), QString());
    info.setDbPassword(QStringLiteral("new"));
    EXPECT_EQ(QStringLiteral("new"), info.getDbPassword());
    EXPECT_EQ(
        QByteArray("yovo.database.password=old\n"), readFile(dir.file("etc/yovo_database.ini")));
    info.setApacheVersion(2400);
    info.setDbPort(1);
    info.setNodeId(2);
    info.setUserWebserverPort(3);
    info.setUiWebserverPort(4);
    info.setUiWebserverSecuredPort(5);
    info.setUserWebserverIp(QStringLiteral("ip"));
    info.setDbType(QStringLiteral("t"));
    info.setDbName(QStringLiteral("n"));
    info.setDbHostName(QStringLiteral("h"));
    info.setDbUsername(QStringLiteral("u"));
    YovoServerInfo copy(info);
    EXPECT_EQ(2400, copy.getApacheVersion());
    EXPECT_EQ(1, copy.getDbPort());
    EXPECT_EQ(2, copy.getNodeId());
    EXPECT_EQ(3, copy.getUserWebserverPort());
    EXPECT_EQ(4, copy.getUiWebserverPort());
    EXPECT_EQ(5, copy.getUiWebserverSecuredPort());
    EXPECT_EQ(QStringLiteral("ip"), copy.getUserWebserverIp());
    EXPECT_EQ(QStringLiteral("t"), copy.getDbType());
    EXPECT_EQ(QStringLiteral("n"), copy.getDbName());
    EXPECT_EQ(QStringLiteral("h"), copy.getDbHostName());
    EXPECT_EQ(QStringLiteral("u"), copy.getDbUsername());
    YovoServerInfo assigned;
    assigned = copy;
    EXPECT_EQ(QStringLiteral("new"), assigned.getDbPassword());
    expectFolders(assigned, dir.path());
}

TEST(YovoServerInfo, PrintWritesFoldersAtDebugOne)
{
    TempDir dir;
    const QString logPath = dir.file("info.log");
    const YDebug::StreamId stream = YDebug::registerStream("SI", logPath.toLocal8Bit().constData());
    YDebug::setDebugLevel(stream, YDebug::DBG1);
    YovoServerInfo info(QStringLiteral("/opt/yovo"), QStringLiteral("nginx"));
    info.print(stream);
    YDebug::setDebugLevel(stream, YDebug::NOTICE);
    info.print(stream);
    YDebug::unregisterStream(stream);
    EXPECT_EQ(QByteArray("[SI <TS> DBG1] YovoServerInfo: \r\n"
                         "[SI <TS> DBG1] root folder      : /opt/yovo \r\n"
                         "[SI <TS> DBG1] WebServer Type   : nginx \r\n"
                         "[SI <TS> DBG1] etc folder       : /opt/yovo/etc \r\n"
                         "[SI <TS> DBG1] conf.d folder    : /opt/yovo/etc/cfg \r\n"
                         "[SI <TS> DBG1] sites.d folder   : /opt/yovo/etc/sites.d \r\n"
                         "[SI <TS> DBG1] logs folder      : /opt/yovo/logs \r\n"
                         "[SI <TS> DBG1] database folder  : /opt/yovo/data/db \r\n"
                         "[SI <TS> DBG1] tmp folder       : /opt/yovo/tmp \r\n"
                         "[SI <TS> DBG1] Apache version   : 2020 \r\n"),
        maskTimestamps(readFile(logPath)));
}
