// Operating-system independent part of the named pipes: the rules of the stream, the time-outs
// of readMsg and the instance protocol of the connections server. The sockets are in
// ynamed_pipe_posix.cpp.
#include "ynamed_pipe.h"

#include "ynamed_pipe_p.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace {

const int BUSY_WAIT_MS = 20000;
const long READ_SLICE_MS = 1000;

QString pipePathFor(const char* name)
{
    return QStringLiteral("\\\\.\\pipe\\%1").arg(QString::fromLocal8Bit(name ? name : ""));
}

QString errorText(int error)
{
    if (error == YNamedPipe::TIMED_OUT)
        return QStringLiteral("Operation timed out");
    return qt_error_string(error);
}

} // namespace

// ---------------------------------------------------------------------------------------------
// YNamedPipe

YNamedPipe::YNamedPipe(const char* path)
    : _handle(invalidHandle())
    , _pipePath(path ? path : "")
    , _lastError(0)
{
}

YNamedPipe::YNamedPipe(const YNamedPipe& other)
    : _handle(other._handle)
    , _pipePath(other._pipePath)
    , _lastError(other._lastError)
{
    if (hasHandle())
        YNamedPipeSys::reference(_handle);
}

YNamedPipe& YNamedPipe::operator=(const YNamedPipe& other)
{
    if (this == &other)
        return *this;
    if (other.hasHandle())
        YNamedPipeSys::reference(other._handle);
    if (hasHandle())
        YNamedPipeSys::release(_handle);
    _handle = other._handle;
    _pipePath = other._pipePath;
    _lastError = other._lastError;
    return *this;
}

YNamedPipe::~YNamedPipe()
{
    // The subclasses' destructors disconnect; this only catches a handle that a subclass of
    // the user's own left behind.
    if (hasHandle())
        YNamedPipeSys::release(_handle);
}

void YNamedPipe::closeHandle(bool flushFirst)
{
    if (!hasHandle())
        return;
    if (flushFirst)
        YNamedPipeSys::flush(_handle);
    YNamedPipeSys::shutdown(_handle);
    YNamedPipeSys::release(_handle);
    _handle = invalidHandle();
}

bool YNamedPipe::write(const void* data, unsigned int size, unsigned int* written, long timeoutMs)
{
    _lastError = 0;
    if (!hasHandle()) {
        _lastError = EBADF;
        return false;
    }
    unsigned int count = 0;
    int error = 0;
    switch (YNamedPipeSys::write(_handle, data, size, &count, timeoutMs, &error)) {
    case YNamedPipeSys::Done:
        if (written)
            *written = count;
        return true;
    case YNamedPipeSys::Failed:
        _lastError = error;
        return false;
    case YNamedPipeSys::TimedOut:
        // kept: pipe-write-timeout-error-zero
        // Deliberately what the thread's last error holds after a wait that ran out: nothing.
        _lastError = 0;
        return false;
    case YNamedPipeSys::FailedAfterWait:
        _lastError = TIMED_OUT;
        return false;
    }
    return false;
}

bool YNamedPipe::read(void* data, unsigned int size, unsigned int* received, long timeoutMs)
{
    _lastError = 0;
    if (!hasHandle()) {
        _lastError = EBADF;
        return false;
    }
    unsigned int count = 0;
    int error = 0;
    switch (YNamedPipeSys::read(_handle, data, size, &count, timeoutMs, &error)) {
    case YNamedPipeSys::Done:
        if (received)
            *received = count;
        return true;
    case YNamedPipeSys::TimedOut:
        _lastError = TIMED_OUT;
        return false;
    case YNamedPipeSys::Failed:
    case YNamedPipeSys::FailedAfterWait:
        _lastError = error;
        return false;
    }
    return false;
}

bool YNamedPipe::readMsg(unsigned int size, QByteArray& out, long timeoutSeconds)
{
    if (size == 0xFFFFFFFFu)
        return false;
    // The message goes into a QByteArray in the end, which can't hold more than this.
    if (size > unsigned(INT_MAX) - 64) {
        _lastError = ENOMEM;
        return false;
    }
    char* buffer = static_cast<char*>(malloc(size ? size : 1));
    if (!buffer) {
        _lastError = ENOMEM;
        return false;
    }
    const qint64 deadline = YNamedPipeSys::nowMicroseconds() + qint64(timeoutSeconds) * 1000000;
    unsigned int got = 0;
    qint64 now = YNamedPipeSys::nowMicroseconds();
    while (now < deadline && got < size) {
        unsigned int count = 0;
        if (read(buffer + got, size - got, &count, READ_SLICE_MS)) {
            got += count;
        } else if (_lastError != TIMED_OUT) {
            // Deliberately the loop runs on to the deadline even on a lost connection; the
            // pause only keeps that from burning a processor.
            YNamedPipeSys::sleepMilliseconds(1);
        }
        now = YNamedPipeSys::nowMicroseconds();
    }
    const bool complete = got == size;
    if (complete)
        out = QByteArray(buffer, int(size));
    free(buffer);
    return complete;
}

QString YNamedPipe::getLastErrorString() const
{
    return errorText(_lastError);
}

bool YNamedPipe::isLostConnection() const
{
    return YNamedPipeSys::isLostConnectionError(_lastError);
}

// ---------------------------------------------------------------------------------------------
// YNamedPipeClient

YNamedPipeClient::YNamedPipeClient(const char* name, QByteArray)
    : YNamedPipe(pipePathFor(name).toLocal8Bit().constData())
{
}

YNamedPipeClient::~YNamedPipeClient()
{
    disconnect();
}

void YNamedPipeClient::disconnect()
{
    _lastError = 0;
    closeHandle(false);
}

bool YNamedPipeClient::connect(long)
{
    _lastError = 0;
    if (hasHandle())
        closeHandle(false);
    YNamedPipeSys::Result result = YNamedPipeSys::Failed;
    int error = 0;
    void* handle = YNamedPipeSys::connect(getPipePath(), BUSY_WAIT_MS, &result, &error);
    if (!handle) {
        _lastError = result == YNamedPipeSys::TimedOut ? TIMED_OUT : error;
        return false;
    }
    setPipeHandle(handle);
    return true;
}

// ---------------------------------------------------------------------------------------------
// YNamedPipeServer

YNamedPipeServer::YNamedPipeServer(const char* path)
    : YNamedPipe(path)
{
}

YNamedPipeServer::~YNamedPipeServer()
{
    disconnect();
}

void YNamedPipeServer::disconnect()
{
    _lastError = 0;
    closeHandle(true);
}

// ---------------------------------------------------------------------------------------------
// YNamedPipeConnectionsServer

YNamedPipeConnectionsServer::YNamedPipeConnectionsServer(const char* name)
    : _lastError(0)
    , _pipePath(strdup(pipePathFor(name).toLocal8Bit().constData()))
    , _handle(YNamedPipe::invalidHandle())
{
}

// A copy gets a path of its own, so that either may be destroyed first.
YNamedPipeConnectionsServer::YNamedPipeConnectionsServer(const YNamedPipeConnectionsServer& other)
    : _lastError(other._lastError)
    , _pipePath(other._pipePath ? strdup(other._pipePath) : nullptr)
    , _handle(other._handle)
{
}

YNamedPipeConnectionsServer& YNamedPipeConnectionsServer::operator=(
    const YNamedPipeConnectionsServer& other)
{
    if (this == &other)
        return *this;
    free(_pipePath);
    _lastError = other._lastError;
    _pipePath = other._pipePath ? strdup(other._pipePath) : nullptr;
    _handle = other._handle;
    return *this;
}

YNamedPipeConnectionsServer::~YNamedPipeConnectionsServer()
{
    shutdown();
}

bool YNamedPipeConnectionsServer::shutdown()
{
    free(_pipePath);
    _pipePath = nullptr;
    _handle = YNamedPipe::invalidHandle();
    return true;
}

void YNamedPipeConnectionsServer::closePendingInstance(void* instance)
{
    if (instance && instance != YNamedPipe::invalidHandle() && YNamedPipeSys::isOpen(instance))
        YNamedPipeSys::release(instance);
}

void* YNamedPipeConnectionsServer::initNewInstance()
{
    int error = 0;
    void* instance = YNamedPipeSys::newInstance(_pipePath, &error);
    if (!instance) {
        _lastError = error;
        return YNamedPipe::invalidHandle();
    }
    return instance;
}

QString YNamedPipeConnectionsServer::getLastErrorString() const
{
    return errorText(_lastError);
}

YNamedPipe* YNamedPipeConnectionsServer::waitForNewConnection(int timeoutMs, void** pendingInstance)
{
    void* instance = YNamedPipe::invalidHandle();
    if (pendingInstance && *pendingInstance != YNamedPipe::invalidHandle()) {
        instance = *pendingInstance;
        // A handle that was closed meanwhile names nothing any more.
        if (!YNamedPipeSys::isOpen(instance)) {
            _lastError = EBADF;
            return nullptr;
        }
    } else {
        instance = initNewInstance();
        if (instance == YNamedPipe::invalidHandle())
            return nullptr; // initNewInstance() has set the error
    }

    // An instance handed out before and used again holds its client already: it is given out
    // once more, sharing the connection, as the pipe system does for an instance connected
    // before the wait.
    if (YNamedPipeSys::isConnected(instance)) {
        YNamedPipeSys::reference(instance);
        YNamedPipeServer* pipe = new YNamedPipeServer(_pipePath);
        pipe->setHandle(instance);
        return pipe;
    }

    int error = 0;
    const YNamedPipeSys::Result result = YNamedPipeSys::accept(instance, timeoutMs, &error);
    if (result == YNamedPipeSys::Done) {
        YNamedPipeServer* pipe = new YNamedPipeServer(_pipePath);
        pipe->setHandle(instance);
        return pipe;
    }
    if (pendingInstance)
        *pendingInstance = instance; // still waiting for its client, for the next call
    else
        YNamedPipeSys::release(instance);
    _lastError = result == YNamedPipeSys::TimedOut ? YNamedPipe::TIMED_OUT : error;
    return nullptr;
}
