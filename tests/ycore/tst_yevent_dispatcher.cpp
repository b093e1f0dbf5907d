#include "test_support.h"
#include "yevent_dispatcher.h"
#include "yexception.h"

#include <gtest/gtest.h>

#include <QStringList>

#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

using yovotest::Tracked;

namespace {

class Recorder : public YEventHandler
{
public:
    Recorder(YEventDispatcher* dispatcher, QStringList* log, const char* name)
        : YEventHandler(dispatcher)
        , _log(log)
        , _name(QString::fromLatin1(name))
    {
    }

    void record(YEvent& event)
    {
        _log->append(_name + QLatin1Char(':') + QString::number(event.getEventId()));
    }
    void onEvent(YEvent& event) { record(event); }
    void onOther(YEvent& event)
    {
        _log->append(_name + QStringLiteral("-other:") + QString::number(event.getEventId()));
    }
    void onStop(YEvent& event)
    {
        record(event);
        event.setStopProcessing(true);
    }
    void onThrow(YEvent& event)
    {
        record(event);
        throw YException("handler failed at work");
    }
    void onThrowForeign(YEvent& event)
    {
        record(event);
        throw std::runtime_error("not ours");
    }
    void onDisconnectSelf(YEvent& event)
    {
        record(event);
        disconnectEvent(event.getEventId(), this, callback(&Recorder::onDisconnectSelf));
    }
    void onConnectLate(YEvent& event)
    {
        record(event);
        if (_late)
            connectEvent(event.getEventId(), _late, callback(&Recorder::onEvent));
        _late = nullptr;
    }
    void onQueueAnother(YEvent& event)
    {
        record(event);
        YEvent next(event.getEventId() + 1);
        getDispatcher()->addPendingEvent(next);
    }

    static YEventCallback callback(void (Recorder::*method)(YEvent&))
    {
        return static_cast<YEventCallback>(method);
    }

    Recorder* _late = nullptr;

private:
    QStringList* _log;
    QString _name;
};

YEventCallback cb(void (Recorder::*method)(YEvent&))
{
    return Recorder::callback(method);
}

// Lets a test look at the rows of the table.
class ProbeDispatcher : public YEventDispatcher
{
public:
    bool hasRow(int id) const { return _eventTable.count(id) == 1; }
    std::size_t rowSize(int id) const { return _eventTable.at(id).size(); }
    std::size_t pendingCount() const { return _pendingEvents.size(); }
};

} // namespace

TEST(YEventDispatcher, DeliversInOrderOfConnection)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), b(&dispatcher, &log, "b"), c(&dispatcher, &log, "c");
    a.connectEvent(7, &b, cb(&Recorder::onEvent));
    a.connectEvent(7, &a, cb(&Recorder::onEvent));
    a.connectEvent(7, &c, cb(&Recorder::onEvent));
    a.connectEvent(8, &c, cb(&Recorder::onOther));
    YEvent event(7);
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"b:7", "a:7", "c:7"}), log);
    EXPECT_FALSE(event.isStopProcessing());
}

TEST(YEventDispatcher, ConnectingTwiceDeliversTwice)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(3, &a, cb(&Recorder::onEvent));
    a.connectEvent(3, &a, cb(&Recorder::onEvent));
    YEvent event(3);
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"a:3", "a:3"}), log);
}

TEST(YEventDispatcher, StopFlagEndsTheRoundAndStaysSet)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), b(&dispatcher, &log, "b");
    a.connectEvent(1, &a, cb(&Recorder::onStop));
    a.connectEvent(1, &b, cb(&Recorder::onEvent));
    YEvent event(1);
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"a:1"}), log);
    EXPECT_TRUE(event.isStopProcessing());
}

TEST(YEventDispatcher, FlagIsReadOnlyAfterEachCall)
{
    // An event that arrives already stopped still reaches its first handler.
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), b(&dispatcher, &log, "b");
    a.connectEvent(1, &a, cb(&Recorder::onEvent));
    a.connectEvent(1, &b, cb(&Recorder::onEvent));
    YEvent event(1);
    event.setStopProcessing(true);
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"a:1"}), log);
}

TEST(YEventDispatcher, EventWithoutSubscribersIsNoError)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(1, &a, cb(&Recorder::onEvent));
    YEvent unknown(12345);
    dispatcher.processEvent(unknown);
    YEvent unset;
    dispatcher.processEvent(unset);
    EXPECT_TRUE(log.isEmpty());
    EXPECT_FALSE(dispatcher.hasRow(12345));
    EXPECT_FALSE(unknown.isStopProcessing());
}

TEST(YEventDispatcher, EmptiedRowStaysAndDeliversNothing)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(4, &a, cb(&Recorder::onEvent));
    a.disconnectEvent(4, &a, cb(&Recorder::onEvent));
    ASSERT_TRUE(dispatcher.hasRow(4));
    EXPECT_EQ(0u, dispatcher.rowSize(4));
    YEvent event(4);
    dispatcher.processEvent(event);
    EXPECT_TRUE(log.isEmpty());
    EXPECT_TRUE(dispatcher.hasRow(4));
}

TEST(YEventDispatcher, DisconnectOfUnknownIdIsNoError)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.disconnectEvent(99, &a, cb(&Recorder::onEvent));
    EXPECT_FALSE(dispatcher.hasRow(99));
}

TEST(YEventDispatcher, DisconnectMatchesHandlerAndCallbackAndKeepsOrder)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), b(&dispatcher, &log, "b");
    a.connectEvent(2, &a, cb(&Recorder::onEvent));
    a.connectEvent(2, &a, cb(&Recorder::onOther));
    a.connectEvent(2, &b, cb(&Recorder::onEvent));
    a.connectEvent(2, &a, cb(&Recorder::onEvent));
    a.connectEvent(2, &b, cb(&Recorder::onOther));
    a.disconnectEvent(2, &a, cb(&Recorder::onEvent));
    YEvent event(2);
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"a-other:2", "b:2", "b-other:2"}), log);
}

TEST(YEventDispatcher, DestroyedHandlerDisconnectsItselfEverywhere)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    {
        Recorder b(&dispatcher, &log, "b");
        a.connectEvent(1, &b, cb(&Recorder::onEvent));
        a.connectEvent(1, &a, cb(&Recorder::onEvent));
        a.connectEvent(2, &b, cb(&Recorder::onOther));
    }
    EXPECT_EQ(1u, dispatcher.rowSize(1));
    EXPECT_EQ(0u, dispatcher.rowSize(2));
    YEvent one(1), two(2);
    dispatcher.processEvent(one);
    dispatcher.processEvent(two);
    EXPECT_EQ(QStringList({"a:1"}), log);
}

TEST(YEventDispatcher, SubscriptionAddedDuringDeliveryIsReachedInTheSameRound)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), late(&dispatcher, &log, "late");
    a._late = &late;
    a.connectEvent(5, &a, cb(&Recorder::onConnectLate));
    YEvent event(5);
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"a:5", "late:5"}), log);
}

TEST(YEventDispatcher, ErasureDuringDeliverySkipsTheNextSubscription)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), b(&dispatcher, &log, "b"), c(&dispatcher, &log, "c");
    a.connectEvent(6, &a, cb(&Recorder::onDisconnectSelf));
    a.connectEvent(6, &b, cb(&Recorder::onEvent));
    a.connectEvent(6, &c, cb(&Recorder::onEvent));
    YEvent event(6);
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"a:6", "c:6"}), log);
    log.clear();
    dispatcher.processEvent(event);
    EXPECT_EQ(QStringList({"b:6", "c:6"}), log);
}

TEST(YEventDispatcher, YExceptionEndsTheRoundAndIsLogged)
{
    yovotest::TempDir dir;
    const QString path = dir.file(QStringLiteral("events.log"));
    const YDebug::StreamId stream = YDebug::registerStream("EV", path.toLocal8Bit().constData());
    YDebug::setDebugLevel(stream, YDebug::NOTICE);

    YEventDispatcher dispatcher;
    dispatcher.setLogStream(stream);
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), b(&dispatcher, &log, "b");
    a.connectEvent(9, &a, cb(&Recorder::onThrow));
    a.connectEvent(9, &b, cb(&Recorder::onEvent));
    YEvent event(9);
    EXPECT_NO_THROW(dispatcher.processEvent(event));
    EXPECT_EQ(QStringList({"a:9"}), log);
    YDebug::unregisterStream(stream);

    EXPECT_EQ(QByteArray("[EV <TS> ERROR] YEventDispatcher::processEvent: Uncaught exception. "
                         "handler failed at work \r\n"),
        yovotest::maskTimestamps(yovotest::readFile(path)));
}

TEST(YEventDispatcher, ExceptionGoesToStandardErrorByDefault)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(9, &a, cb(&Recorder::onThrow));
    YEvent event(9);
    testing::internal::CaptureStderr();
    dispatcher.processEvent(event);
    const std::string written = testing::internal::GetCapturedStderr();
    EXPECT_EQ("[<TS> ERROR] YEventDispatcher::processEvent: Uncaught exception. handler failed at "
              "work \r\n",
        yovotest::maskTimestamps(QByteArray::fromStdString(written)).toStdString());
}

TEST(YEventDispatcher, ForeignExceptionPassesThroughProcessEvent)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a"), b(&dispatcher, &log, "b");
    a.connectEvent(9, &a, cb(&Recorder::onThrowForeign));
    a.connectEvent(9, &b, cb(&Recorder::onEvent));
    YEvent event(9);
    testing::internal::CaptureStderr();
    EXPECT_THROW(dispatcher.processEvent(event), std::runtime_error);
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    EXPECT_EQ(QStringList({"a:9"}), log);
}

TEST(YEventDispatcher, ConnectEventsRangeWithLastBelowFirstDoesNothing)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEventsRange(5, 3, &a, cb(&Recorder::onEvent));
    for (int id = 2; id <= 6; ++id)
        EXPECT_FALSE(dispatcher.hasRow(id)) << id;
}

TEST(YEventDispatcher, EventsRangeIncludesBothEnds)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEventsRange(3, 5, &a, cb(&Recorder::onEvent));
    for (int id = 2; id <= 6; ++id) {
        YEvent event(id);
        dispatcher.processEvent(event);
    }
    EXPECT_EQ(QStringList({"a:3", "a:4", "a:5"}), log);

    a.disconnectEventsRange(5, 3, &a, cb(&Recorder::onEvent));
    EXPECT_EQ(1u, dispatcher.rowSize(4));
    a.disconnectEventsRange(4, 5, &a, cb(&Recorder::onEvent));
    EXPECT_EQ(1u, dispatcher.rowSize(3));
    EXPECT_EQ(0u, dispatcher.rowSize(4));
    EXPECT_EQ(0u, dispatcher.rowSize(5));
}

TEST(YEventDispatcher, RangeUpToTheLargestIdEnds)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEventsRange(INT_MAX - 1, INT_MAX, &a, cb(&Recorder::onEvent));
    EXPECT_EQ(1u, dispatcher.rowSize(INT_MAX - 1));
    EXPECT_EQ(1u, dispatcher.rowSize(INT_MAX));
}

TEST(YEventDispatcher, FirstNewIdIs59679)
{
    YEventDispatcher dispatcher;
    EXPECT_EQ(59679, dispatcher.newId());
    EXPECT_EQ(59680, dispatcher.newId());
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    EXPECT_EQ(59681, a.newId());
    YEventDispatcher other;
    EXPECT_EQ(59679, other.newId());
}

TEST(YEventDispatcher, GlobalDispatcherServesHandlersWithoutOne)
{
    QStringList log;
    Recorder a(nullptr, &log, "a");
    EXPECT_EQ(&YEventDispatcher::get(), a.getDispatcher());
    EXPECT_EQ(&YEventDispatcher::get(), &YEventDispatcher::get());
    // This process has drawn no id before.
    EXPECT_EQ(59679, a.newId());
    a.connectEvent(11, &a, cb(&Recorder::onEvent));
    YEvent event(11);
    YEventDispatcher::get().processEvent(event);
    EXPECT_EQ(QStringList({"a:11"}), log);
}

TEST(YEventDispatcher, SetDispatcherLeavesSubscriptionsWhereTheyWere)
{
    YEventDispatcher first, second;
    QStringList log;
    Recorder a(&first, &log, "a");
    a.connectEvent(1, &a, cb(&Recorder::onEvent));
    a.setDispatcher(&second);
    EXPECT_EQ(&second, a.getDispatcher());
    a.connectEvent(1, &a, cb(&Recorder::onOther));
    YEvent event(1);
    first.processEvent(event);
    second.processEvent(event);
    EXPECT_EQ(QStringList({"a:1", "a-other:1"}), log);
    // Only the second dispatcher is cleaned by the destructor now; the first must not deliver
    // to a destroyed handler, so take it out by hand.
    a.setDispatcher(&first);
    a.disconnectEvent(1, &a, cb(&Recorder::onEvent));
    a.setDispatcher(&second);
}

// ---------------------------------------------------------------------------------------------
// The pending queue

TEST(YEventDispatcher, PendingEventIsACloneDeliveredLater)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(1, &a, cb(&Recorder::onEvent));
    a.connectEvent(2, &a, cb(&Recorder::onEvent));
    YEvent event(1);
    dispatcher.addPendingEvent(event);
    event.setEventId(2);
    dispatcher.addPendingEvent(event);
    EXPECT_TRUE(log.isEmpty());
    EXPECT_EQ(2u, dispatcher.pendingCount());
    dispatcher.processPendingEvent();
    EXPECT_EQ(QStringList({"a:1", "a:2"}), log);
    EXPECT_EQ(0u, dispatcher.pendingCount());
    dispatcher.processPendingEvent();
    EXPECT_EQ(2, log.size());
}

TEST(YEventDispatcher, YExceptionAtAPendingEventDoesNotStopTheFollowingOnes)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(1, &a, cb(&Recorder::onEvent));
    a.connectEvent(2, &a, cb(&Recorder::onThrow));
    int deleted = 0;
    for (int id : {1, 2, 1}) {
        YEvent event(id);
        event.setClientObject(new Tracked(&deleted));
        dispatcher.addPendingEvent(event);
        event.setClientObject(nullptr);
    }
    testing::internal::CaptureStderr();
    dispatcher.processPendingEvent();
    const std::string written = testing::internal::GetCapturedStderr();
    EXPECT_EQ(QStringList({"a:1", "a:2", "a:1"}), log);
    EXPECT_EQ(3, deleted);
    EXPECT_NE(std::string::npos, written.find("Uncaught exception. handler failed at work"));
}

TEST(YEventDispatcher, ForeignExceptionLosesTheRestOfThePendingEvents)
{
    ProbeDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(1, &a, cb(&Recorder::onEvent));
    a.connectEvent(2, &a, cb(&Recorder::onThrowForeign));
    int deleted = 0;
    for (int id : {1, 2, 1, 1}) {
        YEvent event(id);
        event.setClientObject(new Tracked(&deleted));
        dispatcher.addPendingEvent(event);
        event.setClientObject(nullptr);
    }
    EXPECT_THROW(dispatcher.processPendingEvent(), std::runtime_error);
    EXPECT_EQ(QStringList({"a:1", "a:2"}), log);
    // Not delivered, and not back in the queue: lost (but freed).
    EXPECT_EQ(0u, dispatcher.pendingCount());
    EXPECT_EQ(4, deleted);
    dispatcher.processPendingEvent();
    EXPECT_EQ(QStringList({"a:1", "a:2"}), log);
}

TEST(YEventDispatcher, EventsQueuedDuringDeliveryWaitForTheNextCall)
{
    YEventDispatcher dispatcher;
    QStringList log;
    Recorder a(&dispatcher, &log, "a");
    a.connectEvent(1, &a, cb(&Recorder::onQueueAnother));
    a.connectEvent(2, &a, cb(&Recorder::onEvent));
    YEvent event(1);
    dispatcher.addPendingEvent(event);
    dispatcher.processPendingEvent();
    EXPECT_EQ(QStringList({"a:1"}), log);
    dispatcher.processPendingEvent();
    EXPECT_EQ(QStringList({"a:1", "a:2"}), log);
}

TEST(YEventDispatcher, PendingEventWithoutSubscribersIsDeleted)
{
    ProbeDispatcher dispatcher;
    int deleted = 0;
    YEvent event(77);
    event.setClientObject(new Tracked(&deleted));
    dispatcher.addPendingEvent(event);
    event.setClientObject(nullptr);
    dispatcher.processPendingEvent();
    EXPECT_EQ(1, deleted);
    EXPECT_EQ(0u, dispatcher.pendingCount());
}

TEST(YEventDispatcher, DestructorDeletesEventsStillQueued)
{
    int deleted = 0;
    {
        YEventDispatcher dispatcher;
        YEvent event(1);
        event.setClientObject(new Tracked(&deleted));
        dispatcher.addPendingEvent(event);
        event.setClientObject(nullptr);
        EXPECT_EQ(0, deleted);
    }
    EXPECT_EQ(1, deleted);
}

namespace {

// An event that carries data overrides clone, as a subclass must.
class NumberedEvent : public YEvent
{
public:
    NumberedEvent(int id, int producer, int sequence)
        : YEvent(id)
        , _producer(producer)
        , _sequence(sequence)
    {
    }
    YEvent* clone() const override { return new NumberedEvent(*this); }
    int _producer;
    int _sequence;
};

class Collector : public YEventHandler
{
public:
    explicit Collector(YEventDispatcher* dispatcher)
        : YEventHandler(dispatcher)
    {
    }
    void onNumbered(YEvent& event)
    {
        NumberedEvent* numbered = dynamic_cast<NumberedEvent*>(&event);
        ASSERT_NE(nullptr, numbered);
        _seen.push_back(std::make_pair(numbered->_producer, numbered->_sequence));
    }
    std::vector<std::pair<int, int>> _seen;
};

} // namespace

TEST(YEventDispatcher, PendingQueueFedFromFourThreadsDeliversEachEventOnceInOrder)
{
    YEventDispatcher dispatcher;
    Collector collector(&dispatcher);
    collector.connectEvent(1, &collector, static_cast<YEventCallback>(&Collector::onNumbered));
    constexpr int producers = 4;
    constexpr int perProducer = 5000;
    std::atomic<int> running {producers};
    std::vector<std::thread> threads;
    for (int p = 0; p < producers; ++p) {
        threads.emplace_back([&dispatcher, &running, p] {
            for (int i = 0; i < perProducer; ++i) {
                NumberedEvent event(1, p, i);
                dispatcher.addPendingEvent(event);
            }
            running.fetch_sub(1);
        });
    }
    // Delivery runs while the producers still add.
    while (running.load() > 0)
        dispatcher.processPendingEvent();
    for (std::thread& thread : threads)
        thread.join();
    dispatcher.processPendingEvent();

    ASSERT_EQ(std::size_t(producers * perProducer), collector._seen.size());
    std::vector<int> next(producers, 0);
    for (const std::pair<int, int>& seen : collector._seen) {
        ASSERT_EQ(next[seen.first], seen.second) << "producer " << seen.first;
        ++next[seen.first];
    }
    for (int p = 0; p < producers; ++p)
        EXPECT_EQ(perProducer, next[p]);
}
