// Operating-system independent: the loop of a worker thread with a cooperative stop.
#include "stateful_iterative_thread.h"

YStatefulIterativeThread::YStatefulIterativeThread(const char* name)
    : YThread(name)
    , _stopping(false)
    , _state(NOT_RUNNING)
{
}

YStatefulIterativeThread::YStatefulIterativeThread(const YStatefulIterativeThread& other)
    : YThread(other)
    , _stopping(other._stopping.load(std::memory_order_relaxed))
    , _state(other._state.load(std::memory_order_relaxed))
{
}

YStatefulIterativeThread& YStatefulIterativeThread::operator=(const YStatefulIterativeThread& other)
{
    YThread::operator=(other);
    _stopping.store(other._stopping.load(std::memory_order_relaxed), std::memory_order_relaxed);
    _state.store(other._state.load(std::memory_order_relaxed), std::memory_order_relaxed);
    return *this;
}

YStatefulIterativeThread::~YStatefulIterativeThread() = default;

void YStatefulIterativeThread::run()
{
    try {
        _state.store(RUNNING, std::memory_order_relaxed);
        preProcess();
        while (!_stopping.load(std::memory_order_relaxed))
            doIteration();
        postProcess();
        _state.store(FINISHED, std::memory_order_relaxed);
    } catch (const YException& e) {
        handleError(e);
    }
}

void YStatefulIterativeThread::stop()
{
    _stopping.store(true, std::memory_order_relaxed);
}

bool YStatefulIterativeThread::isStopping() const
{
    return _stopping.load(std::memory_order_relaxed);
}

YStatefulIterativeThread::thread_state_t YStatefulIterativeThread::getState() const
{
    return _state.load(std::memory_order_relaxed);
}

void YStatefulIterativeThread::preProcess() { }

void YStatefulIterativeThread::postProcess() { }

void YStatefulIterativeThread::handleError(const YException& e)
{
    throw YException(e);
}
