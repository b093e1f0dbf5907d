#ifndef YOVOLIB_YEVENT_H
#define YOVOLIB_YEVENT_H

#include "yovolib_export.h"

#include <QString>

/// The base of anything an event may own. It has no clone: an event's copy shares the object.
class YOVOLIB_EXPORT YClientData
{
public:
    YClientData();
    /// Copying carries nothing over: the class has no data.
    YClientData(const YClientData&);
    YClientData& operator=(const YClientData&);
    virtual ~YClientData();
};

/// A client object that holds one text.
class YOVOLIB_EXPORT YStringClientData : public YClientData
{
public:
    YStringClientData();
    explicit YStringClientData(const QString& string);
    ~YStringClientData() override;

    const QString& getString() const { return _string; }
    void setString(const QString& string) { _string = string; }

private:
    QString _string;
};

/// A small in-process event, found by its id at the dispatcher.
class YOVOLIB_EXPORT YEvent
{
public:
    /// An event with id -1.
    YEvent();
    explicit YEvent(int id);
    /// Copies all four fields, the client object's pointer too: see clone().
    YEvent(const YEvent& other);
    /// Member-wise, like the copy: the client object held before is not deleted.
    YEvent& operator=(const YEvent& other);
    /// Deletes the client object.
    virtual ~YEvent();

    /// A shallow copy that shares the client object. Deliberately not deep (YClientData has no
    /// clone): whoever queues an event with a client object hands the object to the queued copy
    /// and clears it in the original with setClientObject(nullptr) before that dies. A subclass
    /// that carries data overrides clone.
    virtual YEvent* clone() const;

    int getEventId() const { return _eventId; }
    void setEventId(int id) { _eventId = id; }
    /// Free for the user; the library never reads or frees it.
    void* getClientData() const { return _clientData; }
    void setClientData(void* data) { _clientData = data; }
    YClientData* getClientObject() const { return _clientObject; }
    /// Plain setter: the object held before is neither deleted nor returned.
    void setClientObject(YClientData* object) { _clientObject = object; }
    bool isStopProcessing() const { return _stopProcessing; }
    /// Set by a handler to end the delivery of this event to the handlers after it.
    void setStopProcessing(bool stop) { _stopProcessing = stop; }

private:
    int _eventId;
    void* _clientData;
    YClientData* _clientObject;
    bool _stopProcessing;
};

/// The class whose member functions can be event callbacks.
class YOVOLIB_EXPORT YEventHandlerBase
{
public:
    virtual ~YEventHandlerBase();
};

/// The event callback type: a member function of a handler class, cast to this type with
/// static_cast<YEventCallback>(&MyHandler::onEvent).
typedef void (YEventHandlerBase::*YEventCallback)(YEvent&);

#endif // YOVOLIB_YEVENT_H
