// Operating-system independent part of YThread: the registry, the event backtrace and the rules
// of start, join and destruction. The system calls are in ythread_posix.cpp.
#include "ythread.h"

#include "yexception.h"
#include "ythread_p.h"

#include <QTextStream>

YMutex YThread::_stackTraceLock;

YRunnable::~YRunnable() = default;

// ---------------------------------------------------------------------------------------------
// YThreadPrivate

namespace {

QString lastErrorText()
{
    // The system's error number is deliberately not consulted: these words are what the
    // exceptions of this class say.
    // kept: tbd-last-error
    return QStringLiteral("TBD: call GetLastError()");
}

} // namespace

YThreadPrivate::YThreadPrivate()
    : _id(0)
    , _thread()
{
}

YThreadPrivate::~YThreadPrivate()
{
    try {
        if (_id != 0)
            terminate();
    } catch (const YException&) {
        // A kill that worked ends here: see terminate().
    }
}

void YThreadPrivate::terminate()
{
    // kept: terminate-throws-on-success
    if (terminateSys())
        Y_THROW(QStringLiteral("TerminateThread() failed: %1").arg(lastErrorText()));
    _id = 0;
    _thread = YThreadSysHandle();
}

unsigned int YThreadPrivate::enter(YThread* thread)
{
    return YThread::entry(thread);
}

// ---------------------------------------------------------------------------------------------
// YThread

YThread::YThread(const char* name)
    : YEventHandler(nullptr)
    , _handle(new YThreadPrivate)
    , _runnable(nullptr)
    , _name(QString::fromUtf8(name))
{
}

YThread::YThread(YRunnable* runnable, const char* name)
    : YEventHandler(nullptr)
    , _handle(new YThreadPrivate)
    , _runnable(runnable)
    , _name(QString::fromUtf8(name))
{
}

YThread::YThread(const YThread& other)
    : YEventHandler(other)
    , _handle(new YThreadPrivate)
    , _runnable(other._runnable)
    , _name(other._name)
{
}

YThread& YThread::operator=(const YThread& other)
{
    if (this != &other) {
        YEventHandler::operator=(other);
        _runnable = other._runnable;
        _name = other._name;
    }
    return *this;
}

YThread::~YThread()
{
    if (!_handle)
        return;
    bool killed = false;
    YThreadSysHandle thread = YThreadSysHandle();
    try {
        YMutexLocker locker(_stackTraceLock);
        registry().remove(getId());
        killed = _handle->_id != 0;
        thread = _handle->_thread;
        // Deleting the handle kills a thread that still runs.
        delete _handle;
        _handle = nullptr;
    } catch (const YException& e) {
        YLOG_ERROR(YDebug::STDERR) << e.what() << yflush;
    }
    // Outside the lock: the dying thread may need it for its last clean-ups.
    if (killed)
        YThreadPrivate::reapSys(thread);
}

void YThread::run() { }

void YThread::start()
{
    // A joined thread has no system thread left; it gets a fresh one.
    if (!_handle)
        _handle = new YThreadPrivate;
    if (!_handle->startSys(this))
        Y_THROW(QStringLiteral("CreateThread() failed: %1").arg(lastErrorText()));
    YThreadEntryPrivate entry;
    entry._thread = this;
    insertEntry(_handle->_id, entry);
}

void YThread::join()
{
    if (!_handle)
        return;
    const unsigned long id = _handle->_id;
    if (id != 0) {
        if (!_handle->waitSys())
            Y_THROW(QStringLiteral("WaitForSingleObject() failed: %1").arg(lastErrorText()));
        _handle->_id = 0;
        _handle->_thread = YThreadSysHandle();
    }
    YMutexLocker locker(_stackTraceLock);
    registry().remove(id);
    delete _handle;
    _handle = nullptr;
}

unsigned long YThread::getId() const
{
    return _handle ? _handle->_id : 0;
}

void YThread::sleep(unsigned int seconds)
{
    // Wraps around beyond 49 days, as the milliseconds are a 32-bit count.
    sleepMilli(seconds * 1000);
}

void YThread::sleepMilli(unsigned int milliseconds)
{
    YThreadPrivate::sleepSys(milliseconds);
}

unsigned int YThread::entry(void* thread)
{
    // Nothing is caught: an exception that leaves run() ends the process.
    YThread* self = static_cast<YThread*>(thread);
    if (self->_runnable)
        self->_runnable->run();
    else
        self->run();
    return 0;
}

YThread::Registry& YThread::registry()
{
    static Registry* const threads = new Registry;
    return *threads;
}

void YThread::insertEntry(unsigned long id, const YThreadEntryPrivate& entry)
{
    // Under the registry's lock, so that threads may start while others print the traces. The
    // entry still comes after the thread has started: one that asks for it in its very first
    // instructions may not find it yet.
    YMutexLocker locker(_stackTraceLock);
    registry().insert(id, entry);
}

YThread::YThreadEntryPrivate& YThread::currentEntryNoLock()
{
    const unsigned long id = YThreadPrivate::currentThreadIdSys();
    Registry& threads = registry();
    Registry::iterator it = threads.find(id);
    if (it == threads.end())
        // kept: call-the-developers
        Y_THROW(QStringLiteral("Thread %1 was not registered. Please call the developers").arg(id));
    return it.value();
}

YThread::YThreadEntryPrivate YThread::getCurrentThreadEntry()
{
    YMutexLocker locker(_stackTraceLock);
    return currentEntryNoLock();
}

const YThread* YThread::getCurrentThread()
{
    return getCurrentThreadEntry()._thread;
}

void YThread::registerExternalThread(unsigned long id)
{
    YThreadEntryPrivate entry;
    entry._thread = nullptr;
    insertEntry(id, entry);
}

// ---------------------------------------------------------------------------------------------
// The event backtrace

void YThread::pushTraceElement(const YTraceElement& element)
{
    YMutexLocker locker(_stackTraceLock);
    currentEntryNoLock()._trace.push(element);
}

void YThread::popTraceElement()
{
    YMutexLocker locker(_stackTraceLock);
    QStack<YTraceElement>& trace = currentEntryNoLock()._trace;
    // The toolkit's own check of QStack::pop, kept in release builds too.
    if (trace.isEmpty())
        qt_assert("!this->isEmpty()", __FILE__, __LINE__);
    trace.pop();
}

void YThread::clearStackTrace()
{
    YMutexLocker locker(_stackTraceLock);
    currentEntryNoLock()._trace.clear();
}

int YThread::getTraceCount()
{
    YMutexLocker locker(_stackTraceLock);
    return currentEntryNoLock()._trace.size();
}

QString YThread::getStackTrace(bool allThreads)
{
    YMutexLocker locker(_stackTraceLock);
    const unsigned long current = YThreadPrivate::currentThreadIdSys();
    QString text;
    QTextStream out(&text);
    const Registry& threads = registry();
    // In the hash's order, which is no defined order.
    for (Registry::const_iterator it = threads.constBegin(); it != threads.constEnd(); ++it) {
        if (!allThreads && it.key() != current)
            continue;
        out << "Event Backtrace for thread" << it.key();
        if (it.key() == current)
            out << "- CURRENT THREAD";
        out << Qt::endl;
        out << "-----------------------------------" << Qt::endl;
        const QStack<YTraceElement>& trace = it.value()._trace;
        if (trace.isEmpty()) {
            out << "No events" << Qt::endl;
        } else {
            for (int number = trace.size(); number >= 1; --number)
                out << "(" << number << ")" << Qt::endl
                    << trace.at(number - 1).toString() << Qt::endl;
        }
        out << Qt::endl;
    }
    out.flush();
    return text;
}
