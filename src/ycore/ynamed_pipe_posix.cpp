// Named pipes on Linux.
//
// A pipe is a Unix-domain stream socket in the abstract namespace, under the pipe's whole path
// ("\\.\pipe\<name>"): an abstract name has no file to leave behind and no permissions, so that
// every account may connect, as the pipe's world-wide ACL allows on the system this library
// models. All sockets are non-blocking and every wait is a poll() with a deadline, which gives
// each read, write and wait its own time-out and lets a read in one thread and a write in
// another share a connection without disturbing each other. Writes use MSG_NOSIGNAL: a peer
// that has gone is an error code, not a SIGPIPE.
//
// The listening socket plays the pending instance. All instances of one name in a process share
// one listening socket, counted by the instances waiting on it and the connections accepted
// from it, so that it outlives the moment between one accepted client and the next instance:
// a client that connects then waits in the backlog, as it would wait for a free instance,
// instead of finding no pipe. When the last of them goes, the name goes with it.
//
// A client waiting for room on a busy server (a full backlog) is a blocking connect() under
// SO_SNDTIMEO, which is exactly the 20-second wait for a free instance. A refused connection
// means that nobody serves the name: it is reported as ENOENT, the pipe system's "not found".
#include "ynamed_pipe_p.h"

#include "yunix_p.h"

#include <QByteArray>
#include <QHash>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <linux/sockios.h>
#include <mutex>
#include <poll.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const int LISTEN_BACKLOG = 255;

struct Listener
{
    QByteArray address;
    int fd = -1;
    int users = 0;
};

struct PipeHandle
{
    std::atomic<int> references {1};
    int fd = -1; ///< the connection; -1 while an instance waits for its client
    Listener* listener = nullptr; ///< the instance's listening socket, null for a client
};

std::mutex registryMutex;
QHash<QByteArray, Listener*> listeners;
std::set<void*> openHandles;

PipeHandle* asPipe(void* handle)
{
    return static_cast<PipeHandle*>(handle);
}

bool makeAddress(const char* path, sockaddr_un* address, socklen_t* length, int* error)
{
    const size_t size = path ? strlen(path) : 0;
    if (!path || size == 0) {
        *error = EINVAL;
        return false;
    }
    if (size + 1 > sizeof(address->sun_path)) {
        *error = ENAMETOOLONG;
        return false;
    }
    memset(address, 0, sizeof(*address));
    address->sun_family = AF_UNIX;
    // sun_path[0] stays 0: the abstract namespace.
    memcpy(address->sun_path + 1, path, size);
    *length = socklen_t(offsetof(sockaddr_un, sun_path) + 1 + size);
    return true;
}

qint64 deadlineAfter(long timeoutMs)
{
    return timeoutMs < 0 ? -1 : YNamedPipeSys::nowMicroseconds() / 1000 + timeoutMs;
}

// Milliseconds left for poll(): -1 without a deadline, 0 when it has passed.
int remainingMs(qint64 deadlineMs)
{
    if (deadlineMs < 0)
        return -1;
    const qint64 left = deadlineMs - YNamedPipeSys::nowMicroseconds() / 1000;
    return left <= 0 ? 0 : int(qMin<qint64>(left, INT_MAX));
}

// 1 ready, 0 deadline passed, -1 error (errno).
int waitFor(int fd, short events, qint64 deadlineMs)
{
    for (;;) {
        pollfd p = {fd, events, 0};
        const int rc = poll(&p, 1, remainingMs(deadlineMs));
        if (rc > 0)
            return 1;
        if (rc == 0 && remainingMs(deadlineMs) == 0)
            return 0;
        if (rc < 0 && errno != EINTR)
            return -1;
        // Interrupted, or woken a little early by the rounding to milliseconds: wait on.
    }
}

void track(void* handle)
{
    std::lock_guard<std::mutex> lock(registryMutex);
    openHandles.insert(handle);
}

} // namespace

qint64 YNamedPipeSys::nowMicroseconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return qint64(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
}

void YNamedPipeSys::sleepMilliseconds(int milliseconds)
{
    timespec pause = {milliseconds / 1000, long(milliseconds % 1000) * 1000000L};
    while (nanosleep(&pause, &pause) != 0 && errno == EINTR) { }
}

bool YNamedPipeSys::isLostConnectionError(int error)
{
    return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

void* YNamedPipeSys::connect(const char* path, int busyWaitMs, Result* result, int* error)
{
    *result = Failed;
    sockaddr_un address;
    socklen_t length = 0;
    if (!makeAddress(path, &address, &length, error))
        return nullptr;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        *error = errno;
        return nullptr;
    }
    timeval busyWait = {busyWaitMs / 1000, (busyWaitMs % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &busyWait, sizeof(busyWait));
    int rc;
    Y_EINTR_LOOP(rc, ::connect(fd, reinterpret_cast<sockaddr*>(&address), length));
    if (rc != 0) {
        const int failure = errno;
        ::close(fd);
        if (failure == EAGAIN) {
            *result = TimedOut;
            *error = ETIMEDOUT;
        } else {
            *error = failure == ECONNREFUSED ? ENOENT : failure;
        }
        return nullptr;
    }
    timeval noLimit = {0, 0};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &noLimit, sizeof(noLimit));
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    PipeHandle* handle = new PipeHandle;
    handle->fd = fd;
    track(handle);
    *result = Done;
    *error = 0;
    return handle;
}

YNamedPipeSys::Result YNamedPipeSys::write(void* handle, const void* data, unsigned int size,
    unsigned int* written, long timeoutMs, int* error)
{
    const int fd = asPipe(handle)->fd;
    if (fd < 0) {
        *error = ENOTCONN;
        return Failed;
    }
    const char* bytes = static_cast<const char*>(data);
    const qint64 deadline = deadlineAfter(timeoutMs);
    unsigned int sent = 0;
    bool waited = false;
    while (sent < size) {
        const ssize_t n = send(fd, bytes + sent, size - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n >= 0) {
            sent += unsigned(n);
            continue;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            *error = errno;
            return waited ? FailedAfterWait : Failed;
        }
        waited = true;
        const int ready = waitFor(fd, POLLOUT, deadline);
        if (ready == 0)
            return TimedOut;
        if (ready < 0) {
            *error = errno;
            return FailedAfterWait;
        }
    }
    *written = sent;
    return Done;
}

YNamedPipeSys::Result YNamedPipeSys::read(
    void* handle, void* data, unsigned int size, unsigned int* received, long timeoutMs, int* error)
{
    const int fd = asPipe(handle)->fd;
    if (fd < 0) {
        *error = ENOTCONN;
        return Failed;
    }
    if (size == 0) {
        *received = 0;
        return Done;
    }
    const qint64 deadline = deadlineAfter(timeoutMs);
    bool waited = false;
    for (;;) {
        const ssize_t n = recv(fd, data, size, MSG_DONTWAIT);
        if (n > 0) {
            *received = unsigned(n);
            return Done;
        }
        if (n == 0) {
            // The other end is gone: the pipe system's "broken pipe".
            *error = EPIPE;
            return waited ? FailedAfterWait : Failed;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            *error = errno;
            return waited ? FailedAfterWait : Failed;
        }
        waited = true;
        const int ready = waitFor(fd, POLLIN, deadline);
        if (ready == 0)
            return TimedOut;
        if (ready < 0) {
            *error = errno;
            return FailedAfterWait;
        }
    }
}

void YNamedPipeSys::reference(void* handle)
{
    asPipe(handle)->references.fetch_add(1, std::memory_order_relaxed);
}

void YNamedPipeSys::flush(void* handle)
{
    const int fd = asPipe(handle)->fd;
    if (fd < 0)
        return;
    // The bytes that this end wrote stay charged to it until the other end has read them, or
    // has gone and dropped them: SIOCOUTQ counts down to 0 either way.
    for (int pause = 0;; pause = qMin(pause + 1, 10)) {
        int pending = 0;
        if (ioctl(fd, SIOCOUTQ, &pending) != 0 || pending <= 0)
            return;
        pollfd p = {fd, 0, 0};
        if (poll(&p, 1, 0) > 0 && (p.revents & (POLLHUP | POLLERR | POLLNVAL)))
            return;
        sleepMilliseconds(pause);
    }
}

void YNamedPipeSys::shutdown(void* handle)
{
    const int fd = asPipe(handle)->fd;
    if (fd >= 0)
        ::shutdown(fd, SHUT_RDWR);
}

void YNamedPipeSys::release(void* handle)
{
    PipeHandle* pipe = asPipe(handle);
    if (pipe->references.fetch_sub(1, std::memory_order_acq_rel) != 1)
        return;
    std::lock_guard<std::mutex> lock(registryMutex);
    openHandles.erase(handle);
    if (pipe->fd >= 0)
        ::close(pipe->fd);
    if (Listener* listener = pipe->listener) {
        if (--listener->users == 0) {
            ::close(listener->fd);
            listeners.remove(listener->address);
            delete listener;
        }
    }
    delete pipe;
}

void* YNamedPipeSys::newInstance(const char* path, int* error)
{
    sockaddr_un address;
    socklen_t length = 0;
    if (!makeAddress(path, &address, &length, error))
        return nullptr;
    const QByteArray key(path);
    std::lock_guard<std::mutex> lock(registryMutex);
    Listener* listener = listeners.value(key);
    if (!listener) {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (fd < 0) {
            *error = errno;
            return nullptr;
        }
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0
            || listen(fd, LISTEN_BACKLOG) != 0) {
            *error = errno;
            ::close(fd);
            return nullptr;
        }
        listener = new Listener;
        listener->address = key;
        listener->fd = fd;
        listeners.insert(key, listener);
    }
    ++listener->users;
    PipeHandle* instance = new PipeHandle;
    instance->listener = listener;
    openHandles.insert(instance);
    return instance;
}

bool YNamedPipeSys::isOpen(void* handle)
{
    std::lock_guard<std::mutex> lock(registryMutex);
    return openHandles.count(handle) != 0;
}

bool YNamedPipeSys::isConnected(void* handle)
{
    return asPipe(handle)->fd >= 0;
}

YNamedPipeSys::Result YNamedPipeSys::accept(void* instance, int timeoutMs, int* error)
{
    PipeHandle* pipe = asPipe(instance);
    if (!pipe->listener) {
        *error = EINVAL;
        return Failed;
    }
    const int listenFd = pipe->listener->fd;
    const qint64 deadline = deadlineAfter(timeoutMs);
    for (;;) {
        // First without waiting: a client that came before the call is taken at once.
        const int fd = accept4(listenFd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            pipe->fd = fd;
            return Done;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            *error = errno;
            return Failed;
        }
        // Another instance on the same socket may take the client first: then wait on.
        const int ready = waitFor(listenFd, POLLIN, deadline);
        if (ready == 0)
            return TimedOut;
        if (ready < 0) {
            *error = errno;
            return Failed;
        }
    }
}
