// The objects that several threads share by design, under load from several threads at once:
// the event dispatcher while handlers subscribe and unsubscribe, and the thread registry while
// threads start and end and another prints every thread's backtrace. Run in the sanitizer builds
// too, where a missing lock shows as a report rather than as luck.
#include "trace_element.h"
#include "yevent_dispatcher.h"
#include "yexception.h"
#include "ythread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

const std::chrono::seconds RUN_TIME(3);

class Counter : public YEventHandler
{
public:
    explicit Counter(YEventDispatcher* dispatcher)
        : YEventHandler(dispatcher)
    {
    }
    void onEvent(YEvent&) { calls.fetch_add(1, std::memory_order_relaxed); }
    std::atomic<long> calls {0};
};

YEventCallback onEvent()
{
    return static_cast<YEventCallback>(&Counter::onEvent);
}

} // namespace

// Subscriptions made first sit at the front of their row; churn behind them can neither move
// them nor make a delivery skip them, so each delivery reaches each of them exactly once.
TEST(SharedObjectsStress, DispatcherDeliversWhileHandlersSubscribeAndUnsubscribe)
{
    YEventDispatcher dispatcher;
    const int eventId = 7;
    std::vector<std::unique_ptr<Counter>> anchors;
    for (int i = 0; i < 4; ++i) {
        anchors.emplace_back(new Counter(&dispatcher));
        anchors.back()->connectEvent(eventId, anchors.back().get(), onEvent());
    }
    std::vector<std::unique_ptr<Counter>> churn;
    for (int i = 0; i < 4; ++i)
        churn.emplace_back(new Counter(&dispatcher));

    std::atomic<bool> stop(false);
    std::atomic<long> delivered(0);
    std::vector<std::thread> threads;
    for (int d = 0; d < 2; ++d) {
        threads.emplace_back([&] {
            while (!stop.load()) {
                YEvent event(eventId);
                dispatcher.processEvent(event);
                delivered.fetch_add(1);
            }
        });
    }
    threads.emplace_back([&] {
        // The queue's way: events cloned in, delivered on this thread.
        while (!stop.load()) {
            YEvent event(eventId);
            dispatcher.addPendingEvent(event);
            dispatcher.processPendingEvent();
            delivered.fetch_add(1);
        }
    });
    for (int s = 0; s < 2; ++s) {
        threads.emplace_back([&, s] {
            for (long round = 0; !stop.load(); ++round) {
                Counter* handler = churn[size_t(s * 2 + round % 2)].get();
                handler->connectEvent(eventId, handler, onEvent());
                handler->connectEventsRange(100 + s * 10, 105 + s * 10, handler, onEvent());
                if (round % 3 == 0)
                    handler->disconnectEventsRange(100 + s * 10, 105 + s * 10, handler, onEvent());
                handler->disconnectEvent(eventId, handler, onEvent());
            }
        });
    }
    std::this_thread::sleep_for(RUN_TIME);
    stop.store(true);
    for (std::thread& thread : threads)
        thread.join();

    EXPECT_GT(delivered.load(), 0);
    for (const std::unique_ptr<Counter>& anchor : anchors)
        EXPECT_EQ(delivered.load(), anchor->calls.load());
    for (const std::unique_ptr<Counter>& handler : churn)
        EXPECT_LE(handler->calls.load(), delivered.load());
}

namespace {

// Pushes and pops trace elements for a few milliseconds. Its entry may not be there in its
// first instructions (start enters it after the thread runs), so it waits for it.
class TracingThread : public YThread
{
public:
    explicit TracingThread(std::atomic<long>* traced)
        : YThread("tracer")
        , _traced(traced)
    {
    }
    void run() override
    {
        for (;;) {
            try {
                YThread::getCurrentThread();
                break;
            } catch (const YException&) {
                std::this_thread::yield();
            }
        }
        for (int i = 0; i < 50; ++i) {
            YThread::pushTraceElement(
                YTraceElement("run", __FILE__, __LINE__, QStringLiteral("i")));
            YThread::pushTraceElement(YTraceElement("inner", __FILE__, __LINE__, QString()));
            YThread::popTraceElement();
            YThread::popTraceElement();
        }
        _traced->fetch_add(1);
    }

private:
    std::atomic<long>* _traced;
};

} // namespace

TEST(SharedObjectsStress, RegistryWhileThreadsStartAndEndAndAnotherPrintsTheTraces)
{
    std::atomic<bool> stop(false);
    std::atomic<long> printed(0), traced(0), started(0);
    std::thread printer([&] {
        YThread::registerExternalThread(static_cast<unsigned long>(syscall(SYS_gettid)));
        while (!stop.load()) {
            const QString text = YThread::getStackTrace(true);
            EXPECT_TRUE(text.contains(QStringLiteral("- CURRENT THREAD")));
            printed.fetch_add(1);
        }
    });
    std::vector<std::thread> starters;
    for (int s = 0; s < 2; ++s) {
        starters.emplace_back([&] {
            while (!stop.load()) {
                TracingThread a(&traced), b(&traced);
                a.start();
                b.start();
                a.join();
                b.join();
                started.fetch_add(2);
            }
        });
    }
    std::this_thread::sleep_for(RUN_TIME);
    stop.store(true);
    for (std::thread& starter : starters)
        starter.join();
    printer.join();

    EXPECT_GT(printed.load(), 0);
    EXPECT_GT(started.load(), 0);
    EXPECT_EQ(started.load(), traced.load());
}
