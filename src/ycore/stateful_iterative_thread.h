#ifndef YOVOLIB_STATEFUL_ITERATIVE_THREAD_H
#define YOVOLIB_STATEFUL_ITERATIVE_THREAD_H

#include "yexception.h"
#include "yovolib_export.h"
#include "ythread.h"

#include <atomic>

/// A worker that repeats one step until stop() is called, with a cooperative stop: the flag is
/// read before each step, and a running step is never interrupted.
class YOVOLIB_EXPORT YStatefulIterativeThread : public YThread
{
public:
    enum thread_state_t
    {
        /// Not running: from construction until run() begins.
        NOT_RUNNING = 0,
        /// run() has begun; still 1 after the thread ended means that it failed.
        RUNNING = 1,
        /// run() ended normally, after postProcess().
        FINISHED = 2
    };

    explicit YStatefulIterativeThread(const char* name = "thread");
    /// Member-wise, stop flag and state included; the thread itself is not copied (see YThread).
    YStatefulIterativeThread(const YStatefulIterativeThread& other);
    YStatefulIterativeThread& operator=(const YStatefulIterativeThread& other);
    ~YStatefulIterativeThread() override;

    /// preProcess, the steps until stopped, postProcess. A YException from any of them goes to
    /// handleError() and ends the run with the state left at RUNNING.
    void run() override;

    /// Asks for the end after the running step; returns at once. Follow up with join().
    void stop();
    bool isStopping() const;
    thread_state_t getState() const;

    /// Runs before the first step; nothing by default.
    virtual void preProcess();
    /// Runs after the last step of a run that didn't fail; nothing by default.
    virtual void postProcess();
    /// Gets the YException that ended the run. Throws a copy of it by default, which ends the
    /// process since nothing above run() catches it: a worker that should survive overrides this.
    virtual void handleError(const YException& e);

protected:
    /// One step of the work; called again and again until stop().
    virtual void doIteration() = 0;

private:
    // Written by one thread and read by another without a lock: relaxed atomics are plain bytes
    // without a fence, yet well defined.
    std::atomic<bool> _stopping;
    std::atomic<thread_state_t> _state;
};

#endif // YOVOLIB_STATEFUL_ITERATIVE_THREAD_H
