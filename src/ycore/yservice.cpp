// Operating-system independent: the manager, the signals and the debug log are reached
// through yservice_posix.cpp.
#include "yservice.h"

#include "yservice_p.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

YService* YService::_instance = nullptr;
YServiceStatus YService::_serviceStatus = {0, 0, 0, 0, 0, 0, 0};
bool YService::_statusHandle = false;

namespace {

const unsigned long SERVICE_WIN32 = 48;
const unsigned long SERVICE_STOPPED = 1;
const unsigned long SERVICE_START_PENDING = 2;
const unsigned long SERVICE_RUNNING = 4;
const unsigned long SERVICE_PAUSED = 7;
const unsigned long SERVICE_ACCEPT_STOP = 1;
const unsigned long SERVICE_ACCEPT_PAUSE_CONTINUE = 2;

// Pings the manager's watchdog from a thread of its own for as long as the daemon reports
// that its main loop turns. Made at first use and never destroyed, so that an exit() from
// any thread finds nothing to tear down.
class Watchdog
{
public:
    static Watchdog& get()
    {
        static Watchdog* watchdog = new Watchdog;
        return *watchdog;
    }

    std::atomic<qint64> lastAlive {0};

    void start(qint64 periodMicroseconds)
    {
        std::lock_guard<std::mutex> lock(_mutex);
        if (_thread.joinable() || periodMicroseconds <= 0)
            return;
        _stop = false;
        lastAlive = YServiceSys::monotonicMicroseconds();
        _thread = std::thread([this, periodMicroseconds] { loop(periodMicroseconds); });
    }

    void stop()
    {
        std::thread thread;
        {
            std::lock_guard<std::mutex> lock(_mutex);
            _stop = true;
            thread.swap(_thread);
        }
        _wake.notify_all();
        if (thread.joinable() && thread.get_id() != std::this_thread::get_id())
            thread.join();
        else if (thread.joinable())
            thread.detach();
    }

private:
    void loop(qint64 period)
    {
        // Half the period between pings, as the manager recommends, so that one late ping
        // is no reason to kill the daemon.
        const std::chrono::microseconds interval(period / 2);
        std::unique_lock<std::mutex> lock(_mutex);
        while (!_wake.wait_for(lock, interval, [this] { return _stop; })) {
            if (YServiceSys::monotonicMicroseconds() - lastAlive.load() < period)
                YServiceSys::notify("WATCHDOG=1");
        }
    }

    std::mutex _mutex;
    std::condition_variable _wake;
    std::thread _thread;
    bool _stop = false;
};

// Held for the whole of a control request, and by the constructor and destructor while they set
// the instance: a request that arrives as the daemon's object goes away either ends before the
// object does or finds no object. Recursive, since a request may end in exit(), whose clean-up
// may destroy a service object on the same thread.
std::recursive_mutex& instanceLock()
{
    static std::recursive_mutex* lock = new std::recursive_mutex;
    return *lock;
}

// While the service starts, what it is doing is also its status text at the manager.
void startStep(const char* text)
{
    YService::svcDebug(QString::fromLatin1(text));
    YServiceSys::notify(QByteArray("STATUS=") + text);
}

} // namespace

YService::YService(QString name, int argc, char** argv, bool canStop, bool canPauseContinue,
    bool handleSigTerm, bool handleSigInt)
    : YEventHandler(nullptr)
    , _name(name)
    , _argc(0)
    , _canStop(canStop)
    , _canPauseContinue(canPauseContinue)
    , _runAsApplication(false)
    , _handleSigTerm(handleSigTerm)
    , _handleSigInt(handleSigInt)
{
    {
        std::lock_guard<std::recursive_mutex> guard(instanceLock());
        _instance = this;
    }
    for (int i = 0; i < argc && argv; ++i) {
        if (!argv[i])
            continue;
        if (QString::fromLocal8Bit(argv[i]).toLower().trimmed() == QLatin1String("-e")) {
            _runAsApplication = true;
            continue;
        }
        _argv.append(strdup(argv[i]));
        ++_argc;
    }
    if (_handleSigTerm && !YServiceSys::relaySignal(YServiceSys::SignalTerminate, dispatchSignal))
        fprintf(stderr, "can't install signal handler for SIGTERM\n");
    if (_handleSigInt && !YServiceSys::relaySignal(YServiceSys::SignalInterrupt, dispatchSignal))
        fprintf(stderr, "can't install signal handler for SIGINT\n");
}

YService::~YService()
{
    {
        // A signal that arrives later must not reach a destroyed object.
        std::lock_guard<std::recursive_mutex> guard(instanceLock());
        if (_instance == this)
            _instance = nullptr;
    }
    for (char* argument : _argv)
        free(argument);
}

bool YService::serviceInit(int, char**)
{
    return true;
}

void YService::serviceShutdown()
{
    if (_runAsApplication)
        exit(0);
}

bool YService::servicePause()
{
    return false;
}

bool YService::serviceResume()
{
    return false;
}

void YService::serviceSigTerm()
{
    serviceShutdown();
}

void YService::serviceSigInt()
{
    serviceShutdown();
}

bool YService::run()
{
    return _runAsApplication ? runAsApplication() : runAsService();
}

YService* YService::getInstance()
{
    Q_ASSERT(_instance);
    return _instance;
}

void YService::reportAlive()
{
    Watchdog::get().lastAlive = YServiceSys::monotonicMicroseconds();
}

void YService::svcDebug(const QString& text)
{
    const QString name = _instance ? _instance->_name : QString();
    const QByteArray line = QStringLiteral("%1: %2").arg(name, text).toLatin1();
    YServiceSys::debugOutput(line);
    printf("%s\n", line.constData());
    // A daemon's output usually goes to a pipe or a journal: each line leaves at once.
    fflush(stdout);
}

bool YService::runAsApplication()
{
    svcDebug(QStringLiteral("service is starting (as application) ..."));
    if (!serviceInit(_argc, _argv.data()))
        return false;
    serviceMain(_argc, _argv.data());
    return true;
}

bool YService::runAsService()
{
    // kept: service-is-staring
    svcDebug(QStringLiteral("service is staring..."));
    svcDebug(QStringLiteral("calling dispatcher..."));
    // The manager is a socket to report to, not a dispatcher to call: with none there, the
    // call fails as a dispatcher does when a program is started from a terminal.
    if (!YServiceSys::managerPresent()) {
        svcDebug(QStringLiteral("StartServiceCtrlDispatcher failed (%1)")
                     .arg(YServiceSys::noManagerError()));
        return false;
    }
    _startServiceFunc_(0, nullptr);
    return true;
}

void YService::_startServiceFunc_(unsigned long, char**)
{
    YService* service = _instance;
    if (!service)
        return;
    _serviceStatus.serviceType = SERVICE_WIN32;
    _serviceStatus.currentState = SERVICE_START_PENDING;
    _serviceStatus.controlsAccepted = (service->_canStop ? SERVICE_ACCEPT_STOP : 0)
        | (service->_canPauseContinue ? SERVICE_ACCEPT_PAUSE_CONTINUE : 0);
    _serviceStatus.win32ExitCode = 0;
    _serviceStatus.serviceSpecificExitCode = 0;
    _serviceStatus.checkPoint = 0;
    _serviceStatus.waitHint = 0;

    startStep("Registering service handler...");
    // Control requests arrive as signals. A stop that isn't accepted keeps the signal's default
    // action, so that the manager can still end the daemon; pause and continue are always
    // caught, as their default action would end it for nothing.
    bool registered = !service->_canStop
        || YServiceSys::relaySignal(YServiceSys::SignalTerminate, dispatchSignal);
    registered = registered && YServiceSys::relaySignal(YServiceSys::SignalPause, dispatchSignal)
        && YServiceSys::relaySignal(YServiceSys::SignalContinue, dispatchSignal);
    if (!registered) {
        svcDebug(
            QStringLiteral("RegisterServiceCtrlHandler failed %1").arg(YServiceSys::lastError()));
        return;
    }
    _statusHandle = true;

    startStep("Initializing service...");
    if (!service->serviceInit(service->_argc, service->_argv.data())) {
        svcDebug(QStringLiteral("Initialization failed..."));
        _serviceStatus.currentState = SERVICE_STOPPED;
        _serviceStatus.checkPoint = 0;
        _serviceStatus.waitHint = 0;
        reportStatus();
        return;
    }
    _serviceStatus.currentState = SERVICE_RUNNING;
    _serviceStatus.checkPoint = 0;
    _serviceStatus.waitHint = 0;
    if (!reportStatus())
        svcDebug(QStringLiteral("SetServiceStatus error %1").arg(errno));
    Watchdog::get().start(YServiceSys::watchdogMicroseconds());

    svcDebug(QStringLiteral("Running service's main()..."));
    service->serviceMain(service->_argc, service->_argv.data());
    Watchdog::get().stop();
}

void YService::_controlHandler_(unsigned long opcode)
{
    YService* service = _instance;
    if (!service)
        return;
    switch (opcode) {
    case 1:
        _serviceStatus.win32ExitCode = 0;
        _serviceStatus.currentState = SERVICE_STOPPED;
        _serviceStatus.checkPoint = 0;
        _serviceStatus.waitHint = 0;
        reportStatus();
        Watchdog::get().stop();
        // kept: stopped-before-shutdown
        service->serviceShutdown();
        svcDebug(QStringLiteral("Service stopped"));
        return;
    case 2:
        if (service->servicePause()) {
            _serviceStatus.currentState = SERVICE_PAUSED;
            reportStatus();
            svcDebug(QStringLiteral("Service paused"));
        }
        break;
    case 3:
        if (service->serviceResume()) {
            _serviceStatus.currentState = SERVICE_RUNNING;
            reportStatus();
            svcDebug(QStringLiteral("Service resumed"));
        }
        break;
    case 4:
        break;
    default:
        svcDebug(QStringLiteral("Unrecognized opcode %1").arg(opcode));
        break;
    }
    // kept: status-reported-twice
    if (!reportStatus())
        svcDebug(QStringLiteral("SetServiceStatus error %1").arg(errno));
}

void YService::dispatchSignal(int which)
{
    std::lock_guard<std::recursive_mutex> guard(instanceLock());
    YService* service = _instance;
    if (!service)
        return;
    switch (which) {
    case YServiceSys::SignalTerminate:
        // Under the manager, with stop accepted, SIGTERM is its stop request.
        if (_statusHandle && service->_canStop)
            _controlHandler_(1);
        else if (service->_handleSigTerm)
            service->serviceSigTerm();
        break;
    case YServiceSys::SignalInterrupt:
        if (service->_handleSigInt)
            service->serviceSigInt();
        break;
    case YServiceSys::SignalPause:
        if (_statusHandle && service->_canPauseContinue)
            _controlHandler_(2);
        break;
    case YServiceSys::SignalContinue:
        if (_statusHandle && service->_canPauseContinue)
            _controlHandler_(3);
        break;
    default:
        break;
    }
}

// The manager's view of the status record: running is READY, stopped is STOPPING, and any
// other state is a status text.
bool YService::reportStatus()
{
    QByteArray state;
    switch (_serviceStatus.currentState) {
    case SERVICE_RUNNING:
        state = "READY=1\nSTATUS=running";
        break;
    case SERVICE_STOPPED:
        state = "STOPPING=1\nSTATUS=stopped";
        break;
    case SERVICE_PAUSED:
        state = "STATUS=paused";
        break;
    default:
        state = "STATUS=start pending";
        break;
    }
    const int error = YServiceSys::notify(state);
    errno = error;
    return error == 0;
}
