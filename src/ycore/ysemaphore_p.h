// Not part of the YovoLib API: the operating system's side of YSemaphoreImpl.
#ifndef YOVOLIB_YSEMAPHORE_P_H
#define YOVOLIB_YSEMAPHORE_P_H

#include <QByteArray>

struct YSemaphoreHandle;

namespace YSemaphoreSys {

enum WaitResult { WaitObject0, WaitTimeout, WaitFailed, WaitAbandoned };

/// Opens or makes the semaphore of that system name; null with `*error` set on failure.
YSemaphoreHandle* create(const QByteArray& systemName, unsigned int initialCount,
                         unsigned int maximumCount, unsigned short permissions, int* error);
/// Takes one token; `timeoutMs` -1 waits without limit.
WaitResult wait(YSemaphoreHandle* handle, int timeoutMs, int* error);
/// Adds n tokens at once, or none when that would pass the maximum.
bool release(YSemaphoreHandle* handle, unsigned int n, int* error);
void close(YSemaphoreHandle* handle);
/// The shared-memory name behind a semaphore name, for tests and diagnostics.
QByteArray objectName(const QByteArray& systemName);

} // namespace YSemaphoreSys

#endif // YOVOLIB_YSEMAPHORE_P_H
