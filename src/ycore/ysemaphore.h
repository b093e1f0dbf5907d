#ifndef YOVOLIB_YSEMAPHORE_H
#define YOVOLIB_YSEMAPHORE_H

#include "yovolib_export.h"

#include <QString>

struct YSemaphoreHandle;

/// A named counting semaphore in the machine's global namespace: unrelated processes that use the
/// same name share one counter. It reports by results and logs; it never throws.
class YOVOLIB_EXPORT YSemaphoreImpl
{
public:
    /// Opens the semaphore "Global\<name>", or makes it with `count` tokens when nobody holds it.
    /// The first creator's count and maximum stand; a count of 0 gives the maximum 0x7FFFFFFF.
    YSemaphoreImpl(unsigned int count, const char* name);
    /// As above; `permissions` is the mode of the new object (YSemaphore passes 0660).
    YSemaphoreImpl(unsigned int count, const char* name, unsigned short permissions);
    /// Copies name the same semaphore: the handle value is copied, not duplicated.
    YSemaphoreImpl(const YSemaphoreImpl& other);
    YSemaphoreImpl& operator=(const YSemaphoreImpl& other);
    /// Deliberately leaves the semaphore open until remove() or the end of the process.
    ~YSemaphoreImpl();

    /// Takes n tokens one at a time, waiting as long as it takes; all or nothing.
    bool acquire(unsigned int n);
    /// As acquire, but waits at most 1 ms for each token, and fails silently on a time-out.
    bool tryAcquire(unsigned int n);
    /// Gives back n tokens at once; fails and changes nothing beyond the maximum.
    bool release(unsigned int n);
    /// The count this object was constructed with, whatever the semaphore's real maximum.
    unsigned int getMaxCount() const { return _maxCount; }
    bool isOk() const { return _handle != nullptr; }
    /// Closes the handle; the semaphore vanishes when its last user in any process closes it.
    void remove();
    /// Not available: prints a message on stderr at each call and returns -1.
    int getCurrentCount();
    virtual QString errorString();

protected:
    bool doAcquire(unsigned int n, bool block);

private:
    void open(unsigned int count, const char* name, unsigned short permissions);

    unsigned int _maxCount;
    YSemaphoreHandle* _handle;
    QString _errorString;
};

/// The semaphore that user code holds: checks the name, then owns one YSemaphoreImpl.
class YOVOLIB_EXPORT YSemaphore
{
public:
    /// Throws YException "YSemaphore: invalid semaphore name <name>" unless the name consists of
    /// letters, digits, '_', '.' and '-' only.
    YSemaphore(unsigned int count, const QString& name);
    YSemaphore(unsigned int count, const char* name);
    YSemaphore(const YSemaphore&) = delete;
    YSemaphore& operator=(const YSemaphore&) = delete;
    /// Deletes the implementation object, which leaves the system's semaphore open.
    virtual ~YSemaphore();

    bool acquire(unsigned int n) { return _impl->acquire(n); }
    bool tryAcquire(unsigned int n) { return _impl->tryAcquire(n); }
    bool release(unsigned int n) { return _impl->release(n); }
    unsigned int getMaxCount() const { return _impl->getMaxCount(); }
    bool isOk() const { return _impl->isOk(); }
    /// Closes the system's handle, see YSemaphoreImpl::remove.
    void remove() { _impl->remove(); }
    QString errorString() const { return _errorString; }

    /// True for names that a semaphore may have.
    static bool isValidName(const QString& name);

private:
    YSemaphoreImpl* _impl;
    QString _errorString;
};

/// A semaphore with one token: a lock that works across processes.
class YOVOLIB_EXPORT YOneLockSemaphore : public YSemaphore
{
public:
    explicit YOneLockSemaphore(const QString& name) : YSemaphore(1, name) {}
    explicit YOneLockSemaphore(const char* name) : YSemaphore(1, name) {}

    bool acquire() { return YSemaphore::acquire(1); }
    bool tryAcquire() { return YSemaphore::tryAcquire(1); }
    bool release() { return YSemaphore::release(1); }
};

#endif // YOVOLIB_YSEMAPHORE_H
