#include "demos.h"

#include <yovolib/yovolib.h>

#include <atomic>
#include <unistd.h>

namespace {

// A worker with a cooperative stop: it counts, and after every tenth step it queues an event for
// the main thread. stop() takes effect between two steps.
class CountingWorker : public YStatefulIterativeThread
{
public:
    explicit CountingWorker(int eventId)
        : YStatefulIterativeThread("counter")
        , _eventId(eventId)
    {
    }

    void preProcess() override
    {
        // start() enters the thread in the registry after the thread began, so a thread that
        // touches its event trace at once waits for the go.
        while (!_go.load())
            sleepMilli(1);
        pushTraceElement(
            YTraceElement("CountingWorker::run", __FILE__, __LINE__, QStringLiteral("counting")));
        _traced.store(true);
    }
    void postProcess() override { popTraceElement(); }
    void handleError(const YException& e) override { _error = QString::fromLatin1(e.what()); }

    std::atomic<bool> _go {false};
    std::atomic<bool> _traced {false};
    std::atomic<int> _steps {0};
    std::atomic<int> _queued {0};
    QString _error;

protected:
    void doIteration() override
    {
        if (++_steps % 10 == 0) {
            YEvent event(_eventId);
            event.setClientObject(new YStringClientData(QStringLiteral("step %1").arg(_steps)));
            getDispatcher()->addPendingEvent(event);
            // The queued copy owns the client object now.
            event.setClientObject(nullptr);
            ++_queued;
        }
        sleepMilli(1);
    }

private:
    int _eventId;
};

// Receives the worker's events on the thread that delivers the pending queue.
class ProgressHandler : public YEventHandler
{
public:
    void onProgress(YEvent& event)
    {
        ++_received;
        _last = static_cast<YStringClientData*>(event.getClientObject())->getString();
    }
    int _received = 0;
    QString _last;
};

} // namespace

int demoThreads(DemoContext& context)
{
    QTextStream& out = context.out;
    // The main thread wasn't started by the library: it registers itself before it traces.
    YThread::registerExternalThread(static_cast<unsigned long>(gettid()));
    YThread::pushTraceElement(
        YTraceElement("demoThreads", __FILE__, __LINE__, QStringLiteral("waiting for counter")));

    ProgressHandler handler;
    const int progressId = handler.newId();
    handler.connectEvent(
        progressId, &handler, static_cast<YEventCallback>(&ProgressHandler::onProgress));

    CountingWorker worker(progressId);
    worker.start();
    out << "worker '" << worker.getName() << "' started as thread " << worker.getId() << "\n";
    worker._go.store(true);
    while (!worker._traced.load())
        YThread::sleepMilli(1);
    while (worker._steps.load() < 50) {
        YEventDispatcher::get().processPendingEvent();
        YThread::sleepMilli(5);
    }

    const QString trace = YThread::getStackTrace(true);
    out << "event backtrace of both threads:\n" << trace;

    worker.stop();
    worker.join();
    YEventDispatcher::get().processPendingEvent();
    YThread::popTraceElement();

    out << "worker stopped after " << worker._steps.load() << " steps, state "
        << int(worker.getState()) << "\n";
    out << "progress events delivered: " << handler._received << " of " << worker._queued.load()
        << ", last: " << handler._last << "\n";
    const bool ok = worker._error.isEmpty()
        && worker.getState() == YStatefulIterativeThread::FINISHED
        && trace.count(QStringLiteral("Event Backtrace for thread")) == 2
        && trace.count(QStringLiteral("- CURRENT THREAD")) == 1
        && handler._received == worker._queued.load() && handler._received > 0;
    out << (ok ? "threads demo: ok\n" : "threads demo: FAILED\n");
    return ok ? 0 : 1;
}
