// The peer connects through the socket calls of the system rather than through QTcpSocket, so
// that the steps and their words are those its users know: create, resolve, connect, wait for the
// socket to become writable, read SO_ERROR. The socket is blocking, so the wait is only reached
// when a signal interrupts the connect; EINPROGRESS and EALREADY stand where the "would block"
// and "already" codes stood. Host names are resolved with the reentrant form of gethostbyname,
// as several threads may connect at once.
#include "network_peer_p.h"

#include "yexception.h"

#include <QByteArray>

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace {

QString errorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Closes the descriptor unless it has been handed on.
class DescriptorGuard
{
public:
    explicit DescriptorGuard(int descriptor)
        : _descriptor(descriptor)
    {
    }
    ~DescriptorGuard()
    {
        if (_descriptor >= 0)
            ::close(_descriptor);
    }
    DescriptorGuard(const DescriptorGuard&) = delete;
    DescriptorGuard& operator=(const DescriptorGuard&) = delete;
    int release()
    {
        const int descriptor = _descriptor;
        _descriptor = -1;
        return descriptor;
    }

private:
    int _descriptor;
};

void resolve(const char* host, sockaddr_in& address)
{
    hostent entry;
    hostent* result = nullptr;
    int error = 0;
    std::vector<char> buffer(1024);
    for (;;) {
        const int rc = gethostbyname_r(host, &entry, buffer.data(), buffer.size(), &result, &error);
        if (rc == ERANGE && buffer.size() < 65536) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        break;
    }
    if (!result || result->h_addrtype != AF_INET || !result->h_addr_list[0])
        throw YException(
            QStringLiteral("Can't resolve host") + QString::fromLocal8Bit(hstrerror(error)),
            __FILE__, __LINE__);
    std::memcpy(&address.sin_addr, result->h_addr_list[0], 4);
}

void waitUntilConnected(int descriptor)
{
    for (;;) {
        fd_set writable;
        FD_ZERO(&writable);
        FD_SET(descriptor, &writable);
        if (::select(descriptor + 1, nullptr, &writable, nullptr, nullptr) >= 0)
            break;
        const int error = errno;
        if (error == EINTR)
            continue;
        if (error != EALREADY)
            throw YException(
                QStringLiteral("select() failed: ") + errorText(error), __FILE__, __LINE__);
        break;
    }
    int value = 0;
    socklen_t length = sizeof(value);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &value, &length) != 0)
        throw YException(
            QStringLiteral("getsockopt() failed: ") + errorText(errno), __FILE__, __LINE__);
    if (value != 0)
        throw YException(
            QStringLiteral("connect() failed: ") + errorText(value), __FILE__, __LINE__);
}

} // namespace

namespace ynetworkpeer {

int connectSys(const char* host, unsigned short port)
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (descriptor < 0)
        throw YException(
            QStringLiteral("Can't create a socket: ") + errorText(errno), __FILE__, __LINE__);
    DescriptorGuard guard(descriptor);

    sockaddr_in address;
    std::memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    resolve(host, address);

    if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0)
        return guard.release();
    const int error = errno;
    if (error != EINPROGRESS && error != EINTR && error != EALREADY)
        throw YException(
            QStringLiteral("connect() failed: ") + errorText(error), __FILE__, __LINE__);
    waitUntilConnected(descriptor);
    return guard.release();
}

void closeSys(int descriptor)
{
    ::close(descriptor);
}

unsigned int toNetworkOrderSys(unsigned int value)
{
    return htonl(value);
}

unsigned int fromNetworkOrderSys(unsigned int value)
{
    return ntohl(value);
}

} // namespace ynetworkpeer
