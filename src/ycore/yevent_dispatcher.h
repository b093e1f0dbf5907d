#ifndef YOVOLIB_YEVENT_DISPATCHER_H
#define YOVOLIB_YEVENT_DISPATCHER_H

#include "ydebug.h"
#include "yevent.h"
#include "yovolib_export.h"

#include <QMutex>

#include <deque>
#include <map>
#include <utility>
#include <vector>

class YEventDispatcher;

/// Anything that subscribes member functions to events. A null dispatcher stands for the global
/// one.
class YOVOLIB_EXPORT YEventHandler : public YEventHandlerBase
{
public:
    explicit YEventHandler(YEventDispatcher* dispatcher = nullptr);
    /// Disconnects this handler from everything at getDispatcher(). Not to be run while another
    /// thread delivers events on that dispatcher.
    ~YEventHandler() override;

    /// The dispatcher given, or the global one when none was.
    YEventDispatcher* getDispatcher() const;
    /// Plain setter: subscriptions made before stay at the dispatcher they were made at.
    void setDispatcher(YEventDispatcher* dispatcher) { _dispatcher = dispatcher; }

    /// Subscribes handler's callback to the id; connecting twice delivers twice.
    void connectEvent(int id, YEventHandler* handler, YEventCallback callback);
    /// Removes every subscription of the id with this handler and callback.
    void disconnectEvent(int id, YEventHandler* handler, YEventCallback callback);
    /// connectEvent for each id from first to last, both included; nothing if last < first.
    void connectEventsRange(int first, int last, YEventHandler* handler, YEventCallback callback);
    /// disconnectEvent for each id from first to last, both included; nothing if last < first.
    void disconnectEventsRange(
        int first, int last, YEventHandler* handler, YEventCallback callback);
    /// A fresh event id from the dispatcher.
    int newId();

private:
    YEventDispatcher* _dispatcher;
};

/// Delivers events to the member functions subscribed to their ids, at once on the calling
/// thread (processEvent) or later from a queue (addPendingEvent, processPendingEvent).
///
/// Subscribing, unsubscribing and delivering may run on several threads at once: the table is
/// locked for each look at it, never while a handler runs. A handler must still outlive every
/// delivery that may reach it. newId is meant for start-up and is unguarded on purpose.
class YOVOLIB_EXPORT YEventDispatcher
{
public:
    /// The global dispatcher, made at first use and destroyed at process exit.
    static YEventDispatcher& get();

    YEventDispatcher();
    /// Deletes the events still queued.
    virtual ~YEventDispatcher();

    /// One more than the id returned before; the first is 59679.
    int newId();
    /// Delivers now, in order of connection, until a handler sets the stop flag. A YException
    /// from a handler ends the round and is logged; any other exception passes through.
    void processEvent(YEvent& event);
    /// Queues a clone of the event; callable from any thread.
    void addPendingEvent(YEvent& event);
    /// Delivers, in order of arrival, what was queued when the call began, and deletes it.
    void processPendingEvent();
    /// Where processEvent reports an exception; STDERR at first.
    void setLogStream(YDebug::StreamId stream) { _logStream = stream; }

protected:
    friend class YEventHandler;

    typedef std::pair<YEventHandler*, YEventCallback> Subscription;
    typedef std::map<int, std::vector<Subscription>> EventTable;

    void connectEvent(int id, YEventHandler* handler, YEventCallback callback);
    /// Keeps the id's row even when it becomes empty.
    void disconnectEvent(int id, YEventHandler* handler, YEventCallback callback);
    void disconnectAll(YEventHandler* handler);
    bool subscriptionAt(const std::vector<Subscription>& row, std::size_t index, Subscription& out);

    // The global dispatcher, or null before its first use and after its destruction, so that a
    // handler that outlives it at process exit has nothing to disconnect from.
    static YEventDispatcher* globalIfAlive();

    EventTable _eventTable;
    YDebug::StreamId _logStream;
    std::deque<YEvent*> _pendingEvents;
    QMutex _pendingMutex;
    int _nextId;

private:
    YEventDispatcher(const YEventDispatcher&) = delete;
    YEventDispatcher& operator=(const YEventDispatcher&) = delete;
};

#endif // YOVOLIB_YEVENT_DISPATCHER_H
