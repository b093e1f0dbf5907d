#ifndef YOVOLIB_MESSAGE_HANDLER_H
#define YOVOLIB_MESSAGE_HANDLER_H

#include "yovolib_export.h"

#include <QHash>
#include <QString>

class YMessage;

/// What a daemon does with a message of one class.
class YOVOLIB_EXPORT YMessageHandler
{
public:
    /// The response, which the caller sends and deletes, or null for none. The message stays the
    /// caller's.
    virtual YMessage* handleMessage(YMessage* message) = 0;
    virtual ~YMessageHandler() = 0;
};

/// The process-wide table of handlers by message class name. No lock: handlers are registered
/// before a server starts.
class YOVOLIB_EXPORT YMessageHandlerFactory
{
public:
    /// The key of the start handler, "START_MESSAGE_DUMMY_NAME".
    static const QString START_MESSAGE_DUMMY_NAME;

    /// Made at the first call, without a lock, and never freed.
    static YMessageHandlerFactory* getInstance();

    /// Replaces an entry of the same name without deleting the old handler.
    void registerMessageHandler(const QString& name, YMessageHandler* handler);
    /// Removes the entry; the handler is not deleted.
    void deregisterMessageHandler(const QString& name);
    /// The handler, or null.
    YMessageHandler* getHandler(const QString& name);
    void registerStartMessageHandler(YMessageHandler* handler);
    void deregisterStartMessageHandler();
    YMessageHandler* getStartMessageHandler();
    /// Deletes every handler and empties the table: the one place where the factory owns them.
    void freeAllHandlers();

private:
    YMessageHandlerFactory() = default;
    YMessageHandlerFactory(const YMessageHandlerFactory&) = delete;
    YMessageHandlerFactory& operator=(const YMessageHandlerFactory&) = delete;

    QHash<QString, YMessageHandler*> _handlers;

    static YMessageHandlerFactory* _factory;
};

#endif // YOVOLIB_MESSAGE_HANDLER_H
