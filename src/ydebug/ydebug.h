#ifndef YOVOLIB_YDEBUG_H
#define YOVOLIB_YDEBUG_H

#include "yovolib_export.h"

#include <QByteArray>
#include <QChar>
#include <QLatin1String>
#include <QString>
#include <QStringList>

#include <atomic>
#include <cstdio>

class YMutex;
class YPrintable;
template<class Lock> class YCyclicBuffer;

/// One log statement: collects the text of a line in memory and writes it to its stream in one
/// call at the flush. Values are short-lived and belong to one thread; the streams (sinks) are a
/// fixed table of 50 slots shared by the whole process.
class YOVOLIB_EXPORT YDebug
{
public:
    enum debug_level_t
    {
        SYSTEM = -1,
        ERROR = 0,
        WARNING = 1,
        NOTICE = 2,
        DBG1 = 3,
        DBG2 = 4,
        DBG3 = 5,
        THE_LAST_DEBUG_LEVEL_SHOULD_NOT_BE_USED = 6
    };

    /// The small integer that names a stream, passed by value.
    class StreamId
    {
    public:
        constexpr StreamId()
            : _id(1)
        {
        }
        constexpr explicit StreamId(int id)
            : _id(id)
        {
        }
        constexpr int id() const { return _id; }
        constexpr bool operator==(const StreamId& other) const { return _id == other._id; }
        constexpr bool operator!=(const StreamId& other) const { return _id != other._id; }

    private:
        int _id;
    };

    static const StreamId STDOUT;
    static const StreamId STDERR;
    static constexpr int MAX_STREAMS = 50;

    class YDebugSink;

    // Making a value.
    static YDebug create(StreamId stream, debug_level_t level);
    static YDebug create_ex(int errorId, StreamId stream, debug_level_t level);
    /// For a statement below the stream's level: live when the stream's cache is on (the items
    /// then go to the cache only), otherwise a copy of the inactive value.
    static YDebug doHandleCacheEnabled(StreamId stream, debug_level_t level);
    static YDebug doHandleCacheEnabled_ex(int errorId, StreamId stream, debug_level_t level);
    static YDebug yDebugSystem(StreamId stream) { return create(stream, SYSTEM); }
    static YDebug yDebugError(StreamId stream) { return create(stream, ERROR); }
    static YDebug yDebugWarning(StreamId stream) { return create(stream, WARNING); }
    static YDebug yDebugNotice(StreamId stream) { return create(stream, NOTICE); }
    static YDebug yDebug1(StreamId stream) { return create(stream, DBG1); }
    static YDebug yDebug2(StreamId stream) { return create(stream, DBG2); }
    static YDebug yDebug3(StreamId stream) { return create(stream, DBG3); }
    static YDebug& inactive();

    /// True when a statement at this level on this stream can have no effect: the stream would
    /// hide it and keeps no cache, and the inactive value has nothing to do either. One relaxed
    /// load: the statement macros test it before anything else.
    static bool isHidden(StreamId stream, int level)
    {
        const int id = stream.id();
        return level > _hiddenAbove[unsigned(id) < unsigned(MAX_STREAMS) ? id : 1].load(
                   std::memory_order_relaxed);
    }
    /// The value of a statement that isHidden: no stream, nothing to write, made and dropped
    /// inline.
    static YDebug hiddenValue() { return YDebug(HiddenTag()); }

    YDebug(const YDebug& other) = default;
    YDebug& operator=(const YDebug& other) = default;
    /// Flushes only when printed text is pending; cached text needs an explicit flush.
    ~YDebug()
    {
        if (_sink)
            finish();
    }

    // Writing. Each item first asks whether the value is a hidden one, inline, so that a hidden
    // statement's items cost a test and nothing else; the rest is out of line. Converting these
    // items has no effect but the text, so a hidden statement may leave it out.
    YDebug& operator<<(bool value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(char value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(QChar value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(short value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(unsigned short value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(int value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(unsigned int value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(long value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(unsigned long value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(long long value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(unsigned long long value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(float value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(double value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(const char* value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(const QString& value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(QLatin1String value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(const QByteArray& value) { return _sink ? put(value) : *this; }
    /// Converts the item twice, once for the cache and once for the line, even in a hidden
    /// statement: a statement's items are evaluated whatever the level.
    YDebug& operator<<(const YPrintable& value);
    /// Deliberately, the printed line gets a single byte here, the pointer's low byte; only the
    /// cache gets the pointer as a number.
    YDebug& operator<<(const void* value) { return _sink ? put(value) : *this; }
    YDebug& operator<<(YDebug& (*manipulator)(YDebug&)) { return manipulator(*this); }

    /// The value itself, so that a temporary can be used as a reference.
    YDebug& appendf() { return *this; }
    /// printf-style text, behind the line's header.
    YDebug& appendf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    YDebug& space();
    YDebug& nospace();
    void setHexMode(bool hexMode) { _hexMode = hexMode; }
    void flush()
    {
        if (_sink)
            flushToSink();
    }

    // Streams and settings.
    /// Opens a log file in append mode. A file that can't be opened gives STDERR, silently;
    /// throws YException when all 50 slots are in use.
    static StreamId registerStream(const QByteArray& prefix, const char* fileName);
    static void unregisterStream(StreamId stream);
    /// Takes 0 to 5; anything else sets 0.
    static void setDebugLevel(StreamId stream, int level);
    static debug_level_t getDebugLevel(StreamId stream);
    /// Rotation by copy and truncate once the file exceeds the size, in mebibytes; 0 is off.
    static void setRotationSize(StreamId stream, int megabytes);
    static void setTimestampWithMilliseconds(bool withMilliseconds);
    static void setPrintProcessIdAndThreadId(bool print);
    static bool getPrintProcessIdAndThreadId();

    // The in-memory cache of hidden lines.
    static void setCacheLogifEnabledValue(StreamId stream, bool enabled);
    static bool getCacheLogifEnabledValue(StreamId stream);
    /// Effective only before the cache is switched on: an existing cache keeps its capacity.
    static void setCacheLogSize(StreamId stream, long lines);
    static long getCacheLogSize(StreamId stream);
    static void setSecForVerbosityFive(StreamId stream, unsigned int seconds);
    static unsigned int getSecForVerbosityFive(StreamId stream);
    /// Comma-separated decimal ids; empty parts are skipped.
    static void setErrorIdListBufferTrigger(StreamId stream, QString list);
    static QStringList getErrorIdListBufferTrigger(StreamId stream);
    static void setErrorIdForBufferDrop(StreamId stream, int errorId);
    static unsigned int getErrorIdForBufferDrop(StreamId stream);

    // Crash dumps.
    /// On a fatal signal, writes a minidump to <temp>/yovo_dump/p<pid>.mdmp and says so on the
    /// stream at level ERROR; the process then dies of its signal. A later call changes the stream.
    static void registerCrashHandler(StreamId stream);

protected:
    void printNewLineHeader();
    void printTimestamp(QByteArray& out) const;
    void printDebugLevel(QByteArray& out) const;
    void printProcessIdAndThreadId(QByteArray& out) const;
    void printErrorId();
    void doHandleCircularBuffer(const QByteArray& item);
    static YDebugSink* getSink(StreamId stream);
    static YDebugSink* createSink(const char* fileName, debug_level_t level, QByteArray prefix);
    static YDebugSink* createSink(FILE* stream, debug_level_t level, QByteArray prefix);

private:
    struct HiddenTag
    {
    };
    explicit YDebug(HiddenTag)
        : _sink(nullptr)
        , _level(THE_LAST_DEBUG_LEVEL_SHOULD_NOT_BE_USED)
        , _newLine(true)
        , _space(true)
        , _active(false)
        , _hexMode(false)
        , _firstInCacheLine(false)
        , _errorId(0)
        , _printErrorId(false)
    {
    }
    // The constructor behind _inactive: active only when the level would print on the sink.
    YDebug(StreamId stream, debug_level_t level);
    // A live value on a sink.
    YDebug(YDebugSink* sink, debug_level_t level, int errorId);

    static YDebug makeStandardSinks();
    // Recomputes _hiddenAbove from the sinks; run after anything that changes a sink's level,
    // its cache switch or the standard output's dump state.
    static void refreshHiddenGates();
    void finish();
    void flushToSink();
    YDebug& put(bool value);
    YDebug& put(char value);
    YDebug& put(QChar value);
    YDebug& put(short value);
    YDebug& put(unsigned short value);
    YDebug& put(int value);
    YDebug& put(unsigned int value);
    YDebug& put(long value);
    YDebug& put(unsigned long value);
    YDebug& put(long long value);
    YDebug& put(unsigned long long value);
    YDebug& put(float value);
    YDebug& put(double value);
    YDebug& put(const char* value);
    YDebug& put(const QString& value);
    YDebug& put(QLatin1String value);
    YDebug& put(const QByteArray& value);
    YDebug& put(const void* value);

    static int formatTimestamp(char* out);
    YDebug& writeItem(
        const char* cacheText, int cacheSize, const char* text, int size, bool newLine);
    YDebug& writeItem(const char* text, int size, bool newLine)
    {
        return writeItem(text, size, text, size, newLine);
    }
    YDebug& writeItem(const QByteArray& text, bool newLine)
    {
        return writeItem(text.constData(), text.size(), newLine);
    }
    // True when the item fired a dump, which then holds the item.
    bool handleCache(const char* item, int size);
    YDebug& writeNumber(long long value);
    YDebug& writeNumber(unsigned long long value);
    void appendCacheHeader();
    void dumpCache(YCyclicBuffer<YMutex>& buffer, const char* item, int size);
    void appendLineHeader(QByteArray& out) const;

    YDebugSink* _sink;
    QByteArray _cacheLine;
    debug_level_t _level;
    bool _newLine;
    bool _space;
    QByteArray _line;
    bool _active;
    bool _hexMode;
    bool _firstInCacheLine;
    int _errorId;
    bool _printErrorId;

    static YDebugSink* _sinkList[MAX_STREAMS];
    static int _nextSink;
    static YDebug _inactive;
    // Per stream id: statements above this level are hidden and inert (isHidden); the largest
    // int when every statement on the stream must take the full path.
    static std::atomic<int> _hiddenAbove[MAX_STREAMS];
    // Settings of all streams, read by every statement on any thread.
    static std::atomic<bool> _printProcessIdAndThreadId;
    static std::atomic<const char*> _timestampFormat;
    static const char* const _TIMESTAMP_FORMAT_WITHOUT_MILLISECONDS;
    static const char* const _TIMESTAMP_FORMAT_WITH_MILLISECONDS;
    // The crash handler's stream, STDERR until registerCrashHandler, and the handler that was in
    // place before ours: once one was found, later registrations don't install again.
    static StreamId _crashStream;
    static void* _previousCrashFilter;
};

typedef YDebug::debug_level_t debug_level_t;

/// Ends a statement: writes the line and flushes the stream. Inline, so that ending a hidden
/// statement is the value's own test.
inline YDebug& yflush(YDebug& value)
{
    value.flush();
    return value;
}

/// The one form of a log statement. A statement that can have no effect costs one relaxed load
/// and a branch, and its items a test each; any other hidden statement goes the full way.
#define YLOG(stream, level)                                                                        \
    (YDebug::isHidden((stream), (level)) ? YDebug::hiddenValue()                                   \
            : (YDebug::getDebugLevel(stream) < (level))                                            \
            ? YDebug::doHandleCacheEnabled((stream), (level))                                      \
            : YDebug::create((stream), (level)))                                                   \
        .appendf()

/// A statement with an error id, which prints in front of the items and can fire a cache dump.
#define YLOG_EX(errorId, stream, level)                                                            \
    (YDebug::isHidden((stream), (level)) ? YDebug::hiddenValue()                                   \
            : (YDebug::getDebugLevel(stream) < (level))                                            \
            ? YDebug::doHandleCacheEnabled_ex((errorId), (stream), (level))                        \
            : YDebug::create_ex((errorId), (stream), (level)))                                     \
        .appendf()

#define YLOG_SYSTEM(stream) YLOG(stream, YDebug::SYSTEM)
#define YLOG_ERROR(stream) YLOG(stream, YDebug::ERROR)
#define YLOG_WARNING(stream) YLOG(stream, YDebug::WARNING)
#define YLOG_NOTICE(stream) YLOG(stream, YDebug::NOTICE)
#define YLOG_DBG1(stream) YLOG(stream, YDebug::DBG1)
#define YLOG_DBG2(stream) YLOG(stream, YDebug::DBG2)
#define YLOG_DBG3(stream) YLOG(stream, YDebug::DBG3)

#endif // YOVOLIB_YDEBUG_H
