// Operating-system independent: events and what they may carry.
#include "yevent.h"

YClientData::YClientData() = default;

YClientData::YClientData(const YClientData&) { }

YClientData& YClientData::operator=(const YClientData&)
{
    return *this;
}

YClientData::~YClientData() = default;

YStringClientData::YStringClientData() = default;

YStringClientData::YStringClientData(const QString& string)
    : _string(string)
{
}

YStringClientData::~YStringClientData() = default;

YEvent::YEvent()
    : YEvent(-1)
{
}

YEvent::YEvent(int id)
    : _eventId(id)
    , _clientData(nullptr)
    , _clientObject(nullptr)
    , _stopProcessing(false)
{
}

YEvent::YEvent(const YEvent& other) = default;

YEvent& YEvent::operator=(const YEvent& other) = default;

YEvent::~YEvent()
{
    delete _clientObject;
}

YEvent* YEvent::clone() const
{
    return new YEvent(*this);
}

YEventHandlerBase::~YEventHandlerBase() = default;
