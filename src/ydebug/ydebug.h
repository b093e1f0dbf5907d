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

class YPrintable;

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

    YDebug(const YDebug& other) = default;
    YDebug& operator=(const YDebug& other) = default;
    /// Flushes only when printed text is pending; cached text needs an explicit flush.
    ~YDebug();

    // Writing.
    YDebug& operator<<(bool value);
    YDebug& operator<<(char value);
    YDebug& operator<<(QChar value);
    YDebug& operator<<(short value);
    YDebug& operator<<(unsigned short value);
    YDebug& operator<<(int value);
    YDebug& operator<<(unsigned int value);
    YDebug& operator<<(long value);
    YDebug& operator<<(unsigned long value);
    YDebug& operator<<(long long value);
    YDebug& operator<<(unsigned long long value);
    YDebug& operator<<(float value);
    YDebug& operator<<(double value);
    YDebug& operator<<(const char* value);
    YDebug& operator<<(const QString& value);
    YDebug& operator<<(QLatin1String value);
    YDebug& operator<<(const QByteArray& value);
    YDebug& operator<<(const YPrintable& value);
    /// Deliberately, the printed line gets a single byte here, the pointer's low byte; only the
    /// cache gets the pointer as a number.
    YDebug& operator<<(const void* value);
    YDebug& operator<<(YDebug& (*manipulator)(YDebug&)) { return manipulator(*this); }

    /// The value itself, so that a temporary can be used as a reference.
    YDebug& appendf() { return *this; }
    /// printf-style text, behind the line's header.
    YDebug& appendf(const char* format, ...) __attribute__((format(printf, 2, 3)));
    YDebug& space();
    YDebug& nospace();
    void setHexMode(bool hexMode) { _hexMode = hexMode; }
    void flush();

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
    // The constructor behind _inactive: active only when the level would print on the sink.
    YDebug(StreamId stream, debug_level_t level);
    // A live value on a sink.
    YDebug(YDebugSink* sink, debug_level_t level, int errorId);

    static YDebug makeStandardSinks();
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
    void handleCache(const char* item, int size);
    YDebug& writeNumber(long long value);
    YDebug& writeNumber(unsigned long long value);
    void appendCacheHeader();
    void dumpCache(const char* item, int size);
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

/// Ends a statement: writes the line and flushes the stream.
YOVOLIB_EXPORT YDebug& yflush(YDebug& value);

/// The one form of a log statement. A hidden statement costs a level comparison, a copy of the
/// inactive value and the conversion of its items.
#define YLOG(stream, level)                                                                        \
    ((YDebug::getDebugLevel(stream) < (level)) ? YDebug::doHandleCacheEnabled((stream), (level))   \
                                               : YDebug::create((stream), (level)))                \
        .appendf()

/// A statement with an error id, which prints in front of the items and can fire a cache dump.
#define YLOG_EX(errorId, stream, level)                                                            \
    ((YDebug::getDebugLevel(stream) < (level))                                                     \
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
