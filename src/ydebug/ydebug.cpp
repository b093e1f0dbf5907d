// Operating-system independent part of the debug streams; ydebug_posix.cpp has the rest.
#include "ydebug.h"

#include "ydebug_sink_p.h"
#include "yexception.h"
#include "yprintable.h"
#include "ysemaphore.h"
#include "yunix_p.h"

#include <QDir>
#include <QFileInfo>

#include <charconv>
#include <cmath>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

namespace {

const char* const DEBUG_LEVEL_STRINGS[8] = {"SYSTEM", "ERROR", "WARNING", "NOTICE", "DBG1", "DBG2",
    "DBG3", "THE_LAST_DEBUG_LEVEL_SHOULD_NOT_BE_USED"};

const int APPENDF_CHUNK = 256;

// Guards the cache settings of all sinks, and the list of trigger ids also for the statements
// that read it. A standard mutex, which the thread sanitizer understands.
std::mutex& cacheSettingsMutex()
{
    static std::mutex mutex;
    return mutex;
}

// Whether the value's id is in the sink's list of trigger ids. The list is a setting that an
// operator may replace while statements run: it is read under the settings' mutex.
bool firesDump(const YDebug::YDebugSink* sink, int errorId)
{
    std::lock_guard<std::mutex> locker(cacheSettingsMutex());
    if (sink->_errorIdListBufferTrigger.isEmpty())
        return false;
    // kept: unpadded-trigger-id
    return sink->_errorIdListBufferTrigger.contains(QString::number(errorId), Qt::CaseInsensitive);
}

void appendPadded(QByteArray& out, int errorId)
{
    out += QString::fromLatin1("%1").arg(errorId, 5, 10, QLatin1Char('0')).toLatin1();
}

void appendTwoDigits(char* out, int value)
{
    out[0] = char('0' + value / 10 % 10);
    out[1] = char('0' + value % 10);
}

// A printed line needs a buffer; each thread keeps one between its statements, so that a
// statement normally allocates nothing.
const int LINE_BUFFER_SIZE = 256;

QByteArray& spareLineBuffer()
{
    static thread_local QByteArray spare Y_INITIAL_EXEC_TLS;
    return spare;
}

// The stamp changes once a second, so each thread formats it only then.
struct TimestampCache
{
    long long second = -1;
    char text[19];
};

} // namespace

const YDebug::StreamId YDebug::STDOUT(0);
const YDebug::StreamId YDebug::STDERR(1);

YDebug::YDebugSink* YDebug::_sinkList[YDebug::MAX_STREAMS] = {};
int YDebug::_nextSink = 2;
// The two standard sinks and the inactive value must exist before any other static object of the
// process can log, so they are made first, by the initialiser of the inactive value.
YDebug YDebug::_inactive __attribute__((init_priority(101))) = YDebug::makeStandardSinks();
std::atomic<bool> YDebug::_printProcessIdAndThreadId(false);
const char* const YDebug::_TIMESTAMP_FORMAT_WITHOUT_MILLISECONDS = "dd.MM.yyyy hh:mm:ss";
const char* const YDebug::_TIMESTAMP_FORMAT_WITH_MILLISECONDS = "dd.MM.yyyy hh:mm:ss.zzz";
std::atomic<const char*> YDebug::_timestampFormat(YDebug::_TIMESTAMP_FORMAT_WITHOUT_MILLISECONDS);
std::atomic<int> YDebug::_hiddenAbove[YDebug::MAX_STREAMS] = {};

// ---------------------------------------------------------------------------------------------
// The sink

YDebug::YDebugSink::YDebugSink(FILE* file, int level, const QByteArray& prefix)
    : _level(level)
    , _file(file)
    , _prefix(prefix)
    , _rotatable(false)
    , _rotationSize(0)
    , _cacheEnabled(false)
    , _cacheLogSize(0)
    , _dropping(false)
    , _secForVerbosityFive(0)
    , _savedLevel(level)
    , _raiseTime(0)
    , _verbosityRaised(false)
    , _errorIdForBufferDrop(0)
    , _rotationSemaphore(nullptr)
    , _free(false)
    , _rotationMutex(new YMutex)
{
}

YDebug::YDebugSink::YDebugSink()
    : YDebugSink(nullptr, ERROR, QByteArray())
{
    _free = true;
}

YDebug::YDebugSink::~YDebugSink()
{
    if (_file && _file != stdout && _file != stderr)
        fclose(_file);
    delete _rotationSemaphore;
    delete _rotationMutex;
}

void YDebug::YDebugSink::write(QByteArray& line)
{
    if (!_file)
        return;
    // The rotation settings may change on another thread: they are looked at again under the
    // mutex that setRotationSize holds.
    bool rotating = false;
    if (isRotating()) {
        _rotationMutex->lock();
        rotating = isRotating() && _logFile.isOpen();
        if (rotating)
            YDebugSys::lockShared(_logFile.handle());
        else
            _rotationMutex->unlock();
    }
    // What fprintf(_file, "%s\r\n", line) writes, in one locked call of the stream so that lines
    // of several threads never mix, without parsing a format for every line.
    if (!line.isEmpty()) {
        // kept: nul-cuts-line
        const int length = int(qstrlen(line.constData()));
        line.truncate(length);
        line.append("\r\n", 2);
        fwrite(line.constData(), 1, size_t(line.size()), _file);
    }
    fflush(_file);
    if (rotating) {
        YDebugSys::unlock(_logFile.handle());
        _rotationMutex->unlock();
    }
}

void YDebug::YDebugSink::setRotationSize(int megabytes)
{
    if (_fileName.isEmpty())
        return;
    // Writers and the rotation check use the file and the semaphore under this mutex.
    YMutexLocker locker(*_rotationMutex);
    const QString fileName = QString::fromLocal8Bit(_fileName);
    _rotatable.store(!QFile(fileName).isSequential(), std::memory_order_relaxed);
    _rotationSize.store(int(unsigned(megabytes) << 20), std::memory_order_relaxed);
    if (!isRotating())
        return;
    if (!_logFile.isOpen()) {
        _logFile.setFileName(fileName);
        _logFile.open(QIODevice::ReadOnly);
    }
    const QByteArray name = QFileInfo(fileName).baseName().toLocal8Bit() + "_rotationSem";
    delete _rotationSemaphore;
    _rotationSemaphore = nullptr;
    _rotationSemaphore = new YSemaphore(1, QString::fromLocal8Bit(name));
}

void YDebug::YDebugSink::checkRotation()
{
    if (!isRotating())
        return;
    _rotationMutex->lock();
    try {
        // Another process is rotating the same log: it will do for both of us.
        if (isRotating() && (!_rotationSemaphore || _rotationSemaphore->tryAcquire(1))) {
            const int size = int(quint32(_logFile.size()));
            if (size > _rotationSize.load(std::memory_order_relaxed))
                rotate();
            if (_rotationSemaphore)
                _rotationSemaphore->release(1);
        }
    } catch (const YException&) {
    }
    _rotationMutex->unlock();
}

void YDebug::YDebugSink::rotate()
{
    const QString fileName = QString::fromLocal8Bit(_fileName);
    const QFileInfo info(fileName);
    const QString rotatedName = info.absolutePath() + QDir::separator() + info.baseName()
        + QLatin1Char('_') + QDateTime::currentDateTime().toString(QStringLiteral("ddMMyy_hhmmss"))
        + QLatin1Char('.') + info.completeSuffix();
    const bool locked = _logFile.isOpen();
    if (locked)
        YDebugSys::lockExclusive(_logFile.handle());
    // Copy and truncate, not rename: every process keeps its stream open and, appending, carries
    // on at the new end of the file.
    if (QFile::copy(fileName, rotatedName)) {
        QFile::setPermissions(rotatedName, _logFile.permissions());
        QFile truncating(fileName);
        if (truncating.open(QIODevice::WriteOnly | QIODevice::Truncate))
            truncating.close();
        else
            QFile::remove(rotatedName);
    }
    if (locked)
        YDebugSys::unlock(_logFile.handle());
}

// ---------------------------------------------------------------------------------------------
// Making a value

YDebug::YDebug(StreamId stream, debug_level_t level)
    : _sink(getSink(stream))
    , _level(level)
    , _newLine(true)
    , _space(true)
    , _active(_sink && (level < 0 || level <= _sink->_level.load(std::memory_order_relaxed)))
    , _hexMode(false)
    , _firstInCacheLine(false)
    , _errorId(0)
    , _printErrorId(false)
{
}

YDebug YDebug::makeStandardSinks()
{
    _sinkList[STDOUT.id()] = createSink(stdout, WARNING, QByteArray());
    _sinkList[STDERR.id()] = createSink(stderr, WARNING, QByteArray());
    refreshHiddenGates();
    return YDebug(STDOUT, THE_LAST_DEBUG_LEVEL_SHOULD_NOT_BE_USED);
}

YDebug::YDebug(YDebugSink* sink, debug_level_t level, int errorId)
    : _sink(sink)
    , _level(level)
    , _newLine(true)
    , _space(true)
    , _active(true)
    , _hexMode(false)
    , _firstInCacheLine(true)
    , _errorId(errorId)
    , _printErrorId(true)
{
}

void YDebug::finish()
{
    if (!_line.isEmpty())
        flush();
    if (_line.capacity() >= LINE_BUFFER_SIZE && _line.isDetached()) {
        QByteArray& spare = spareLineBuffer();
        if (spare.capacity() < LINE_BUFFER_SIZE) {
            _line.resize(0);
            spare.swap(_line);
        }
    }
}

YDebug YDebug::create(StreamId stream, debug_level_t level)
{
    return create_ex(-1, stream, level);
}

YDebug YDebug::create_ex(int errorId, StreamId stream, debug_level_t level)
{
    YDebugSink* sink = getSink(stream);
    // The raised period ends here, at the first statement after it, and nowhere else.
    // Whole seconds as QDateTime::secsTo counts them: the difference truncated toward zero.
    if (sink->_cacheEnabled.load(std::memory_order_relaxed)
        && sink->_verbosityRaised.load(std::memory_order_relaxed)
        && (QDateTime::currentMSecsSinceEpoch() - sink->_raiseTime.load(std::memory_order_relaxed))
                / 1000
            >= qint64(sink->_secForVerbosityFive.load(std::memory_order_relaxed))) {
        sink->_verbosityRaised.store(false, std::memory_order_relaxed);
        sink->_level.store(
            sink->_savedLevel.load(std::memory_order_relaxed), std::memory_order_relaxed);
        refreshHiddenGates();
    }
    if (sink->_level.load(std::memory_order_relaxed) < level)
        return _inactive;
    return YDebug(sink, level, errorId);
}

YDebug YDebug::doHandleCacheEnabled(StreamId stream, debug_level_t level)
{
    return doHandleCacheEnabled_ex(-1, stream, level);
}

YDebug YDebug::doHandleCacheEnabled_ex(int errorId, StreamId stream, debug_level_t level)
{
    YDebugSink* sink = getSink(stream);
    if (sink->_cacheEnabled.load(std::memory_order_relaxed))
        return YDebug(sink, level, errorId);
    return _inactive;
}

YDebug& YDebug::inactive()
{
    return _inactive;
}

// ---------------------------------------------------------------------------------------------
// Writing

YDebug& YDebug::writeItem(
    const char* cacheText, int cacheSize, const char* text, int size, bool newLine)
{
    // With the cache off and no dump in progress the cache step can't do anything: skip the call.
    bool dumped = false;
    if (_sink->_cacheEnabled.load(std::memory_order_relaxed)
        || _sink->_dropping.load(std::memory_order_relaxed))
        dumped = handleCache(cacheText, cacheSize);
    if (!_active)
        return *this;
    if (_sink->_cacheEnabled.load(std::memory_order_relaxed)
        && _sink->_level.load(std::memory_order_relaxed) < _level)
        return *this; // the item went to the cache only
    // The dump has written it already. On one thread this is exactly the sink's dump flag after
    // the cache step, which sets or clears it; asked of this item alone, another thread's dump
    // can't take the item out of this line.
    if (dumped)
        return *this;
    if (_newLine)
        printNewLineHeader();
    // kept: fault-id-twice
    if (_printErrorId && _errorId != -1)
        printErrorId();
    // The text and its blank in one step.
    const int start = _line.size();
    _line.resize(start + size + (_space ? 1 : 0));
    char* out = _line.data() + start;
    memcpy(out, text, size_t(size));
    if (_space)
        out[size] = ' ';
    if (newLine)
        _newLine = true;
    return *this;
}

YDebug& YDebug::writeNumber(long long value)
{
    char buffer[24];
    char* begin = buffer;
    if (_hexMode) {
        *begin++ = '0';
        *begin++ = 'x';
    }
    char* end = std::to_chars(begin, buffer + sizeof buffer, value, _hexMode ? 16 : 10).ptr;
    return writeItem(buffer, int(end - buffer), false);
}

YDebug& YDebug::writeNumber(unsigned long long value)
{
    char buffer[24];
    char* begin = buffer;
    if (_hexMode) {
        *begin++ = '0';
        *begin++ = 'x';
    }
    char* end = std::to_chars(begin, buffer + sizeof buffer, value, _hexMode ? 16 : 10).ptr;
    return writeItem(buffer, int(end - buffer), false);
}

YDebug& YDebug::put(bool value)
{
    return value ? writeItem("true", 4, false) : writeItem("false", 5, false);
}

YDebug& YDebug::put(char value)
{
    return writeItem(&value, 1, value == '\n');
}

YDebug& YDebug::put(QChar value)
{
    const char bare = value.toLatin1();
    const char quoted[3] = {'\'', bare, '\''};
    return writeItem(&bare, 1, quoted, 3, value == QLatin1Char('\n'));
}

YDebug& YDebug::put(short value)
{
    return writeNumber(static_cast<long long>(value));
}

YDebug& YDebug::put(unsigned short value)
{
    return writeNumber(static_cast<unsigned long long>(value));
}

YDebug& YDebug::put(int value)
{
    return writeNumber(static_cast<long long>(value));
}

YDebug& YDebug::put(unsigned int value)
{
    return writeNumber(static_cast<unsigned long long>(value));
}

YDebug& YDebug::put(long value)
{
    return writeNumber(static_cast<long long>(value));
}

YDebug& YDebug::put(unsigned long value)
{
    return writeNumber(static_cast<unsigned long long>(value));
}

YDebug& YDebug::put(long long value)
{
    return writeNumber(value);
}

YDebug& YDebug::put(unsigned long long value)
{
    return writeNumber(value);
}

YDebug& YDebug::put(float value)
{
    return put(double(value));
}

YDebug& YDebug::put(double value)
{
    // The text of QString::number(value, 'g', 6), without its locale machinery on the hot path.
    if (std::isnan(value))
        return writeItem("nan", 3, false);
    if (value == 0)
        return writeItem("0", 1, false); // no "-0"
    char buffer[32];
    char* end
        = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 6).ptr;
    return writeItem(buffer, int(end - buffer), false);
}

YDebug& YDebug::put(const char* value)
{
    if (!value)
        return writeItem("(null)", 6, false);
    const int size = int(qstrlen(value));
    return writeItem(value, size, size > 0 && value[size - 1] == '\n');
}

YDebug& YDebug::put(const QString& value)
{
    return writeItem(value.toLatin1(), value.endsWith(QLatin1Char('\n')));
}

YDebug& YDebug::put(QLatin1String value)
{
    const int size = value.size();
    const char* data = value.data() ? value.data() : "";
    return writeItem(data, size, size > 0 && data[size - 1] == '\n');
}

YDebug& YDebug::put(const QByteArray& value)
{
    return writeItem(value, false);
}

YDebug& YDebug::operator<<(const YPrintable& value)
{
    // kept: printable-twice -- the caller's toString runs twice, for the cache and for the
    // line, also where the statement is hidden and neither is used.
    const QByteArray forCache = value.toString().toLatin1();
    const QByteArray forLine = value.toString().toLatin1();
    if (!_sink)
        return *this;
    return writeItem(
        forCache.constData(), forCache.size(), forLine.constData(), forLine.size(), false);
}

YDebug& YDebug::put(const void* value)
{
    const quintptr address = reinterpret_cast<quintptr>(value);
    const QByteArray forCache = _hexMode ? "0x" + QByteArray::number(qulonglong(address), 16)
                                         : QByteArray::number(qulonglong(address));
    // kept: pointer-low-byte
    const char lowByte = char(address & 0xff);
    return writeItem(forCache.constData(), forCache.size(), &lowByte, 1, false);
}

YDebug& YDebug::appendf(const char* format, ...)
{
    if (!_active)
        return *this;
    printNewLineHeader();
    const int start = _line.size();
    // Room for the terminating NUL too, so that a text of exactly 256 characters is whole.
    _line.resize(start + APPENDF_CHUNK + 1);
    va_list args;
    va_start(args, format);
    int written = vsnprintf(_line.data() + start, APPENDF_CHUNK + 1, format, args);
    va_end(args);
    if (written < 0)
        written = 0;
    if (written > APPENDF_CHUNK) {
        // Unlike the platform this was written for, vsnprintf tells the full length: keep it all.
        _line.resize(start + written + 1);
        va_start(args, format);
        vsnprintf(_line.data() + start, size_t(written) + 1, format, args);
        va_end(args);
    }
    _line.resize(start + written);
    if (_line.endsWith('\n'))
        _newLine = true;
    if (_space)
        _line.append(' ');
    return *this;
}

YDebug& YDebug::space()
{
    _space = true;
    _line.append(' ');
    return *this;
}

YDebug& YDebug::nospace()
{
    _space = false;
    return *this;
}

void YDebug::flushToSink()
{
    if (_sink->_level.load(std::memory_order_relaxed) < _level) {
        // The statement's own reference: the cache may be switched off meanwhile, and the buffer
        // then lives until this insertion is done.
        const std::shared_ptr<YDebugSink::CacheBuffer> buffer = _sink->cacheBuffer();
        if (buffer) {
            static YMutex cacheInsertMutex;
            YMutexLocker locker(cacheInsertMutex);
            buffer->insertItem(_cacheLine);
            // The buffer shares the text, and another thread's dump may take it out: let go
            // through the inline release, where the race detector sees the count's order,
            // rather than through the toolkit's out-of-line clear().
            _cacheLine = QByteArray();
            _firstInCacheLine = true;
        }
    }
    if (_active) {
        _sink->write(_line);
        _line.resize(0); // keeps the reserved buffer
        _sink->checkRotation();
        _printErrorId = true;
    }
}

// ---------------------------------------------------------------------------------------------
// The line's parts

void YDebug::printTimestamp(QByteArray& out) const
{
    char stamp[24];
    out.append(stamp, formatTimestamp(stamp));
}

int YDebug::formatTimestamp(char* out)
{
    static thread_local TimestampCache cache Y_INITIAL_EXEC_TLS;
    long long seconds;
    int milliseconds;
    YDebugSys::now(&seconds, &milliseconds);
    if (cache.second != seconds) {
        int day, month, year, hour, minute, second;
        YDebugSys::localTime(seconds, &day, &month, &year, &hour, &minute, &second);
        char* t = cache.text; // dd.MM.yyyy hh:mm:ss
        appendTwoDigits(t, day);
        t[2] = '.';
        appendTwoDigits(t + 3, month);
        t[5] = '.';
        appendTwoDigits(t + 6, year / 100);
        appendTwoDigits(t + 8, year);
        t[10] = ' ';
        appendTwoDigits(t + 11, hour);
        t[13] = ':';
        appendTwoDigits(t + 14, minute);
        t[16] = ':';
        appendTwoDigits(t + 17, second);
        cache.second = seconds;
    }
    memcpy(out, cache.text, sizeof cache.text);
    int n = int(sizeof cache.text);
    if (_timestampFormat.load(std::memory_order_relaxed) == _TIMESTAMP_FORMAT_WITH_MILLISECONDS) {
        out[n++] = '.';
        out[n++] = char('0' + milliseconds / 100);
        out[n++] = char('0' + milliseconds / 10 % 10);
        out[n++] = char('0' + milliseconds % 10);
    }
    return n;
}

void YDebug::printDebugLevel(QByteArray& out) const
{
    int index = int(_level) + 1;
    if (index < 0 || index > 7)
        index = 7;
    out.append(DEBUG_LEVEL_STRINGS[index]);
}

void YDebug::printProcessIdAndThreadId(QByteArray& out) const
{
    out.append('p');
    out.append(QByteArray::number(qlonglong(YDebugSys::processId())));
    out.append("/t");
    out.append(QByteArray::number(qlonglong(YDebugSys::threadId())));
}

void YDebug::appendLineHeader(QByteArray& out) const
{
    // Assembled on the stack and appended once: the header is most of a short line.
    char header[64 + 128];
    const QByteArray& prefix = _sink->_prefix;
    if (prefix.size() > 64) {
        out.append('[');
        out.append(prefix);
        out.append(' ');
    } else {
        out.reserve(out.size() + prefix.size() + 64);
    }
    int n = 0;
    if (prefix.size() <= 64) {
        header[n++] = '[';
        if (!prefix.isEmpty()) {
            memcpy(header + n, prefix.constData(), size_t(prefix.size()));
            n += prefix.size();
            header[n++] = ' ';
        }
    }
    n += formatTimestamp(header + n);
    header[n++] = ' ';
    if (_printProcessIdAndThreadId.load(std::memory_order_relaxed)) {
        out.append(header, n);
        n = 0;
        printProcessIdAndThreadId(out);
        out.append(' ');
    }
    int index = int(_level) + 1;
    if (index < 0 || index > 7)
        index = 7;
    const size_t levelSize = strlen(DEBUG_LEVEL_STRINGS[index]);
    memcpy(header + n, DEBUG_LEVEL_STRINGS[index], levelSize);
    n += int(levelSize);
    header[n++] = ']';
    out.append(header, n);
}

void YDebug::printNewLineHeader()
{
    if (!_newLine)
        return;
    nospace();
    if (_line.capacity() == 0) {
        QByteArray& spare = spareLineBuffer();
        if (spare.capacity() >= LINE_BUFFER_SIZE)
            _line.swap(spare);
        else
            _line.reserve(LINE_BUFFER_SIZE);
    }
    appendLineHeader(_line);
    space();
    _newLine = false;
}

void YDebug::printErrorId()
{
    if (!_printErrorId || _errorId == -1)
        return;
    appendPadded(_line, _errorId);
    _line.append(": ");
    _printErrorId = false;
}

// ---------------------------------------------------------------------------------------------
// The in-memory cache

void YDebug::appendCacheHeader()
{
    // kept: cached-line-blanks
    appendLineHeader(_cacheLine);
    _cacheLine.append(' ');
    if (_errorId != -1) {
        appendPadded(_cacheLine, _errorId);
        _cacheLine.append(": ");
    }
}

void YDebug::doHandleCircularBuffer(const QByteArray& item)
{
    handleCache(item.constData(), item.size());
}

bool YDebug::handleCache(const char* item, int size)
{
    YDebugSink* sink = _sink;
    if (!sink)
        return false;
    const bool cacheEnabled = sink->_cacheEnabled.load(std::memory_order_relaxed);
    const std::shared_ptr<YDebugSink::CacheBuffer> buffer
        = cacheEnabled ? sink->cacheBuffer() : std::shared_ptr<YDebugSink::CacheBuffer>();
    if (buffer && !buffer->isEmpty() && firesDump(sink, _errorId)) {
        dumpCache(*buffer, item, size);
        return true;
    }
    if (sink->_dropping.load(std::memory_order_relaxed)
        && sink->_dropping.exchange(false, std::memory_order_relaxed))
        refreshHiddenGates();
    if (size == 0 || !buffer || sink->_verbosityRaised.load(std::memory_order_relaxed)
        || !(sink->_level.load(std::memory_order_relaxed) < _level) || !cacheEnabled)
        return false;
    if (!_firstInCacheLine) {
        _cacheLine.append(item, size);
        _cacheLine.append(' ');
        return false;
    }
    appendCacheHeader();
    _cacheLine.append(' ');
    _cacheLine.append(item, size);
    _cacheLine.append(' ');
    _firstInCacheLine = false;
    return false;
}

void YDebug::dumpCache(YCyclicBuffer<YMutex>& buffer, const char* item, int size)
{
    YDebugSink* sink = _sink;
    _newLine = true;
    printNewLineHeader();
    _line.append("************************ERROR/PROBLEM!!!!***************************");
    _line.append('\n');
    _newLine = true;
    printNewLineHeader();
    _line.append("Dropping the contents of the in memory cache logger");
    _line.append('\n');
    while (!buffer.isEmpty()) {
        const QByteArray cached = buffer.extractItem();
        _line.append(cached);
        _line.append('\n');
        if (cached.endsWith('\n'))
            _newLine = true;
    }
    _newLine = true;
    printNewLineHeader();
    _line.append("Fault ");
    appendPadded(_line, _errorId);
    _line.append(": ");
    _line.append(item, size);
    if (size > 0 && item[size - 1] == '\n')
        _newLine = true;
    sink->_dropping.store(true, std::memory_order_relaxed);
    sink->_savedLevel.store(
        sink->_level.load(std::memory_order_relaxed), std::memory_order_relaxed);
    sink->_level.store(DBG3, std::memory_order_relaxed);
    sink->_raiseTime.store(QDateTime::currentMSecsSinceEpoch(), std::memory_order_relaxed);
    sink->_verbosityRaised.store(true, std::memory_order_relaxed);
    refreshHiddenGates();
}

// ---------------------------------------------------------------------------------------------
// Streams and settings

YDebug::YDebugSink* YDebug::getSink(StreamId stream)
{
    const int id = stream.id();
    // Kept in its historical form, a conjunction that can't hold: the range check below is what
    // keeps a bad id from reading outside the table.
    // kept: stream-id-guard
    if (id < 0 && id >= _nextSink) {
        fprintf(stderr, "YDebug Error: invalid StreamId: %d (total %d)\n", id, _nextSink);
        abort();
    }
    if (id < 0 || id >= MAX_STREAMS || !_sinkList[id])
        return _sinkList[STDERR.id()];
    return _sinkList[id];
}

YDebug::YDebugSink* YDebug::createSink(const char* fileName, debug_level_t level, QByteArray prefix)
{
    if (!fileName)
        return nullptr;
    FILE* file = fopen(fileName, "a+b");
    if (!file)
        return nullptr;
    YDebugSink* sink = createSink(file, level, prefix);
    sink->_fileName = QByteArray(fileName);
    return sink;
}

YDebug::YDebugSink* YDebug::createSink(FILE* stream, debug_level_t level, QByteArray prefix)
{
    return new YDebugSink(stream, level, prefix);
}

YDebug::StreamId YDebug::registerStream(const QByteArray& prefix, const char* fileName)
{
    static YMutex registerMutex;
    YMutexLocker locker(registerMutex);
    int slot = -1;
    // kept: highest-free-slot
    // No early exit: the highest free slot wins.
    for (int i = 2; i < _nextSink; ++i) {
        if (_sinkList[i] && _sinkList[i]->_free)
            slot = i;
    }
    if (slot < 0) {
        if (_nextSink == MAX_STREAMS)
            throw YException(
                QStringLiteral("Maximum number of YDebug streams (%1) exceeded").arg(MAX_STREAMS));
        slot = _nextSink++;
    }
    // kept: unopenable-log-costs-slot
    YDebugSink* sink = createSink(fileName, ERROR, prefix);
    if (!sink)
        return STDERR;
    delete _sinkList[slot];
    _sinkList[slot] = sink;
    refreshHiddenGates();
    return StreamId(slot);
}

void YDebug::unregisterStream(StreamId stream)
{
    const int id = stream.id();
    if (id < 2 || id >= MAX_STREAMS || !_sinkList[id] || _sinkList[id]->_free)
        return;
    delete _sinkList[id];
    _sinkList[id] = new YDebugSink;
    refreshHiddenGates();
}

void YDebug::setDebugLevel(StreamId stream, int level)
{
    // kept: bad-level-is-zero
    getSink(stream)->_level.store(level >= 0 && level <= 5 ? level : 0, std::memory_order_relaxed);
    refreshHiddenGates();
}

YDebug::debug_level_t YDebug::getDebugLevel(StreamId stream)
{
    return debug_level_t(getSink(stream)->_level.load(std::memory_order_relaxed));
}

void YDebug::setRotationSize(StreamId stream, int megabytes)
{
    // kept: rotation-unguarded-on-bad-name
    try {
        getSink(stream)->setRotationSize(megabytes);
    } catch (const YException& e) {
        fprintf(stderr, "%s\n", e.what());
    }
}

void YDebug::setTimestampWithMilliseconds(bool withMilliseconds)
{
    _timestampFormat.store(withMilliseconds ? _TIMESTAMP_FORMAT_WITH_MILLISECONDS
                                            : _TIMESTAMP_FORMAT_WITHOUT_MILLISECONDS);
}

void YDebug::setPrintProcessIdAndThreadId(bool print)
{
    _printProcessIdAndThreadId.store(print);
}

bool YDebug::getPrintProcessIdAndThreadId()
{
    return _printProcessIdAndThreadId.load();
}

void YDebug::setCacheLogifEnabledValue(StreamId stream, bool enabled)
{
    std::lock_guard<std::mutex> locker(cacheSettingsMutex());
    YDebugSink* sink = getSink(stream);
    sink->_cacheEnabled.store(enabled);
    if (enabled) {
        // kept: cache-size-fixed-when-on
        if (!sink->cacheBuffer()) {
            const long lines = sink->_cacheLogSize.load(std::memory_order_relaxed);
            std::atomic_store(&sink->_cacheBuffer,
                std::make_shared<YDebugSink::CacheBuffer>(lines > 0 ? unsigned(lines) : 0));
        }
    } else {
        // Statements that hold the buffer keep it alive; the last of them frees it.
        std::atomic_store(&sink->_cacheBuffer, std::shared_ptr<YDebugSink::CacheBuffer>());
    }
    refreshHiddenGates();
}

bool YDebug::getCacheLogifEnabledValue(StreamId stream)
{
    return getSink(stream)->_cacheEnabled.load();
}

void YDebug::setCacheLogSize(StreamId stream, long lines)
{
    try {
        std::lock_guard<std::mutex> locker(cacheSettingsMutex());
        getSink(stream)->_cacheLogSize.store(lines, std::memory_order_relaxed);
    } catch (const YException& e) {
        fprintf(stderr, "%s\n", e.what());
    }
}

long YDebug::getCacheLogSize(StreamId stream)
{
    return getSink(stream)->_cacheLogSize.load(std::memory_order_relaxed);
}

void YDebug::setSecForVerbosityFive(StreamId stream, unsigned int seconds)
{
    try {
        std::lock_guard<std::mutex> locker(cacheSettingsMutex());
        getSink(stream)->_secForVerbosityFive.store(seconds, std::memory_order_relaxed);
    } catch (const YException& e) {
        fprintf(stderr, "%s\n", e.what());
    }
}

unsigned int YDebug::getSecForVerbosityFive(StreamId stream)
{
    return getSink(stream)->_secForVerbosityFive.load(std::memory_order_relaxed);
}

void YDebug::setErrorIdListBufferTrigger(StreamId stream, QString list)
{
    std::lock_guard<std::mutex> locker(cacheSettingsMutex());
    getSink(stream)->_errorIdListBufferTrigger
        = list.split(QLatin1Char(','), Qt::SkipEmptyParts, Qt::CaseSensitive);
}

QStringList YDebug::getErrorIdListBufferTrigger(StreamId stream)
{
    std::lock_guard<std::mutex> locker(cacheSettingsMutex());
    return getSink(stream)->_errorIdListBufferTrigger;
}

void YDebug::setErrorIdForBufferDrop(StreamId stream, int errorId)
{
    std::lock_guard<std::mutex> locker(cacheSettingsMutex());
    getSink(stream)->_errorIdForBufferDrop.store(unsigned(errorId), std::memory_order_relaxed);
}

unsigned int YDebug::getErrorIdForBufferDrop(StreamId stream)
{
    return getSink(stream)->_errorIdForBufferDrop.load(std::memory_order_relaxed);
}

void YDebug::refreshHiddenGates()
{
    // One writer at a time, each reading the sinks afresh: a late refresh can't bring back a
    // gate that an earlier change had lifted.
    static std::mutex gatesMutex;
    std::lock_guard<std::mutex> locker(gatesMutex);
    // A copy of the inactive value writes into the standard output's cache while that cache is
    // on, and clears its dump flag: then no statement is inert.
    const YDebugSink* standardOut = _sinkList[STDOUT.id()];
    // kept: inactive-feeds-stdout-cache
    const bool inactiveWorks = !standardOut
        || standardOut->_cacheEnabled.load(std::memory_order_relaxed)
        || standardOut->_dropping.load(std::memory_order_relaxed);
    for (int id = 0; id < MAX_STREAMS; ++id) {
        const YDebugSink* sink = _sinkList[id] ? _sinkList[id] : _sinkList[STDERR.id()];
        int gate = std::numeric_limits<int>::max();
        if (sink && !inactiveWorks && !sink->_cacheEnabled.load(std::memory_order_relaxed))
            gate = sink->_level.load(std::memory_order_relaxed);
        _hiddenAbove[id].store(gate, std::memory_order_relaxed);
    }
}
