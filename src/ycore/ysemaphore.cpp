// Operating-system independent part of the named semaphores; the object itself is in
// ysemaphore_posix.cpp.
#include "ysemaphore.h"

#include "ydebug.h"
#include "yexception.h"
#include "ysemaphore_p.h"

#include <cstdio>

namespace {

const unsigned int UNLIMITED_COUNT = 0x7FFFFFFF;
const unsigned short DEFAULT_PERMISSIONS = 0660;

} // namespace

YSemaphoreImpl::YSemaphoreImpl(unsigned int count, const char* name)
    : _maxCount(count)
    , _handle(nullptr)
{
    open(count, name, DEFAULT_PERMISSIONS);
}

YSemaphoreImpl::YSemaphoreImpl(unsigned int count, const char* name, unsigned short permissions)
    : _maxCount(count)
    , _handle(nullptr)
{
    open(count, name, permissions);
}

YSemaphoreImpl::YSemaphoreImpl(const YSemaphoreImpl& other)
    : _maxCount(other._maxCount)
    , _handle(other._handle)
    , _errorString(other._errorString)
{
}

YSemaphoreImpl& YSemaphoreImpl::operator=(const YSemaphoreImpl& other)
{
    _maxCount = other._maxCount;
    _handle = other._handle;
    _errorString = other._errorString;
    return *this;
}

YSemaphoreImpl::~YSemaphoreImpl() = default;

void YSemaphoreImpl::open(unsigned int count, const char* name, unsigned short permissions)
{
    const QByteArray systemName = QStringLiteral("%1\\%2")
                                      .arg(QStringLiteral("Global"), QString::fromLocal8Bit(name))
                                      .toLocal8Bit();
    const unsigned int maximum = count == 0 ? UNLIMITED_COUNT : count;
    int error = 0;
    _handle = YSemaphoreSys::create(systemName, count, maximum, permissions, &error);
    if (!_handle)
        YLOG_ERROR(YDebug::STDERR) << "YSemaphoreImpl : Could not create semaphore" << name
                                   << ". Reason : " << error << yflush;
}

bool YSemaphoreImpl::acquire(unsigned int n)
{
    return doAcquire(n, true);
}

bool YSemaphoreImpl::tryAcquire(unsigned int n)
{
    return doAcquire(n, false);
}

bool YSemaphoreImpl::doAcquire(unsigned int n, bool block)
{
    if (!_handle) {
        YLOG_ERROR(YDebug::STDERR)
            << '[' << __FILE__ << ':' << __LINE__ << '(' << "YSemaphoreImpl::doAcquire" << ')'
            << ']' << "invalid semaphore handle" << yflush;
        return false;
    }
    const int timeoutMs = block ? -1 : 1;
    // One token at a time, so that a failure can give back exactly what was taken.
    for (unsigned int taken = 0; taken < n; ++taken) {
        int error = 0;
        const YSemaphoreSys::WaitResult result = YSemaphoreSys::wait(_handle, timeoutMs, &error);
        if (result == YSemaphoreSys::WaitObject0)
            continue;
        int ignored = 0;
        YSemaphoreSys::release(_handle, taken, &ignored);
        switch (result) {
        case YSemaphoreSys::WaitFailed:
            YLOG_ERROR(YDebug::STDERR)
                << "YSemaphoreImpl::acquire WAIT_FAILED error. Reason : " << error << yflush;
            break;
        case YSemaphoreSys::WaitAbandoned:
            YLOG_ERROR(YDebug::STDERR)
                << "YSemaphoreImpl::acquire WAIT_ABANDONED error. Reason : " << error << yflush;
            break;
        default:
            if (block)
                YLOG_WARNING(YDebug::STDERR)
                    << "YSemaphoreImpl::acquire WAIT_TIMEOUT error. Reason : " << error << yflush;
            break;
        }
        return false;
    }
    return true;
}

bool YSemaphoreImpl::release(unsigned int n)
{
    if (!_handle) {
        YLOG_ERROR(YDebug::STDERR)
            << '[' << __FILE__ << ':' << __LINE__ << '(' << "YSemaphoreImpl::release" << ')' << ']'
            << "invalid semaphore handle" << yflush;
        return false;
    }
    if (n == 0)
        return true;
    int error = 0;
    if (YSemaphoreSys::release(_handle, n, &error))
        return true;
    YLOG_ERROR(YDebug::STDERR) << "YSemaphoreImpl::release error. Reason : " << error << yflush;
    return false;
}

void YSemaphoreImpl::remove()
{
    if (!_handle)
        return;
    YSemaphoreSys::close(_handle);
    _handle = nullptr;
}

int YSemaphoreImpl::getCurrentCount()
{
    // The count can't be read without a race on the platform this was written for; the message
    // is the system's own and stays as it is.
    fprintf(stderr,
        // kept: current-count-windows-text
        "ERROR: getCurrentCount() in YSemaphore is not implemented for windows "
        "currently!\n");
    fflush(stderr);
    return -1;
}

QString YSemaphoreImpl::errorString()
{
    return _errorString;
}

bool YSemaphore::isValidName(const QString& name)
{
    if (name.isEmpty())
        return false;
    for (const QChar c : name) {
        const ushort u = c.unicode();
        const bool ok = (u >= '0' && u <= '9') || (u >= 'a' && u <= 'z') || (u >= 'A' && u <= 'Z')
            || u == '_' || u == '.' || u == '-';
        if (!ok)
            return false;
    }
    return true;
}

YSemaphore::YSemaphore(unsigned int count, const QString& name)
    : _impl(nullptr)
{
    if (!isValidName(name))
        throw YException(QStringLiteral("YSemaphore: invalid semaphore name %1").arg(name));
    _impl = new YSemaphoreImpl(count, name.toLocal8Bit().constData(), 432);
}

YSemaphore::YSemaphore(unsigned int count, const char* name)
    : YSemaphore(count, QString::fromLocal8Bit(name))
{
}

YSemaphore::~YSemaphore()
{
    // The implementation's destructor is not virtual by design (its only virtual operation is
    // errorString), and what is deleted here is always exactly a YSemaphoreImpl.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdelete-non-virtual-dtor"
    delete _impl;
#pragma GCC diagnostic pop
}
