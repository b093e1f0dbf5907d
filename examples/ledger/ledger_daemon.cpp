// yledgerd: a message ledger on YovoLib. It takes typed messages over TCP, writes each one to
// SQLite and answers with an acknowledgement only once the row is on disk, so that a client which
// holds an acknowledgement knows its message survives a crash. A client that got no answer sends
// the same message again; the (client, sequence) key makes that retry harmless.
//
//   yledgerd [-e] [--config FILE] [--console]
//     -e         runs it in a terminal; without it, it runs under systemd
//     --console  reads debug-console commands on standard input ("help()" lists them)
//
// Live counters go to a shared table that `yledger status` reads without disturbing the daemon.
#include "ledger_common.h"

#include <yovolib/yovolib.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QSharedPointer>
#include <QTcpSocket>
#include <QTextStream>
#include <QThread>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// Every setting the daemon knows, with the value it takes when the ini file leaves it out.
const char* const DEPLOYMENT_DESCRIPTOR = R"(<?xml version="1.0"?>
<deploymentDescriptor>
  <parameters>
    <parameter name="ledger.port" type="int">
      <defaultValues><defaultValue><fixed>7411</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="ledger.allowed_masks" type="string">
      <defaultValues><defaultValue><fixed>127.0.0.1</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="ledger.log_level" type="int">
      <defaultValues><defaultValue><fixed>2</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="ledger.rotation_mb" type="int">
      <defaultValues><defaultValue><fixed>10</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="ledger.cache_lines" type="int">
      <defaultValues><defaultValue><fixed>200</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="ledger.log_file" type="string">
      <defaultValues><defaultValue><fixed>/var/log/yledgerd/yledgerd.log</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="ledger.database" type="string">
      <defaultValues><defaultValue><fixed>/var/lib/yledgerd/ledger.db</fixed></defaultValue></defaultValues>
    </parameter>
    <parameter name="ledger.shared_table" type="string">
      <defaultValues><defaultValue><fixed>yledgerd</fixed></defaultValue></defaultValues>
    </parameter>
  </parameters>
</deploymentDescriptor>)";

const char* const DEFAULT_CONFIG = "/etc/yledgerd/yledgerd.ini";

// The statements the daemon runs, by name.
const char* const STATEMENTS = R"xml(<statements>
  <statement name="insert" sql="insert or ignore into messages (client, seq, type, payload, received) values (:client, :seq, :type, :payload, :received)"/>
</statements>)xml";

const char* const SCHEMA = "create table if not exists messages ("
                           "id integer primary key, client text not null, seq integer not null, "
                           "type text not null, payload text not null, received text not null, "
                           "unique (client, seq))";

// The table is append-only storage: a new status record is written whole and published at once,
// and its old space is reclaimed only by emptying the table. This much room holds many thousand
// records between two such resets.
const unsigned int SHARED_TABLE_BYTES = 4 * 1024 * 1024;

// An ini value may be written in quotes; the daemon wants the text inside them.
QString unquoted(QString value)
{
    value = value.trimmed();
    if (value.size() >= 2 && value.startsWith(QLatin1Char('"')) && value.endsWith(QLatin1Char('"')))
        value = value.mid(1, value.size() - 2);
    return value;
}

// The time a message arrives, as Qt's ISO form with milliseconds writes it in UTC
// ("2026-01-31T12:00:00.000Z"), without a QDateTime and its formatter for every message.
QString receivedNow()
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc;
    gmtime_r(&now.tv_sec, &utc);
    char text[64];
    std::snprintf(text, sizeof(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
        utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
        int(now.tv_nsec / 1000000));
    return QString::fromLatin1(text);
}

class SqliteInitData : public YDbInitData
{
public:
    explicit SqliteInitData(const QString& file)
        : _file(file)
        , _statements(QString::fromLatin1(STATEMENTS))
    {
    }
    QString getUserName() override { return QString(); }
    QString getDbType() override { return QStringLiteral("QSQLITE"); }
    QString getDbName() override { return _file; }
    QString getPassword() override { return QString(); }
    // A reader such as `sqlite3` on the same file may hold it for a moment.
    QString getConnectOpts() override { return QStringLiteral("QSQLITE_BUSY_TIMEOUT=5000"); }
    QString getHostName() override { return QString(); }
    unsigned int getPort() override { return 0; }
    QSharedPointer<QTextStream> getStatements() override
    {
        return QSharedPointer<QTextStream>::create(&_statements, QIODevice::ReadOnly);
    }

private:
    QString _file;
    QString _statements;
};

struct Settings
{
    unsigned int port = 0;
    QStringList allowedMasks;
    int logLevel = 0;
    int rotationMegabytes = 0;
    long cacheLines = 0;
    QString logFile;
    QString database;
    QString sharedTable;
};

// The library's verifier lets every loopback address through whatever the masks say. This daemon
// holds loopback to its masks too: an operator who leaves 127.0.0.1 out of ledger.allowed_masks
// means that local programs may not send messages either.
class LedgerVerifier : public YIpVerifier
{
public:
    explicit LedgerVerifier(const QStringList& masks)
        : YIpVerifier(masks)
    {
        // The masks that the verifier took (it skips malformed ones with a warning) are the
        // ones its configuration text lists.
        const QString config = getConfigString();
        const QString listed = QStringLiteral(
            "the following IPs/masks are allowed to communicate with this machine:");
        _everyone = config.startsWith(QLatin1String("joker (*)"));
        if (config.startsWith(listed))
            _masks = config.mid(listed.size()).split(QLatin1Char(','), Qt::SkipEmptyParts);
    }

    /// `address` in network byte order, as the verifier takes it. Asked from the server's
    /// thread only.
    bool allows(unsigned long address)
    {
        if ((address & 0xFF) != 0x7F)
            return verify(address);
        if (_everyone)
            return true;
        // Matching a mask is text work, worth doing once per address as the verifier does.
        const auto known = _loopback.constFind(address);
        if (known != _loopback.constEnd())
            return known.value();
        bool allowed = false;
        for (const QString& mask : qAsConst(_masks))
            allowed = allowed || matchMaskNoLock(address, mask);
        _loopback.insert(address, allowed);
        return allowed;
    }

private:
    QStringList _masks;
    bool _everyone = false;
    QHash<unsigned long, bool> _loopback;
};

class LedgerDaemon;

// Decides on each connection as the kernel hands it over, before a byte of it is read: the
// library's server builds a verifier of its own but serves every address. A refused
// connection is closed at once and never becomes pending, so the server's loop finds nothing to
// take and waits for the next one.
class LedgerServer : public YMessageSimpleServer
{
public:
    LedgerServer(unsigned int port, const QStringList& masks, LedgerDaemon& daemon)
        : YMessageSimpleServer(port, masks)
        , _daemon(daemon)
    {
    }

protected:
    void incomingConnection(qintptr descriptor) override;

private:
    LedgerDaemon& _daemon;
};

// Runs on the server's thread: one message per connection, stored before it is answered.
class LedgerHandler : public YMessageHandler
{
public:
    explicit LedgerHandler(LedgerDaemon& daemon)
        : _daemon(daemon)
    {
    }
    YMessage* handleMessage(YMessage* message) override;

private:
    LedgerDaemon& _daemon;
};

class LedgerDaemon : public YService
{
public:
    LedgerDaemon(int argc, char** argv)
        : YService(QStringLiteral("yledgerd"), argc, argv, true, false, true, true)
    {
    }

    bool serviceInit(int argc, char** argv) override;
    int serviceMain(int argc, char** argv) override;

    // Only asks the loops to end: serviceMain stops the server and leaves on its own, so that
    // nothing is torn down under a request that is being stored.
    void serviceShutdown() override { _stop = true; }

    YMessage* handle(const YMessage& request);

    /// Whether the peer of a connection that was just accepted may send messages; logs and
    /// counts a refusal. Runs on the server's thread.
    bool admits(int descriptor);

    /// The record that the shared table gets, made now.
    QByteArray statusRecord();

private:
    bool readSettings(const QString& configFile);
    bool openDatabase();
    bool openSharedTable();
    void publishStatus();
    YMessage* answer(const QString& type, int number, const QString& text);

    Settings _settings;
    YDebug::StreamId _log = YDebug::STDERR;
    std::unique_ptr<YIniFileValuesManager> _values;
    std::unique_ptr<SqliteInitData> _dbData;
    std::unique_ptr<YDb> _db;
    // The server thread's connection and its insert, prepared once: preparing the statement
    // anew cost a third of a request's work.
    YDbConnectionPtr _insertConnection;
    std::unique_ptr<YSafeSqlQuery> _insert;
    std::unique_ptr<LedgerVerifier> _verifier;
    YMMapHash _table;
    std::atomic<bool> _stop {false};
    std::atomic<unsigned int> _listeningPort {0};
    bool _console = false;

    // Counters and the moving window belong to whichever thread holds this lock.
    std::mutex _countersLock;
    quint64 _stored = 0;
    quint64 _duplicates = 0;
    quint64 _errors = 0;
    quint64 _requests = 0;
    quint64 _refused = 0;
    YMovingWindow _perSecond {60, 1};
    qint64 _startedAt = QDateTime::currentSecsSinceEpoch();
};

bool LedgerDaemon::readSettings(const QString& configFile)
{
    try {
        YParametersRegistry::init(QString::fromLatin1(DEPLOYMENT_DESCRIPTOR));
        YParametersRegistry* registry = YParametersRegistry::getInstance();
        _values = std::make_unique<YIniFileValuesManager>(
            QStringList(configFile), registry->getParametersHash());
        registry->addParameterValuesManager(_values.get());
        auto value = [this](const char* name) { return unquoted(_values->getValue(name)); };
        bool portOk = false;
        const int port = value("ledger.port").toInt(&portOk);
        if (!portOk || port < 0 || port > 65535) {
            std::fprintf(stderr, "yledgerd: ledger.port is not a port number: %s\n",
                qPrintable(value("ledger.port")));
            return false;
        }
        _settings.port = unsigned(port);
        _settings.allowedMasks
            = value("ledger.allowed_masks").split(QLatin1Char(','), Qt::SkipEmptyParts);
        for (QString& mask : _settings.allowedMasks)
            mask = mask.trimmed();
        _settings.logLevel = value("ledger.log_level").toInt();
        _settings.rotationMegabytes = value("ledger.rotation_mb").toInt();
        _settings.cacheLines = value("ledger.cache_lines").toLong();
        _settings.logFile = value("ledger.log_file");
        _settings.database = value("ledger.database");
        _settings.sharedTable = value("ledger.shared_table");
    } catch (const YException& e) {
        std::fprintf(stderr, "yledgerd: can't read the settings of %s: %s\n",
            qPrintable(configFile), e.what());
        return false;
    }
    return true;
}

bool LedgerDaemon::openDatabase()
{
    QDir().mkpath(QFileInfo(_settings.database).absolutePath());
    _dbData = std::make_unique<SqliteInitData>(_settings.database);
    _db = std::make_unique<YDb>(_dbData.get());
    if (!_db->isInitialized()) {
        YLOG_ERROR(_log) << "can't set up the database" << _settings.database << yflush;
        return false;
    }
    try {
        YDbConnectionPtr connection = _db->getConnection();
        YSafeSqlQuery query(connection->getDatabase());
        // The acknowledgement promises the row survives a crash of the process and of the
        // machine: every commit reaches the disk before it returns.
        query.exec(QStringLiteral("pragma journal_mode = wal"));
        query.exec(QStringLiteral("pragma synchronous = full"));
        query.exec(QString::fromLatin1(SCHEMA));
    } catch (const YException& e) {
        YLOG_ERROR(_log) << "can't open the database" << _settings.database << ":" << e.what()
                         << yflush;
        return false;
    }
    return true;
}

bool LedgerDaemon::openSharedTable()
{
    const QByteArray name = _settings.sharedTable.toLocal8Bit();
    if (!_table.create(name.constData(), SHARED_TABLE_BYTES)) {
        YLOG_ERROR(_log) << "can't create the shared table" << _settings.sharedTable << ":"
                         << _table.errorString() << "(is another yledgerd running?)" << yflush;
        return false;
    }
    publishStatus();
    return true;
}

bool LedgerDaemon::serviceInit(int argc, char** argv)
{
    QString configFile = QString::fromLatin1(DEFAULT_CONFIG);
    for (int i = 1; i < argc; ++i) {
        const QString argument = QString::fromLocal8Bit(argv[i]);
        if (argument == QLatin1String("--config") && i + 1 < argc) {
            configFile = QString::fromLocal8Bit(argv[++i]);
        } else if (argument == QLatin1String("--console")) {
            _console = true;
        } else {
            std::fprintf(stderr,
                "yledgerd: unknown argument: %s\nusage: yledgerd [-e] [--config FILE]\n", argv[i]);
            return false;
        }
    }
    if (!readSettings(configFile))
        return false;

    QDir().mkpath(QFileInfo(_settings.logFile).absolutePath());
    _log = YDebug::registerStream("LEDGER", _settings.logFile.toLocal8Bit().constData());
    YDebug::setDebugLevel(_log, _settings.logLevel);
    YDebug::setRotationSize(_log, _settings.rotationMegabytes);
    // Lines below the level are kept in memory and written out with the next error, so that
    // the log shows what led up to it.
    YDebug::setCacheLogSize(_log, _settings.cacheLines);
    YDebug::setCacheLogifEnabledValue(_log, _settings.cacheLines > 0);
    YDebug::registerCrashHandler(_log);
    YDb::YDbLog = _log;

    _verifier = std::make_unique<LedgerVerifier>(_settings.allowedMasks);
    YLOG_NOTICE(_log) << "starting, pid" << int(getpid()) << "config" << configFile << "database"
                      << _settings.database << "allowed" << _verifier->getConfigString() << yflush;
    return openDatabase() && openSharedTable();
}

YMessage* LedgerDaemon::answer(const QString& type, int number, const QString& text)
{
    YMessage* response = new YMessage;
    response->setStringType(type);
    response->setIntData(number);
    response->setStringData(text);
    return response;
}

YMessage* LedgerDaemon::handle(const YMessage& request)
{
    const QString type = request.getStringType();
    {
        std::lock_guard<std::mutex> lock(_countersLock);
        ++_requests;
        _perSecond << 1.0;
    }
    if (type == QLatin1String(LEDGER_PING)) {
        std::lock_guard<std::mutex> lock(_countersLock);
        return answer(
            QStringLiteral(LEDGER_PONG), int(_stored), QStringLiteral("yledgerd %1").arg(getpid()));
    }
    if (type != QLatin1String(LEDGER_STORE)) {
        YLOG_WARNING(_log) << "unknown request type" << type << yflush;
        std::lock_guard<std::mutex> lock(_countersLock);
        ++_errors;
        return answer(
            QStringLiteral(LEDGER_ERROR), 0, QStringLiteral("unknown request type: ") + type);
    }
    // The text is "<client>\t<payload>": the client's name and its sequence number (intData)
    // identify the message across retries.
    const QString data = request.getStringData();
    const int tab = data.indexOf(QLatin1Char('\t'));
    const QString client = tab < 0 ? data : data.left(tab);
    const QString payload = tab < 0 ? QString() : data.mid(tab + 1);
    if (client.isEmpty()) {
        std::lock_guard<std::mutex> lock(_countersLock);
        ++_errors;
        return answer(QStringLiteral(LEDGER_ERROR), request.getIntData(),
            QStringLiteral("a stored message needs a client name"));
    }
    bool inserted = false;
    try {
        if (!_insert) {
            _insertConnection = _db->getConnection();
            _insert = std::make_unique<YSafeSqlQuery>(
                _insertConnection->createQuery(QStringLiteral("insert")));
        }
        // By position, in the order of the statement's placeholders.
        _insert->bindValue(0, client);
        _insert->bindValue(1, request.getIntData());
        _insert->bindValue(2, type);
        _insert->bindValue(3, payload);
        _insert->bindValue(4, receivedNow());
        _insert->exec(_log, 20);
        inserted = _insert->numRowsAffected() == 1;
    } catch (const YException& e) {
        // The next message prepares the statement again, on whatever connection the pool has.
        _insert.reset();
        _insertConnection = YDbConnectionPtr();
        // No acknowledgement: the client keeps the message and sends it again.
        YLOG_ERROR(_log) << "can't store" << client << request.getIntData() << ":" << e.what()
                         << yflush;
        std::lock_guard<std::mutex> lock(_countersLock);
        ++_errors;
        return answer(QStringLiteral(LEDGER_ERROR), request.getIntData(),
            QStringLiteral("not stored: ") + QString::fromLocal8Bit(e.what()));
    }
    YLOG_DBG1(_log) << (inserted ? "stored" : "duplicate") << client << request.getIntData()
                    << payload << yflush;
    std::lock_guard<std::mutex> lock(_countersLock);
    ++(inserted ? _stored : _duplicates);
    return answer(QStringLiteral(LEDGER_ACK), request.getIntData(),
        inserted ? QStringLiteral(LEDGER_STORED) : QStringLiteral(LEDGER_DUPLICATE));
}

bool LedgerDaemon::admits(int descriptor)
{
    struct sockaddr_storage peer;
    std::memset(&peer, 0, sizeof(peer));
    socklen_t length = sizeof(peer);
    if (getpeername(descriptor, reinterpret_cast<struct sockaddr*>(&peer), &length) != 0) {
        // The client is gone already (it reset the connection); there is nobody to serve.
        const int error = errno;
        YLOG_WARNING(_log) << "closed a connection whose peer address can't be read:"
                           << std::strerror(error) << yflush;
        std::lock_guard<std::mutex> lock(_countersLock);
        ++_refused;
        return false;
    }
    // The server listens on both protocols: an IPv4 client shows as an IPv4-mapped address.
    bool ipv4 = false;
    struct in_addr address4;
    char shown[INET6_ADDRSTRLEN] = "?";
    if (peer.ss_family == AF_INET) {
        address4 = reinterpret_cast<const struct sockaddr_in*>(&peer)->sin_addr;
        ipv4 = true;
    } else if (peer.ss_family == AF_INET6) {
        const struct in6_addr& address6
            = reinterpret_cast<const struct sockaddr_in6*>(&peer)->sin6_addr;
        if (IN6_IS_ADDR_V4MAPPED(&address6)) {
            std::memcpy(&address4, &address6.s6_addr[12], sizeof(address4));
            ipv4 = true;
        } else {
            inet_ntop(AF_INET6, &address6, shown, sizeof(shown));
        }
    }
    if (ipv4) {
        inet_ntop(AF_INET, &address4, shown, sizeof(shown));
        if (_verifier->allows(static_cast<unsigned long>(address4.s_addr)))
            return true;
    }
    if (_stop) {
        // The connection that wakes the server to stop it comes from this host, which the
        // masks may leave out: it is no client, and no refusal either.
        YLOG_DBG1(_log) << "closed a connection from" << shown << "while stopping" << yflush;
        return false;
    }
    YLOG_WARNING(_log) << QStringLiteral("refused a connection from %1: %2")
                              .arg(QString::fromLatin1(shown),
                                  ipv4 ? QStringLiteral("not in ledger.allowed_masks")
                                       : QStringLiteral("ledger.allowed_masks holds IPv4 "
                                                        "addresses only"))
                       << yflush;
    std::lock_guard<std::mutex> lock(_countersLock);
    ++_refused;
    return false;
}

void LedgerServer::incomingConnection(qintptr descriptor)
{
    if (_daemon.admits(int(descriptor)))
        YMessageSimpleServer::incomingConnection(descriptor);
    else
        ::close(int(descriptor));
}

// The developer's view into a running daemon, on standard input and output.
class LedgerConsole : public YDebugConsole
{
    Q_OBJECT
public:
    explicit LedgerConsole(LedgerDaemon& daemon)
        : YDebugConsole(QStringLiteral("yledgerd"))
        , _daemon(daemon)
    {
    }

protected slots:
    /// The counters as the shared table has them.
    QString counters() { return QString::fromLatin1(_daemon.statusRecord()); }
#ifdef YLEDGER_CRASH_SLOT
    /// Only in the test build: a fault, to show that the crash handler leaves a dump.
    // Kept out of line, so that the dump shows the command by name.
    Q_NEVER_INLINE void crash()
    {
        static int* volatile nowhere = nullptr;
        *nowhere = 1;
    }
#endif

private:
    LedgerDaemon& _daemon;
};

YMessage* LedgerHandler::handleMessage(YMessage* message)
{
    return _daemon.handle(*message);
}

QByteArray LedgerDaemon::statusRecord()
{
    std::lock_guard<std::mutex> lock(_countersLock);
    _perSecond.trimWindow();
    return ledgerStatusRecord(getpid(), _listeningPort.load(), _startedAt, _stored, _duplicates,
        _errors, _requests, qint64(_perSecond.total(-1)), _refused);
}

void LedgerDaemon::publishStatus()
{
    const QByteArray record = statusRecord();
    const YMMapAllocator& space = _table.getAllocator();
    // A reader that looks while the table is emptied finds no record and looks again.
    if (space.memUsage() + 4096 > space.memSize())
        _table.clear();
    if (!_table.atomicInsert(LEDGER_STATUS_KEY, record))
        YLOG_WARNING(_log) << "can't publish the status:" << _table.errorString() << yflush;
}

int LedgerDaemon::serviceMain(int, char**)
{
    std::unique_ptr<YMessageSimpleServer> server;
    try {
        server = std::make_unique<LedgerServer>(_settings.port, _settings.allowedMasks, *this);
    } catch (const YException& e) {
        YLOG_ERROR(_log) << "can't listen on port" << _settings.port << ":" << e.what() << yflush;
        std::fprintf(stderr, "yledgerd: can't listen on port %u: %s\n", _settings.port, e.what());
        return 1;
    }
    _listeningPort = server->serverPort();
    LedgerHandler handler(*this);
    server->registerMessageHandler(QStringLiteral("YMessage"), &handler);
    // The server's blocking loop has a thread of its own, so that this one can keep the
    // watchdog fed and the counters fresh whatever the clients do.
    server->moveToThread(nullptr);
    std::thread serving([&server] {
        server->moveToThread(QThread::currentThread());
        server->start();
    });
    YLOG_NOTICE(_log) << "listening on port" << _listeningPort.load() << yflush;
    svcDebug(QStringLiteral("listening on port %1").arg(_listeningPort.load()));
    if (_console) {
        // The console blocks on standard input for as long as the process lives; it is left
        // behind at the end rather than waited for.
        std::thread([this] {
            LedgerConsole console(*this);
            console.run();
        }).detach();
    }

    while (!_stop) {
        reportAlive();
        publishStatus();
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }

    // The loop tests its flag only after a request: a ping wakes it. The answer is awaited for
    // a short while only, as the loop may have ended before it took the ping.
    server->stop();
    {
        QTcpSocket wake;
        wake.connectToHost(QStringLiteral("127.0.0.1"), quint16(_listeningPort.load()));
        if (wake.waitForConnected(5000)) {
            QDataStream stream(&wake);
            stream.setVersion(QDataStream::Qt_4_8);
            YMessage ping;
            ping.setStringType(QStringLiteral(LEDGER_PING));
            stream << &ping;
            wake.flush();
            wake.waitForReadyRead(2000);
        } else {
            YLOG_WARNING(_log) << "can't wake the server to stop it:" << wake.errorString()
                               << yflush;
        }
        wake.abort();
    }
    serving.join();
    _insert.reset();
    _insertConnection = YDbConnectionPtr();
    server->deregisterMessageHandler(QStringLiteral("YMessage"));
    publishStatus();
    YLOG_NOTICE(_log) << "stopped after" << _stored << "messages" << yflush;
    svcDebug(QStringLiteral("stopped"));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    LedgerDaemon daemon(argc, argv);
    return daemon.run() ? 0 : 1;
}

#include "ledger_daemon.moc"
