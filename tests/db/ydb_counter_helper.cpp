// The other process of the locked-SQLite test: increments one counter the given number of times,
// each increment a transaction of its own, through the retrying statement and commit.
#include "ydb.h"
#include "ydebug.h"
#include "yexception.h"

#include <QFile>
#include <QSharedPointer>
#include <QString>
#include <QTextStream>
#include <QThread>

#include <cstdio>
#include <cstdlib>

namespace {

class CounterInitData : public YDbInitData
{
public:
    explicit CounterInitData(const QString& file)
        : _file(file)
        , _xml(QStringLiteral("<s><statement name=\"increment\" "
                              "sql=\"update counter set value = value + 1\"/></s>"))
    {
    }
    QString getUserName() override { return QString(); }
    QString getDbType() override { return QStringLiteral("QSQLITE"); }
    QString getDbName() override { return _file; }
    QString getPassword() override { return QString(); }
    // No busy wait inside SQLite: every collision reaches the library's own retries.
    QString getConnectOpts() override { return QStringLiteral("QSQLITE_BUSY_TIMEOUT=0"); }
    QString getHostName() override { return QString(); }
    unsigned int getPort() override { return 0; }
    QSharedPointer<QTextStream> getStatements() override
    {
        return QSharedPointer<QTextStream>::create(&_xml, QIODevice::ReadOnly);
    }

private:
    QString _file;
    QString _xml;
};

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        fprintf(stderr, "usage: %s <database file> <count> <start file>\n", argv[0]);
        return 2;
    }
    const int count = atoi(argv[2]);
    try {
        CounterInitData data(QString::fromLocal8Bit(argv[1]));
        // The retries show on standard error, where the test counts them.
        YDebug::setDebugLevel(YDebug::STDERR, YDebug::DBG3);
        YDb pool(&data);
        YDbConnectionPtr connection = pool.getConnection();
        // The other process may already be writing (it can see the start file before this one is
        // set up), and this statement has no retries of its own: it gets a few here.
        for (int attempt = 0;; ++attempt) {
            try {
                YSafeSqlQuery(connection->getDatabase())
                    .exec(QStringLiteral("pragma synchronous = off"));
                break;
            } catch (const YException&) {
                if (attempt == 200)
                    throw;
                QThread::msleep(10);
            }
        }
        // Both processes begin together, once the test has made the start file.
        while (!QFile::exists(QString::fromLocal8Bit(argv[3])))
            QThread::usleep(500);
        for (int i = 0; i < count; ++i) {
            connection->beginTransaction();
            YSafeSqlQuery increment = connection->createQuery(QStringLiteral("increment"));
            increment.exec(YDebug::STDERR, 1000);
            connection->commitWithRetries(1000);
        }
    } catch (const YException& e) {
        fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    return 0;
}
