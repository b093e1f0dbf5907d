// Operating-system independent: subscriptions, immediate delivery and the pending queue.
#include "yevent_dispatcher.h"

#include "yexception.h"
#include "ysanitizer_p.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace {

std::atomic<YEventDispatcher*> globalDispatcher {nullptr};

// The global dispatcher publishes itself while it lives, so that handlers destroyed after it at
// process exit don't reach a destroyed object.
struct GlobalDispatcher
{
    GlobalDispatcher() { globalDispatcher.store(&dispatcher); }
    ~GlobalDispatcher() { globalDispatcher.store(nullptr); }
    YEventDispatcher dispatcher;
};

// Holds the pending queue's QMutex and tells the race detector about it.
class PendingLocker
{
public:
    explicit PendingLocker(QMutex& mutex)
        : _mutex(mutex)
    {
        _mutex.lock();
        YOVO_TSAN_ACQUIRE(&_mutex);
    }
    ~PendingLocker()
    {
        YOVO_TSAN_RELEASE(&_mutex);
        _mutex.unlock();
    }
    PendingLocker(const PendingLocker&) = delete;
    PendingLocker& operator=(const PendingLocker&) = delete;

private:
    QMutex& _mutex;
};

// The subscription table of a dispatcher is read by every delivery and changed by subscribers on
// any thread. The locks live here, striped by the dispatcher's address, so that the class keeps
// its layout; none is held while a handler runs, so a handler may subscribe, unsubscribe or
// deliver on any dispatcher without deadlock.
std::mutex& tableMutex(const YEventDispatcher* dispatcher)
{
    static std::mutex stripes[16];
    return stripes[(reinterpret_cast<std::uintptr_t>(dispatcher) >> 4) % 16];
}

} // namespace

// ---------------------------------------------------------------------------------------------
// YEventHandler

YEventHandler::YEventHandler(YEventDispatcher* dispatcher)
    : _dispatcher(dispatcher)
{
}

YEventHandler::~YEventHandler()
{
    YEventDispatcher* dispatcher = _dispatcher ? _dispatcher : YEventDispatcher::globalIfAlive();
    if (dispatcher)
        dispatcher->disconnectAll(this);
}

YEventDispatcher* YEventHandler::getDispatcher() const
{
    return _dispatcher ? _dispatcher : &YEventDispatcher::get();
}

void YEventHandler::connectEvent(int id, YEventHandler* handler, YEventCallback callback)
{
    getDispatcher()->connectEvent(id, handler, callback);
}

void YEventHandler::disconnectEvent(int id, YEventHandler* handler, YEventCallback callback)
{
    getDispatcher()->disconnectEvent(id, handler, callback);
}

void YEventHandler::connectEventsRange(
    int first, int last, YEventHandler* handler, YEventCallback callback)
{
    // Counted in a wider type, so that a range ending at INT_MAX ends.
    for (long long id = first; id <= last; ++id)
        connectEvent(int(id), handler, callback);
}

void YEventHandler::disconnectEventsRange(
    int first, int last, YEventHandler* handler, YEventCallback callback)
{
    for (long long id = first; id <= last; ++id)
        disconnectEvent(int(id), handler, callback);
}

int YEventHandler::newId()
{
    return getDispatcher()->newId();
}

// ---------------------------------------------------------------------------------------------
// YEventDispatcher

YEventDispatcher& YEventDispatcher::get()
{
    static GlobalDispatcher global;
    return global.dispatcher;
}

YEventDispatcher* YEventDispatcher::globalIfAlive()
{
    return globalDispatcher.load();
}

YEventDispatcher::YEventDispatcher()
    : _logStream(YDebug::STDERR)
    // kept: first-event-id
    , _nextId(59678)
{
}

YEventDispatcher::~YEventDispatcher()
{
    for (YEvent* event : _pendingEvents)
        delete event;
}

Q_NEVER_INLINE int YEventDispatcher::newId()
{
    // Unguarded: ids are drawn at start-up, before threads share the dispatcher. Kept out of line
    // so that the race detector's suppression can name it.
    return ++_nextId;
}

void YEventDispatcher::connectEvent(int id, YEventHandler* handler, YEventCallback callback)
{
    std::lock_guard<std::mutex> locker(tableMutex(this));
    _eventTable[id].push_back(Subscription(handler, callback));
}

void YEventDispatcher::disconnectEvent(int id, YEventHandler* handler, YEventCallback callback)
{
    std::lock_guard<std::mutex> locker(tableMutex(this));
    EventTable::iterator row = _eventTable.find(id);
    if (row == _eventTable.end())
        return;
    std::vector<Subscription>& subscriptions = row->second;
    for (std::vector<Subscription>::iterator it = subscriptions.begin();
         it != subscriptions.end();) {
        if (it->first == handler && it->second == callback)
            it = subscriptions.erase(it);
        else
            ++it;
    }
}

void YEventDispatcher::disconnectAll(YEventHandler* handler)
{
    std::lock_guard<std::mutex> locker(tableMutex(this));
    for (EventTable::value_type& row : _eventTable) {
        std::vector<Subscription>& subscriptions = row.second;
        for (std::vector<Subscription>::iterator it = subscriptions.begin();
             it != subscriptions.end();) {
            if (it->first == handler)
                it = subscriptions.erase(it);
            else
                ++it;
        }
    }
}

// The subscription at the index, copied under the table's lock; false past the end.
bool YEventDispatcher::subscriptionAt(
    const std::vector<Subscription>& row, std::size_t index, Subscription& out)
{
    std::lock_guard<std::mutex> locker(tableMutex(this));
    if (index >= row.size())
        return false;
    out = row[index];
    return true;
}

void YEventDispatcher::processEvent(YEvent& event)
{
    std::vector<Subscription>* subscriptions = nullptr;
    {
        std::lock_guard<std::mutex> locker(tableMutex(this));
        EventTable::iterator row = _eventTable.find(event.getEventId());
        if (row == _eventTable.end())
            return;
        // Rows are never removed, so the row outlives whatever the handlers do to the table.
        subscriptions = &row->second;
    }
    try {
        // kept: erasure-skips-next
        // The size is read on every round on purpose: a subscription added by a handler is
        // reached in this same round, and one erased makes the next be skipped. A copy, since
        // the handler may grow the vector and move its elements.
        Subscription subscription;
        for (std::size_t i = 0; subscriptionAt(*subscriptions, i, subscription); ++i) {
            (subscription.first->*subscription.second)(event);
            if (event.isStopProcessing())
                break;
        }
    } catch (const YException& e) {
        YLOG_ERROR(_logStream) << "YEventDispatcher::processEvent: Uncaught exception." << e.what()
                               << yflush;
    }
}

void YEventDispatcher::addPendingEvent(YEvent& event)
{
    PendingLocker locker(_pendingMutex);
    _pendingEvents.push_back(event.clone());
}

namespace {

// The events taken from the queue for one round. Should a foreign exception leave a handler, the
// events not yet delivered are lost, as they are meant to be, but still freed.
struct PendingBatch
{
    ~PendingBatch()
    {
        for (YEvent* event : events)
            delete event;
    }
    std::deque<YEvent*> events;
};

} // namespace

void YEventDispatcher::processPendingEvent()
{
    PendingBatch batch;
    {
        // Events queued while this round delivers wait for the next call.
        PendingLocker locker(_pendingMutex);
        batch.events.swap(_pendingEvents);
    }
    while (!batch.events.empty()) {
        std::unique_ptr<YEvent> event(batch.events.front());
        batch.events.pop_front();
        processEvent(*event);
    }
}
