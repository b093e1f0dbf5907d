#ifndef YOVOLIB_YNAMED_PIPE_H
#define YOVOLIB_YNAMED_PIPE_H

#include "yovolib_export.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <string>

/// A local, named, duplex byte stream with a time-out on every wait. There is no framing: the
/// caller tells messages apart, for instance by passing a message's length to readMsg(). Failures
/// are results plus getLastErrorCode(); nothing is logged or thrown. One thread at a time.
class YOVOLIB_EXPORT YNamedPipe
{
public:
    /// The last-error code of an operation that ran out of time.
    enum
    {
        TIMED_OUT = -2
    };

    /// `path` is the whole path ("\\.\pipe\<name>"), stored as given.
    explicit YNamedPipe(const char* path);
    /// A copy shares the connection: disconnecting either ends it for both.
    YNamedPipe(const YNamedPipe& other);
    YNamedPipe& operator=(const YNamedPipe& other);
    virtual ~YNamedPipe();

    /// Writes all `size` bytes within `timeoutMs` (negative: no limit). Deliberately, a write
    /// that runs out of time leaves the last error at 0, and a write that fails after waiting
    /// leaves -2.
    virtual bool write(const void* data, unsigned int size, unsigned int* written, long timeoutMs);
    /// Reads what is there, at least one byte and at most `size`, waiting up to `timeoutMs`
    /// (negative: no limit); -2 when nothing came in time.
    virtual bool read(void* data, unsigned int size, unsigned int* received, long timeoutMs);
    /// Exactly `size` bytes within `timeoutSeconds`, or false with `out` untouched. Reads in
    /// slices of one second and goes on until the deadline whatever a read reports.
    virtual bool readMsg(unsigned int size, QByteArray& out, long timeoutSeconds);
    /// Ends this end of the connection.
    virtual void disconnect() = 0;

    /// The whole path.
    const char* getPipePath() const { return _pipePath.c_str(); }
    /// 0, an errno value, or -2 for a time-out.
    int getLastErrorCode() const { return _lastError; }
    /// Sets the last-error code.
    void setLastError(int error) { _lastError = error; }
    /// "Operation timed out" for -2, otherwise the system's text for the code.
    QString getLastErrorString() const;
    /// True when the last error says that the other end has gone.
    bool isLostConnection() const;

    /// The value of a handle that names nothing, -1.
    static void* invalidHandle() { return reinterpret_cast<void*>(intptr_t(-1)); }

protected:
    void setPipePath(const char* path) { _pipePath = path ? path : ""; }
    /// Takes over the connection `handle` (one reference to it).
    void setPipeHandle(void* handle) { _handle = handle; }
    bool hasHandle() const { return _handle != invalidHandle(); }
    /// Gives up this object's share of the connection and forgets it.
    void closeHandle(bool flushFirst);

    void* _handle;
    std::string _pipePath;
    int _lastError;
};

/// The client end: connects to "\\.\pipe\<name>".
class YOVOLIB_EXPORT YNamedPipeClient : public YNamedPipe
{
public:
    /// The second argument is accepted and not used.
    YNamedPipeClient(const char* name, QByteArray unused = QByteArray());
    /// disconnect().
    ~YNamedPipeClient() override;

    /// Closes the connection if there is one; the last error becomes 0.
    void disconnect() override;
    /// Connects, waiting up to 20 seconds while the server has no room; the argument is not used.
    virtual bool connect(long unused = 0);
    /// True while a connection is held.
    virtual bool isConnected() { return hasHandle(); }
};

/// The server end of one accepted client, made by YNamedPipeConnectionsServer.
class YOVOLIB_EXPORT YNamedPipeServer : public YNamedPipe
{
public:
    /// `path` is the whole path.
    explicit YNamedPipeServer(const char* path);
    /// disconnect().
    ~YNamedPipeServer() override;

    /// Takes over a connection handle.
    void setHandle(void* handle) { setPipeHandle(handle); }
    /// Waits until the client has read all that was written, then ends the connection.
    void disconnect() override;
};

/// Makes pipe instances under one name and hands each client that connects over as a
/// YNamedPipeServer. The usual loop keeps a pending instance between calls:
///
///     void* pending = YNamedPipe::invalidHandle();
///     for (;;) {
///         YNamedPipe* pipe = server.waitForNewConnection(200, &pending);
///         if (!pipe)
///             continue; // -2: nobody came yet; the same instance waits on
///         pending = YNamedPipe::invalidHandle(); // it belongs to `pipe` now
///         ...
///     }
class YOVOLIB_EXPORT YNamedPipeConnectionsServer
{
public:
    /// Serves "\\.\pipe\<name>".
    explicit YNamedPipeConnectionsServer(const char* name);
    /// A copy has a path of its own.
    YNamedPipeConnectionsServer(const YNamedPipeConnectionsServer& other);
    YNamedPipeConnectionsServer& operator=(const YNamedPipeConnectionsServer& other);
    /// shutdown().
    virtual ~YNamedPipeConnectionsServer();

    /// The next client within `timeoutMs` (negative: no limit), or null. With a pending
    /// instance, an instance that timed out is kept there for the next call; with null, a fresh
    /// instance is made and given up each time. The caller owns the returned pipe.
    YNamedPipe* waitForNewConnection(int timeoutMs, void** pendingInstance);
    /// Forgets the path; instances already made stay open. Always true.
    bool shutdown();
    /// Gives up an instance that a time-out left pending.
    static void closePendingInstance(void* instance);

    /// The whole path; null after shutdown().
    char* getPipePath() const { return _pipePath; }
    /// 0, an errno value, or -2 for a time-out; not reset between calls.
    int getLastErrorCode() const { return _lastError; }
    /// The same words as YNamedPipe::getLastErrorString().
    QString getLastErrorString() const;

protected:
    void setLastError(int error) { _lastError = error; }

private:
    void* initNewInstance();

    int _lastError;
    char* _pipePath;
    void* _handle;
};

#endif // YOVOLIB_YNAMED_PIPE_H
