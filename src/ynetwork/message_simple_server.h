#ifndef YOVOLIB_MESSAGE_SIMPLE_SERVER_H
#define YOVOLIB_MESSAGE_SIMPLE_SERVER_H

#include "ip_verifier.h"
#include "yovolib_export.h"

#include <QStringList>
#include <QTcpServer>

#include <atomic>

class YMessageHandler;
class YMessageHandlerFactory;

/// A blocking request and response service for typed messages: one connection at a time, one
/// message per connection, the response (if any) on the same socket. A YException costs only the
/// connection that caused it.
class YOVOLIB_EXPORT YMessageSimpleServer : public QTcpServer
{
    Q_OBJECT
public:
    /// Listens on every address at the port (0 picks a free one); throws YException with the
    /// listener's error when that fails. The verifier is built from the masks and kept, but the
    /// loop serves every address that reaches the port.
    YMessageSimpleServer(unsigned int port, QStringList allowedMasks);
    ~YMessageSimpleServer();

    /// The loop; blocks the caller, which owns this object's thread.
    void start();
    /// Ends start() when the loop next comes to its test, that is after one more connection.
    void stop();

    /// Forwarded to the process's handler factory.
    void registerMessageHandler(const QString& name, YMessageHandler* handler);
    void deregisterMessageHandler(const QString& name);

private:
    YMessageHandlerFactory* _factory;
    std::atomic<bool> _running;
    YIpVerifier _ipVerifier;
};

#endif // YOVOLIB_MESSAGE_SIMPLE_SERVER_H
