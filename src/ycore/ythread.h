#ifndef YOVOLIB_YTHREAD_H
#define YOVOLIB_YTHREAD_H

#include "trace_element.h"
#include "yevent_dispatcher.h"
#include "ymutex.h"
#include "yovolib_export.h"

#include <QHash>
#include <QStack>
#include <QString>

class YThreadPrivate;

/// What a YThread runs when it is given an object instead of being subclassed.
class YOVOLIB_EXPORT YRunnable
{
public:
    virtual void run() = 0;
    virtual ~YRunnable();
};

/// An operating-system thread with a name and an entry in the process-wide registry, which holds
/// the thread's event backtrace. There is no stop signal: join() waits without limit, and the
/// destructor kills a thread that was started and not joined.
///
/// Threads the library didn't start (the main thread among them) must call
/// registerExternalThread() before they touch the backtrace; nothing registers them by itself.
class YOVOLIB_EXPORT YThread : public YEventHandler
{
public:
    /// The registry's value: the thread (null for an external one) and its event stack.
    struct YThreadEntryPrivate
    {
        const YThread* _thread;
        QStack<YTraceElement> _trace;
    };

    /// The thread will run run().
    explicit YThread(const char* name = "thread");
    /// The thread will run runnable->run(); the runnable is not owned.
    YThread(YRunnable* runnable, const char* name = "thread");
    /// The copy is a thread object of its own, never started, with the same name and runnable:
    /// a system thread is never shared between two objects.
    YThread(const YThread& other);
    /// Takes over name and runnable; not meant for a started thread.
    YThread& operator=(const YThread& other);
    /// Kills the thread if it was started and not joined, and removes its registry entry.
    ~YThread() override;
    /// What the thread runs when no runnable was given; nothing in the base class.
    virtual void run();

    /// Makes the system thread and enters it in the registry. Not guarded against a second call.
    void start();
    /// Waits, without limit, for the end of the thread and removes its entry. A second call does
    /// nothing.
    void join();
    QString getName() const { return _name; }
    /// The system's id of the started thread; 0 before start and after join.
    unsigned long getId() const;

    /// Sleeps for seconds * 1000 milliseconds.
    static void sleep(unsigned int seconds);
    static void sleepMilli(unsigned int milliseconds);
    /// The calling thread's object from the registry, null for an external thread. Throws
    /// YException for a thread that isn't registered.
    static const YThread* getCurrentThread();
    /// Enters a thread the library didn't start, with a null object.
    static void registerExternalThread(unsigned long id);

    /// Pushes onto the calling thread's event stack. Throws YException for an unregistered thread.
    static void pushTraceElement(const YTraceElement& element);
    /// Pops the calling thread's event stack; an empty stack fails an assertion.
    static void popTraceElement();
    static void clearStackTrace();
    /// The depth of the calling thread's event stack.
    static int getTraceCount();
    /// The event stacks as text: all threads', or only the caller's.
    static QString getStackTrace(bool allThreads);

private:
    friend class YThreadPrivate;

    typedef QHash<unsigned long, YThreadEntryPrivate> Registry;

    static unsigned int entry(void* thread);
    static YThreadEntryPrivate getCurrentThreadEntry();
    static Registry& registry();
    static YThreadEntryPrivate& currentEntryNoLock();
    static void insertEntry(unsigned long id, const YThreadEntryPrivate& entry);

    YThreadPrivate* _handle;
    YRunnable* _runnable;
    QString _name;

    static YMutex _stackTraceLock;
};

#endif // YOVOLIB_YTHREAD_H
