// Built against the installed tree only: names every exported class of every family and calls
// one operation of each, so that a header left out of the installation, or a symbol left out of
// the shared library, fails this build.

#include <yovolib/yovolib.h>

#include <QDir>
#include <QFile>
#include <QSqlDatabase>

#include <cstdio>
#include <unistd.h>

namespace {

class Printable : public YPrintable
{
public:
    QString toString() const override { return QStringLiteral("printable"); }
};

class Handler : public YEventHandler
{
public:
    void onEvent(YEvent& event) { seen = event.getEventId(); }
    int seen = 0;
};

class Worker : public YStatefulIterativeThread
{
public:
    Worker()
        : YStatefulIterativeThread("worker")
    {
    }

protected:
    void doIteration() override { stop(); }
};

class Daemon : public YService
{
public:
    Daemon(int argc, char** argv)
        : YService(QStringLiteral("daemon"), argc, argv, true, true, false, false)
    {
    }
    int serviceMain(int, char**) override { return 0; }
};

class Assertions : public YAssertionFailedHandler
{
public:
    void onAssertionFailed() override { }
};

int failures = 0;

void check(bool ok, const char* what)
{
    if (!ok) {
        std::printf("every class: %s failed\n", what);
        ++failures;
    }
}

} // namespace

int main()
{
    const QByteArray name = "yovo_every_class_" + QByteArray::number(getpid());

    // Diagnostics
    YException exception("text", "file.cpp", 1);
    check(QByteArray(exception.what()) == "file.cpp:1 text", "YException");
    Printable printable;
    check(printable.toString() == QLatin1String("printable"), "YPrintable");
    YSerializable serializable;
    check(!serializable.toString().isNull(), "YSerializable");
    static Assertions assertions;
    YAssert::registerAssertionFailedHandler(&assertions);
    YDebug::setDebugLevel(YDebug::STDOUT, YDebug::NOTICE);
    check(YDebug::getDebugLevel(YDebug::STDOUT) == YDebug::NOTICE, "YDebug");
    YCyclicBuffer<YMutex> ring(2);
    check(ring.isEmpty(), "YCyclicBuffer<YMutex>");
    {
        // Constructed, never started: a started rotator must live to the end of the process.
        YPeriodicLogRotator rotator(YDebug::STDOUT, "/tmp", (name + ".log").constData(), 1, 1);
    }
    YMessageFormatter::initFromXml(QStringLiteral("<messages/>"));
    const YMessageFormatter* formatter = YMessageFormatter::getInstance();
    check(formatter->resolveMessageFormat(QStringLiteral("none"))
            == formatter->resolveMessageFormat(QStringLiteral("none")),
        "YMessageFormatter");

    // Threads and events
    YThreadStoragePrivate storage(77);
    storage.setData(&storage);
    check(storage.data() == &storage, "YThreadStoragePrivate");
    YStringClientData clientData(QStringLiteral("data"));
    YClientData* base = &clientData;
    check(base != nullptr, "YClientData, YStringClientData");
    Handler handler;
    YEventHandlerBase* handlerBase = &handler;
    check(handlerBase != nullptr, "YEventHandlerBase");
    YEventDispatcher& dispatcher = YEventDispatcher::get();
    const int id = dispatcher.newId();
    handler.connectEvent(id, &handler, static_cast<YEventCallback>(&Handler::onEvent));
    YEvent event(id);
    dispatcher.processEvent(event);
    check(handler.seen == id, "YEvent, YEventHandler, YEventDispatcher");
    YTraceElement element("main", "every_class.cpp", 1, QStringLiteral("info"));
    check(element.toString().contains(QLatin1String("main")), "YTraceElement");
    Worker worker;
    worker.start();
    worker.join();
    check(worker.getState() == YStatefulIterativeThread::FINISHED, "YStatefulIterativeThread");
    YThread thread("plain");
    thread.start();
    thread.join();

    // Synchronisation
    YMutex mutex;
    mutex.lock();
    mutex.unlock();
    DUMMY_LOCKER dummy;
    dummy.lock();
    dummy.unlock();
    YSemaphoreImpl semaphore(1, (name + "_sem").constData());
    check(semaphore.acquire(1) && semaphore.release(1), "YSemaphoreImpl");
    YSemaphore readers(2, (name + "_readers").constData());
    YOneLockSemaphore gate((name + "_gate").constData());
    {
        YReaderLocker reader(&readers, &gate);
    }
    {
        YWriterLocker writer(&readers, &gate);
    }
    const QByteArray lockFile = "/tmp/" + name + ".lock";
    YFileLockerPrivate fileLocker(lockFile.constData());
    fileLocker.readLock();
    fileLocker.unlock();
    unlink(lockFile.constData());
    YSingleInstanceChecker instance(QString::fromLatin1(name + "_single"));
    check(instance.markAsRunning() && instance.markAsNotRunning(), "YSingleInstanceChecker");
    check(YFileTimeStamp::getFileTimeStamp("/") > 0, "YFileTimeStamp");

    // Shared memory and pipes
    YMMapHash table;
    check(table.create((name + "_table").constData(), 64 * 1024), "YMMapHash::create");
    check(table.insert("key", "value"), "YMMapHash::insert");
    QByteArray value;
    check(table.value("key", value) && value == "value", "YMMapHash::value");
    YMMapAllocator allocator;
    check(allocator.create((name + "_alloc").constData(), 4096), "YMMapAllocator");
    check(BasicAllocator::base() == 0, "BasicAllocator");
    ExternalAllocator::init();
    check(ExternalAllocator::base() != 0, "ExternalAllocator");
    YNamedPipeServer pipeServer((name + "_pipe").constData());
    YNamedPipeClient pipeClient((name + "_pipe").constData());
    YNamedPipe* pipe = &pipeClient;
    check(pipe->getPipePath() != nullptr, "YNamedPipe");
    YNamedPipeConnectionsServer connections((name + "_pipes").constData());
    check(connections.getPipePath() != nullptr, "YNamedPipeConnectionsServer");

    // Configuration
    const QString iniPath = QStringLiteral("/tmp/%1.ini").arg(QString::fromLatin1(name));
    {
        QFile ini(iniPath);
        check(ini.open(QIODevice::WriteOnly) && ini.write("k = 1 ; note\n") > 0, "ini file");
    }
    YPhpIniParser parser;
    parser.addFile(iniPath);
    check(parser.longValue(QStringLiteral("k")) == 1, "YPhpIniParser");
    YScanDir::modifyDirective(YDebug::STDERR, iniPath, QStringLiteral("k"), QStringLiteral("2"));
    YScanDir scanner;
    scanner.addFile(iniPath);
    scanner.scan();
    check(scanner.getInt(QStringLiteral("k"), 0) == 2, "YScanDir");
    IYScanDirValueSorter* sorter = nullptr;
    scanner.setExtensionsWriteSorter(sorter);
    YParametersRegistry::init(QStringLiteral(
        "<deploymentDescriptor><parameters><p name=\"port\" type=\"int\"><defaultValues>"
        "<defaultValue><fixed>80</fixed></defaultValue></defaultValues></p></parameters>"
        "</deploymentDescriptor>"));
    YParametersRegistry* registry = YParametersRegistry::getInstance();
    YIniFileValuesManager values(QStringList(iniPath), registry->getParametersHash());
    registry->addParameterValuesManager(&values);
    check(registry->getType(QStringLiteral("port")) == QVariant::Int
            && values.getValue(QStringLiteral("port")) == QLatin1String("80"),
        "YParametersRegistry, YIniFileValuesManager");
    QFile::remove(iniPath);
    YovoServerInfo serverInfo(QStringLiteral("/nonexistent"), QString());
    check(serverInfo.getTmp() == QLatin1String("/nonexistent/tmp"), "YovoServerInfo");
    // Database
    {
        const QString dbFile = QDir::tempPath() + "/" + QString::fromLatin1(name) + ".db";
        YDb pool;
        check(pool.initMySQL("127.0.0.1", "user", "password", "db", 1, QString()), "YDb");
        YDbConfigReader* catalogue = YDbConfigReader::instance();
        check(catalogue->getStatement("none").isEmpty(), "YDbConfigReader");
        YovoDbSQliteInfo sqliteInfo(QDir::tempPath());
        check(sqliteInfo.dbFileName(YovoDbSQliteInfo::GUI).endsWith("gui.db"), "YovoDbSQliteInfo");
        {
            const QString connectionName = QString::fromLatin1(name) + "_db";
            QSqlDatabase database = QSqlDatabase::addDatabase("QSQLITE", connectionName);
            database.setDatabaseName(dbFile);
            check(database.open(), "QSQLITE");
            YDbRefCount count;
            count.IncRef();
            check(count.GetRefCount() == 1, "YDbRefCount");
            YDbConnectionPtr connection(new YDbConnection(database), true);
            check(connection->isSQlite(), "YDbConnection, YDbConnectionPtr");
            check(YDb::sqlSafeString(connection, "it's", true) == "it''s", "YDb::sqlSafeString");
            YSafeSqlQuery query(connection->getDatabase());
            check(query.exec("select 1"), "YSafeSqlQuery");
            YDbTableCopier copier(YDebug::STDERR);
            check(copier.qtTypeFromSqliteType("integer") == QVariant::Int, "YDbTableCopier");
            YDbMysqlLock lock(YDbConnectionPtr(), "lock", YDebug::STDERR);
            (void)lock;
        }
        QFile::remove(dbFile);
    }

    // Hashes, ciphers, compression
    check(YMD5::hash("") == "D41D8CD98F00B204E9800998ECF8427E", "YMD5");
    YSHA256 sha;
    YHMacProvider* provider = &sha;
    check(provider->hmac("message", "key").size() > 0, "YSHA256, YHMacProvider");
    check(YRc4::selfTest(), "YRc4");
    check(YCompress::zlibUncompress(YCompress::zlibCompress("text", 9)) == "text", "YCompress");

    // JSON
    YJsonValue json;
    YJsonReader jsonReader;
    check(jsonReader.parse(QStringLiteral("{\"a\":[1]}"), &json) == 0, "YJsonReader");
    check(json.itemAt(QStringLiteral("a")).size() == 1, "YJsonValue");
    QString jsonText;
    YJsonWriter(YJSONWRITER_NONE).write(json, jsonText);
    check(jsonText == QStringLiteral("{\n\"a\" : [\n1\n]\n}\n"), "YJsonWriter");
    YJSONRoot jsonRoot(QByteArray("{\"a\":1}"));
    check(jsonRoot.isOk(), "YJSONRoot");
    check(jsonRoot.toElement().namedObject(QStringLiteral("a")).toInt() == 1, "YJSONElement");
    // HTTP and web API (nothing here reaches the network)
    YSimpleURL simpleUrl;
    simpleUrl.setHeader("X-Name", "value");
    check(simpleUrl.getHeaders().size() == 1, "YSimpleURL");
    YSimpleURLRequestEventLoop simpleLoop(nullptr);
    check(simpleLoop.getErrorString().isEmpty(), "YSimpleURLRequestEventLoop");
    YHttpRequest httpRequest;
    YHttpRequestEventLoop httpLoop(nullptr, YDebug::STDERR);
    check(httpLoop.getRedirectUrl().isEmpty(), "YHttpRequest, YHttpRequestEventLoop");
    YHttpReply httpReply(nullptr);
    (void)httpReply;
    check(YWebApi::getUserAgent() == "Yovo_Http_Client/1.10", "YWebApi");
    YWebApiResponse webResponse("<errorMessage>e</errorMessage>");
    check(webResponse.getErrorMessage() == QStringLiteral("e"), "YWebApiResponse");
    // Process host
    char programName[] = "prog";
    char application[] = "-e";
    char* daemonArgs[] = {programName, application, nullptr};
    Daemon daemon(2, daemonArgs);
    check(daemon.isRunningAsTerminalApplication(), "YService");
    check(YGlobals::toNativePath("/a") == "/a", "YGlobals");
    YPidFile pidFile;
    check(!pidFile.isValid(), "YPidFile");
    YDebugConsole console(QStringLiteral("console"));
    check(console.objectName().isEmpty(), "YDebugConsole");
    YTime stopwatch;
    check(stopwatch.stop() == 0, "YTime");
    YFileSystemImpl files;
    check(files.createDir("/tmp"), "YFileSystemImpl");
    check(YTestDir::getInputDirName("/b") == "/b/unittests/input", "YTestDir");
    char options[] = "a";
    check(yovo::getopt(1, daemonArgs, options) == -1 && yovo::optind == 1 && yovo::opterr == 1
            && yovo::optarg == nullptr,
        "getopt");

    // Statistics
    YMovingWindow window(10, 1);
    window << 1.0;
    check(window.total(1) >= 0, "YMovingWindow");

    if (failures == 0)
        std::printf("every class: ok\n");
    return failures == 0 ? 0 : 1;
}
