#include "ysingle_instance_checker.h"

#include "ydebug.h"
#include "ysemaphore.h"

YSingleInstanceChecker::YSingleInstanceChecker(const QString& name)
    : _name(name)
    , _semaphore(new YSemaphore(1, name.toLocal8Bit().constData()))
{
}

YSingleInstanceChecker::~YSingleInstanceChecker() = default;

bool YSingleInstanceChecker::isUsable()
{
    if (_semaphore->isOk())
        return true;
    YLOG_DBG1(YDebug::STDERR) << "Invalid semaphore" << yflush;
    return false;
}

bool YSingleInstanceChecker::markAsRunning()
{
    return isUsable() && _semaphore->tryAcquire(1);
}

bool YSingleInstanceChecker::isAnotherRunning()
{
    if (!isUsable())
        return false;
    if (_semaphore->tryAcquire(1)) {
        _semaphore->release(1);
        return false;
    }
    return true;
}

bool YSingleInstanceChecker::markAsNotRunning()
{
    return isUsable() && _semaphore->release(1);
}
