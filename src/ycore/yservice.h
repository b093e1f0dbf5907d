#ifndef YOVOLIB_YSERVICE_H
#define YOVOLIB_YSERVICE_H

#include "yevent_dispatcher.h"
#include "yovolib_export.h"

#include <QString>
#include <QVector>

/// The status a service reports to its manager, field by field as the manager knows it.
struct YServiceStatus
{
    unsigned long serviceType;
    unsigned long currentState;
    unsigned long controlsAccepted;
    unsigned long win32ExitCode;
    unsigned long serviceSpecificExitCode;
    unsigned long checkPoint;
    unsigned long waitHint;
};

/// The frame of a daemon's main(): derive, implement serviceMain and call run(). With "-e" the
/// program runs as an ordinary application; otherwise it runs under the service manager
/// (systemd, which announces itself with NOTIFY_SOCKET) and reports its state there. One
/// instance per process; a second one replaces the first.
class YOVOLIB_EXPORT YService : public YEventHandler
{
public:
    /// "-e" in any case and with blanks around it selects the application form and is dropped;
    /// all other arguments, the program's name included, are kept. The two last flags install
    /// handlers for SIGTERM and SIGINT that call serviceSigTerm and serviceSigInt.
    YService(QString name, int argc, char** argv, bool canStop, bool canPauseContinue,
        bool handleSigTerm, bool handleSigInt);
    ~YService() override;

    virtual bool serviceInit(int argc, char** argv);
    /// The daemon's main operation; its result is not used.
    virtual int serviceMain(int argc, char** argv) = 0;
    /// exit(0) as an application; nothing as a service.
    virtual void serviceShutdown();
    virtual bool servicePause();
    virtual bool serviceResume();
    virtual void serviceSigTerm();
    virtual void serviceSigInt();

    /// Runs the application or the service form. False when initialisation failed or, as a
    /// service, when no service manager is there.
    bool run();
    bool isRunningAsTerminalApplication() { return _runAsApplication; }
    bool isRunningAsService() { return !_runAsApplication; }
    const QString& getName() const { return _name; }

    /// Tells the watchdog that the main loop still turns. When the manager asks for a watchdog,
    /// pings stop once this hasn't been called for a whole watchdog period, and the manager
    /// then deals with the hung daemon.
    static void reportAlive();

    static YService* getInstance();
    /// "<name>: <text>" to the system's debug log and to standard output, bypassing the debug
    /// streams so that it works before any exists.
    static void svcDebug(const QString& text);

protected:
    bool runAsApplication();
    bool runAsService();
    /// The service's start: reports, initialises, runs the main operation.
    static void _startServiceFunc_(unsigned long argc, char** argv);
    /// A control request of the manager: 1 stop, 2 pause, 3 continue, 4 interrogate.
    static void _controlHandler_(unsigned long opcode);
    static const YServiceStatus& getServiceStatus() { return _serviceStatus; }

private:
    static void dispatchSignal(int which);
    static bool reportStatus();

    QString _name;
    int _argc;
    QVector<char*> _argv;
    bool _canStop;
    bool _canPauseContinue;
    bool _runAsApplication;
    bool _handleSigTerm;
    bool _handleSigInt;

    static YService* _instance;
    static YServiceStatus _serviceStatus;
    static bool _statusHandle;
};

#endif // YOVOLIB_YSERVICE_H
