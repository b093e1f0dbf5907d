// Not part of the YovoLib API: the operating system's side of the named pipes.
#ifndef YOVOLIB_YNAMED_PIPE_P_H
#define YOVOLIB_YNAMED_PIPE_P_H

#include <QtGlobal>

namespace YNamedPipeSys {

enum Result
{
    Done,
    Failed, ///< at once, with the system's error
    TimedOut,
    FailedAfterWait ///< the system's error came only after a wait
};

/// Connects to the pipe at `path`, waiting up to `busyWaitMs` for room on a busy server.
/// Null with `*error` set, or with TimedOut when the wait ran out.
void* connect(const char* path, int busyWaitMs, Result* result, int* error);
Result write(void* handle, const void* data, unsigned int size, unsigned int* written,
    long timeoutMs, int* error);
Result read(void* handle, void* data, unsigned int size, unsigned int* received, long timeoutMs,
    int* error);
/// Another owner of the same connection or instance.
void reference(void* handle);
/// Waits until the other end has read all that this end wrote, or has gone.
void flush(void* handle);
/// Ends the connection for both ends, whoever else still holds the handle.
void shutdown(void* handle);
/// Drops one owner; the last one closes.
void release(void* handle);
/// A new instance of the pipe at `path`, waiting for a client; null with `*error` set.
void* newInstance(const char* path, int* error);
/// True for an instance or connection that is still open in this process.
bool isOpen(void* handle);
/// True when the instance already holds a client.
bool isConnected(void* handle);
/// Waits up to `timeoutMs` (negative: no limit) for a client on the instance.
Result accept(void* instance, int timeoutMs, int* error);
/// True for the errors that say the other end has gone.
bool isLostConnectionError(int error);
/// Microseconds of a clock that doesn't jump.
qint64 nowMicroseconds();
void sleepMilliseconds(int milliseconds);

} // namespace YNamedPipeSys

#endif // YOVOLIB_YNAMED_PIPE_P_H
