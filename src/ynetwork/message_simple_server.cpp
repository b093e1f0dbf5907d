#include "message_simple_server.h"

#include "message.h"
#include "message_handler.h"
#include "message_simple_server_p.h"
#include "yassert.h"
#include "yexception.h"

#include <QDataStream>
#include <QHostAddress>
#include <QPointer>
#include <QTcpSocket>

#include <iostream>

namespace {

const int WRITE_WAIT_MS = 30000;

// Lets go of a connection once its one message is served: the response is sent out first, as
// deleting a socket drops what it still buffers.
void closeServed(QTcpSocket* socket)
{
    while (socket->bytesToWrite() > 0 && socket->waitForBytesWritten(WRITE_WAIT_MS)) { }
    ymessageserver::finishConnectionSys(static_cast<int>(socket->socketDescriptor()));
    socket->abort();
    delete socket;
}

void closeFailed(QTcpSocket* socket)
{
    socket->abort();
    delete socket;
}

} // namespace

YMessageSimpleServer::YMessageSimpleServer(unsigned int port, QStringList allowedMasks)
    : QTcpServer(nullptr)
    , _factory(YMessageHandlerFactory::getInstance())
    , _running(true)
    , _ipVerifier(allowedMasks, false)
{
    // The loop takes one connection at a time; with one pending connection at most, each accept
    // stops there instead of asking the kernel once more for a connection that isn't there.
    setMaxPendingConnections(1);
    if (!listen(QHostAddress::Any, static_cast<quint16>(port)))
        throw YException(errorString());
}

YMessageSimpleServer::~YMessageSimpleServer()
{
    close();
}

void YMessageSimpleServer::start()
{
    while (_running.load(std::memory_order_relaxed)) {
        YMessage* message = nullptr;
        YMessage* response = nullptr;
        QPointer<QTcpSocket> socket;
        try {
            if (!waitForNewConnection(-1, nullptr))
                throw YException(
                    QStringLiteral("Can't wait for a new connection: ") + errorString());
            socket = nextPendingConnection();
            if (!socket)
                continue;
            QDataStream stream(socket.data());
            stream.setVersion(QDataStream::Qt_4_8);
            // kept: server-one-message-per-connection
            do {
                stream >> message;
                YMessageHandler* handler = _factory->getHandler(message->getClassName());
                if (!handler)
                    failedAssertion(__FILE__, __LINE__, "handler != 0",
                        "no handler is registered for the message's class", YDebug::STDERR);
                response = handler->handleMessage(message);
                delete message;
                message = nullptr;
                if (response) {
                    stream << response;
                    socket->flush();
                    delete response;
                    response = nullptr;
                }
            } while (response);
            closeServed(socket.data());
        } catch (const YException& e) {
            delete message;
            delete response;
            std::cerr << "Exception: " << e.what() << ". Client disconnected." << std::endl;
            if (socket)
                closeFailed(socket.data());
        }
    }
}

void YMessageSimpleServer::stop()
{
    _running.store(false, std::memory_order_relaxed);
}

void YMessageSimpleServer::registerMessageHandler(const QString& name, YMessageHandler* handler)
{
    _factory->registerMessageHandler(name, handler);
}

void YMessageSimpleServer::deregisterMessageHandler(const QString& name)
{
    _factory->deregisterMessageHandler(name);
}
