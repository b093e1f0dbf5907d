#include "message_handler.h"

#include <QSet>

YMessageHandler::~YMessageHandler() = default;

const QString YMessageHandlerFactory::START_MESSAGE_DUMMY_NAME
    = QStringLiteral("START_MESSAGE_DUMMY_NAME");
YMessageHandlerFactory* YMessageHandlerFactory::_factory = nullptr;

YMessageHandlerFactory* YMessageHandlerFactory::getInstance()
{
    if (!_factory)
        _factory = new YMessageHandlerFactory;
    return _factory;
}

void YMessageHandlerFactory::registerMessageHandler(const QString& name, YMessageHandler* handler)
{
    _handlers.insert(name, handler);
}

void YMessageHandlerFactory::deregisterMessageHandler(const QString& name)
{
    _handlers.remove(name);
}

YMessageHandler* YMessageHandlerFactory::getHandler(const QString& name)
{
    return _handlers.value(name, nullptr);
}

void YMessageHandlerFactory::registerStartMessageHandler(YMessageHandler* handler)
{
    registerMessageHandler(START_MESSAGE_DUMMY_NAME, handler);
}

void YMessageHandlerFactory::deregisterStartMessageHandler()
{
    deregisterMessageHandler(START_MESSAGE_DUMMY_NAME);
}

YMessageHandler* YMessageHandlerFactory::getStartMessageHandler()
{
    return getHandler(START_MESSAGE_DUMMY_NAME);
}

void YMessageHandlerFactory::freeAllHandlers()
{
    // One handler may stand under several names; it is deleted once.
    QSet<YMessageHandler*> handlers;
    for (YMessageHandler* handler : qAsConst(_handlers))
        if (handler)
            handlers.insert(handler);
    _handlers.clear();
    qDeleteAll(handlers);
}
