#ifndef YOVOLIB_NETWORK_PEER_H
#define YOVOLIB_NETWORK_PEER_H

#include "yovolib_export.h"

#include <QTcpSocket>
#include <QUrl>

/// The client's side of the message service: a socket that connects through the system's own
/// calls and reads and writes with fixed 30-second time-outs. Every failure is a YException, and
/// a failed send or receive disconnects first.
class YOVOLIB_EXPORT YNetworkPeer : public QTcpSocket
{
    Q_OBJECT
public:
    explicit YNetworkPeer(QObject* parent = nullptr);
    /// Disconnects when connected; a failure on the way is dropped.
    ~YNetworkPeer() override;

    /// Throws, without touching the connection, when already connected.
    void connect(const char* host, unsigned short port);
    /// Only "tcp://host:port" is taken.
    void connect(const QUrl& url);
    void disconnect();

    /// Four bytes in network order.
    void sendInt32(int value);
    int receiveInt32();
    void sendBuffer(const void* data, unsigned long long size);
    /// Fills the buffer completely or throws.
    void receiveBuffer(void* data, unsigned long long size);

private:
    void connectRaw(const char* host, unsigned short port);
};

#endif // YOVOLIB_NETWORK_PEER_H
