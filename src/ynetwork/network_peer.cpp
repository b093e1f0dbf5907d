#include "network_peer.h"

#include "network_peer_p.h"
#include "yassert.h"
#include "yexception.h"

#include <QDebug>

namespace {

const int IO_WAIT_MS = 30000;
const int DISCONNECT_WAIT_MS = 1000;

} // namespace

YNetworkPeer::YNetworkPeer(QObject* parent)
    : QTcpSocket(parent)
{
}

YNetworkPeer::~YNetworkPeer()
{
    if (state() == QAbstractSocket::ConnectedState) {
        try {
            disconnect();
        } catch (const YException&) {
            // Nothing is left to tell in a destructor.
        }
    }
}

void YNetworkPeer::connect(const char* host, unsigned short port)
{
    try {
        if (state() == QAbstractSocket::ConnectedState)
            throw YException(
                "The socket is already connected. Please disconnect first.", __FILE__, __LINE__);
        connectRaw(host, port);
    } catch (const YException& e) {
        throw YException(QStringLiteral("Connection error to %1:%2 (%3)")
                             .arg(QString::fromLocal8Bit(host))
                             .arg(port)
                             .arg(QString::fromLocal8Bit(e.what())));
    }
}

void YNetworkPeer::connectRaw(const char* host, unsigned short port)
{
    const int descriptor = ynetworkpeer::connectSys(host, port);
    if (!setSocketDescriptor(descriptor, QAbstractSocket::ConnectedState, QIODevice::ReadWrite)) {
        ynetworkpeer::closeSys(descriptor);
        throw YException(
            QStringLiteral("Can't set socket descriptor: ") + errorString(), __FILE__, __LINE__);
    }
    if (!(state() == QAbstractSocket::ConnectedState))
        failedAssertion(__FILE__, __LINE__, "state() == QAbstractSocket::ConnectedState", nullptr,
            YDebug::STDERR);
}

void YNetworkPeer::connect(const QUrl& url)
{
    if (url.scheme() != QLatin1String("tcp"))
        throw YException(
            QStringLiteral("Unsupported protocol: %1").arg(url.scheme()), __FILE__, __LINE__);
    const QByteArray host = url.host().toLocal8Bit();
    connect(host.constData(), static_cast<unsigned short>(url.port()));
}

void YNetworkPeer::disconnect()
{
    disconnectFromHost();
    if (state() == QAbstractSocket::ConnectedState) {
        if (waitForDisconnected(DISCONNECT_WAIT_MS))
            abort();
    }
}

void YNetworkPeer::sendInt32(int value)
{
    const unsigned int word = ynetworkpeer::toNetworkOrderSys(static_cast<unsigned int>(value));
    sendBuffer(&word, sizeof(word));
}

int YNetworkPeer::receiveInt32()
{
    unsigned int word = 0;
    receiveBuffer(&word, sizeof(word));
    return static_cast<int>(ynetworkpeer::fromNetworkOrderSys(word));
}

void YNetworkPeer::sendBuffer(const void* data, unsigned long long size)
{
    const char* bytes = static_cast<const char*>(data);
    while (size > 0) {
        const qint64 written = write(bytes, static_cast<qint64>(size));
        qDebug() << "sent: " << written << "bytes";
        if (written <= 0 || !waitForBytesWritten(IO_WAIT_MS)) {
            const QString error = errorString();
            disconnect();
            throw YException(QStringLiteral("Write error: ") + error, __FILE__, __LINE__);
        }
        bytes += written;
        size -= static_cast<unsigned long long>(written);
    }
}

void YNetworkPeer::receiveBuffer(void* data, unsigned long long size)
{
    char* bytes = static_cast<char*>(data);
    unsigned long long length = size;
    while (length > 0) {
        if (bytesAvailable() == 0 && !waitForReadyRead(IO_WAIT_MS)) {
            if (error() == QAbstractSocket::SocketTimeoutError) {
                disconnect();
                throw YException(QStringLiteral("Network timeout error (%1)").arg(IO_WAIT_MS),
                    __FILE__, __LINE__);
            }
            const QString error = errorString();
            disconnect();
            throw YException(QStringLiteral("Network error while waiting for read: ") + error,
                __FILE__, __LINE__);
        }
        const qint64 got = read(bytes, static_cast<qint64>(length));
        if (got < 0) {
            const QString error = errorString();
            disconnect();
            throw YException(QStringLiteral("Read network error: ") + error, __FILE__, __LINE__);
        }
        bytes += got;
        length -= static_cast<unsigned long long>(got);
    }
    if (!(length == 0))
        failedAssertion(__FILE__, __LINE__, "length == 0", nullptr, YDebug::STDERR);
}
