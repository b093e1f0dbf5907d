#ifndef YOVOLIB_TESTS_HTTP_TEST_SERVERS_H
#define YOVOLIB_TESTS_HTTP_TEST_SERVERS_H

// The servers of the HTTP tests, started by a ctest fixture (http_fixture.py): a private nginx
// with one plain and five TLS ports, each TLS port with its own certificate fault, and the
// Python peer (http_test_server.py) with its silent port.

#include <gtest/gtest.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QString>
#include <QTcpServer>

#include <dirent.h>

namespace yovotest {

/// Local event loops need an application object; one per test process, made at first use.
inline void ensureCoreApplication()
{
    if (QCoreApplication::instance() == nullptr) {
        static int argc = 1;
        static char name[] = "yovo_http_test";
        static char* argv[] = {name, nullptr};
        static QCoreApplication* app = new QCoreApplication(argc, argv);
        Q_UNUSED(app);
    }
}

/// The port of a fixture server: "plain", "selfsigned", "chain", "expired", "wronghost",
/// "unknownca" (nginx), "python", "silent" (the Python peer). 0 when the fixture isn't running.
inline int fixturePort(const char* name)
{
    static QHash<QByteArray, int> ports;
    if (ports.isEmpty()) {
        QFile file(QStringLiteral(YOVO_HTTP_FIXTURE_DIR "/ports.env"));
        if (file.open(QIODevice::ReadOnly)) {
            for (const QByteArray& line : file.readAll().split('\n')) {
                const int equals = line.indexOf('=');
                if (equals > 0)
                    ports.insert(line.left(equals), line.mid(equals + 1).toInt());
            }
        }
    }
    const int port = ports.value(QByteArray(name), 0);
    EXPECT_NE(port, 0) << "the HTTP fixture isn't running: no port " << name << " in "
                       << YOVO_HTTP_FIXTURE_DIR "/ports.env";
    return port;
}

/// "http://127.0.0.1:<port><path>" or its https form.
inline QString fixtureUrl(const char* server, const char* path, bool tls = false)
{
    return QStringLiteral("%1://127.0.0.1:%2%3")
        .arg(QLatin1String(tls ? "https" : "http"))
        .arg(fixturePort(server))
        .arg(QLatin1String(path));
}

/// A loopback port on which nothing listens (bound, then released).
inline int closedPort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    const int port = server.serverPort();
    server.close();
    return port;
}

/// The number of file descriptors this process holds.
inline int openDescriptorCount()
{
    int count = 0;
    if (DIR* dir = opendir("/proc/self/fd")) {
        while (dirent* entry = readdir(dir)) {
            if (entry->d_name[0] != '.')
                ++count;
        }
        closedir(dir);
    }
    return count;
}

} // namespace yovotest

#endif // YOVOLIB_TESTS_HTTP_TEST_SERVERS_H
