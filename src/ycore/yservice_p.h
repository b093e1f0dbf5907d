// Not part of the YovoLib API: the service manager and the signals of the platform.
#ifndef YOVOLIB_YSERVICE_P_H
#define YOVOLIB_YSERVICE_P_H

#include <QByteArray>
#include <QtGlobal>

namespace YServiceSys {

enum Signal
{
    SignalTerminate,
    SignalInterrupt,
    SignalPause,
    SignalContinue
};

typedef void (*SignalCallback)(int which);

/// Routes the signal to callback(which), called on a thread of the frame, never inside the
/// handler. False with the error code kept (lastError) when it can't be installed.
bool relaySignal(Signal which, SignalCallback callback);
int lastError();

/// A service manager waits for our reports.
bool managerPresent();
/// The error code of a dispatcher that finds no manager.
int noManagerError();
/// Sends one report; 0 or the error code.
int notify(const QByteArray& state);
/// The watchdog period the manager asks for, in microseconds; 0 when none.
qint64 watchdogMicroseconds();
qint64 monotonicMicroseconds();
/// The system's debug log.
void debugOutput(const QByteArray& text);

} // namespace YServiceSys

#endif // YOVOLIB_YSERVICE_P_H
