// Operating-system independent part of the shared-memory allocator: the bump allocation and the
// offset arithmetic. The mapping itself is in ymmap_allocator_posix.cpp.
#include "ymmap_allocator.h"

#include "ymmap_allocator_p.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

const quint32 HEADER_SIZE = sizeof(YMMapSegmentHeader);
const unsigned int ATTACH_SIZE = 1024;

YMMapHandle* const CLOSED_HANDLE = reinterpret_cast<YMMapHandle*>(intptr_t(-1));
YMMapHandle* const FAILED_HANDLE = nullptr;

bool isRealHandle(YMMapHandle* handle)
{
    return handle != CLOSED_HANDLE && handle != FAILED_HANDLE;
}

// `used` is shared by every process of the segment; callers serialise allocations, but a reader
// of memUsage() may run at the same time, so single 32-bit loads and stores it is.
quint32 loadWord(const quint32* word)
{
    return __atomic_load_n(word, __ATOMIC_RELAXED);
}

void storeWord(quint32* word, quint32 value)
{
    __atomic_store_n(word, value, __ATOMIC_RELAXED);
}

} // namespace

YMMapAllocator::YMMapAllocator()
    : _handle(CLOSED_HANDLE)
    , _view(nullptr)
    , _ok(false)
    , _error(0)
    , _header(nullptr)
{
}

YMMapAllocator::YMMapAllocator(const YMMapAllocator& other)
    : _handle(other._handle)
    , _view(other._view)
    , _ok(other._ok)
    , _error(other._error)
    , _header(other._header)
    , _fileName(other._fileName)
{
    if (isRealHandle(_handle))
        YMMapSys::reference(_handle);
}

YMMapAllocator& YMMapAllocator::operator=(const YMMapAllocator& other)
{
    if (this == &other)
        return *this;
    if (isRealHandle(other._handle))
        YMMapSys::reference(other._handle);
    if (isRealHandle(_handle))
        YMMapSys::release(_handle);
    _handle = other._handle;
    _view = other._view;
    _ok = other._ok;
    _error = other._error;
    _header = other._header;
    _fileName = other._fileName;
    return *this;
}

YMMapAllocator::~YMMapAllocator()
{
    close();
}

bool YMMapAllocator::create(const char* name, unsigned int size)
{
    return doOpenSharedMemory(name, size, true, false);
}

bool YMMapAllocator::attach(const char* name)
{
    return doOpenSharedMemory(name, ATTACH_SIZE, false, false);
}

bool YMMapAllocator::attachReadOnly(const char* name)
{
    return doOpenSharedMemory(name, ATTACH_SIZE, false, true);
}

bool YMMapAllocator::doOpenSharedMemory(const char* name, unsigned int size, bool create, bool)
{
    close();
    const QByteArray systemName = QStringLiteral("Global\\%1Mmap")
                                      .arg(QString::fromLocal8Bit(name ? name : ""))
                                      .toLocal8Bit();
    _fileName = systemName.toStdString();

    // The header's words are 32 bits wide: a size that doesn't fit them can't be described.
    const quint64 totalSize = quint64(size) + HEADER_SIZE;
    if (create && totalSize > 0xFFFFFFFFull) {
        _error = EINVAL;
        _handle = FAILED_HANDLE;
        return false;
    }

    YMMapSys::OpenResult result = YMMapSys::Failed;
    int error = 0;
    YMMapHandle* handle = YMMapSys::open(systemName, totalSize, create, &result, &error);
    switch (result) {
    case YMMapSys::Opened:
        break;
    case YMMapSys::AlreadyExists:
        _error = EEXIST;
        _handle = CLOSED_HANDLE;
        return false;
    case YMMapSys::NotFound:
        // What the mapping call leaves as the last error when it merely made an empty segment.
        _error = 0;
        _handle = CLOSED_HANDLE;
        return false;
    case YMMapSys::Failed:
        _error = error;
        _handle = FAILED_HANDLE;
        return false;
    }

    _handle = handle;
    _view = handle->view;
    _header = static_cast<YMMapSegmentHeader*>(_view);
    if (create) {
        storeWord(&_header->totalSize, quint32(totalSize));
        storeWord(&_header->used, HEADER_SIZE);
    }
    _ok = true;
    return true;
}

void YMMapAllocator::close()
{
    // Deliberately _header, _error and _fileName stay: they describe the last segment.
    if (isRealHandle(_handle))
        YMMapSys::release(_handle);
    _ok = false;
    _handle = CLOSED_HANDLE;
    _view = nullptr;
}

void YMMapAllocator::clear()
{
    if (hasSegment())
        storeWord(&_header->used, HEADER_SIZE);
}

void* YMMapAllocator::allocate(unsigned int size)
{
    if (size == 0) {
        _error = ERR_INVALID_ALLOCATION_SIZE;
        return nullptr;
    }
    const qint64 rounded = (qint64(size) + 3) & ~qint64(3);
    if (!hasSegment()) {
        _error = ERR_NOT_INITIALIZED;
        return nullptr;
    }
    // Both words may be garbage in a segment somebody else wrote: the mapping is the last word
    // on what may be handed out.
    const qint64 total = qint64(qMin<quint64>(loadWord(&_header->totalSize), _handle->size));
    // Every allocation is a multiple of 4, so a used word that isn't comes from a segment no
    // allocator wrote. Starting at the next multiple keeps what is handed out aligned for the
    // 32-bit words that callers store there.
    const qint64 used = (qint64(loadWord(&_header->used)) + 3) & ~qint64(3);
    if (used < qint64(HEADER_SIZE) || total - used < rounded) {
        _error = ERR_OUT_OF_MEMORY;
        return nullptr;
    }
    storeWord(&_header->used, quint32(used + rounded));
    return static_cast<char*>(_view) + used;
}

void* YMMapAllocator::baseAddress() const
{
    return _view ? static_cast<char*>(_view) + HEADER_SIZE : nullptr;
}

quint64 YMMapAllocator::dataLimit() const
{
    if (!hasSegment())
        return 0;
    const quint64 total = qMin<quint64>(loadWord(&_header->totalSize), _handle->size);
    return total > HEADER_SIZE ? total - HEADER_SIZE : 0;
}

void* YMMapAllocator::offsetToPtr(long offset) const
{
    if (!_view || offset < 0 || quint64(offset) >= dataLimit())
        return nullptr;
    return static_cast<char*>(_view) + HEADER_SIZE + offset;
}

long YMMapAllocator::ptrToOffset(void* pointer) const
{
    if (!pointer || !_view)
        return -1;
    const intptr_t difference
        = reinterpret_cast<intptr_t>(pointer) - reinterpret_cast<intptr_t>(baseAddress());
    if (difference < 0 || quint64(difference) >= dataLimit())
        return -1;
    return long(difference);
}

long YMMapAllocator::memSize() const
{
    return hasSegment() ? long(loadWord(&_header->totalSize)) : 0;
}

long YMMapAllocator::memUsage() const
{
    return hasSegment() ? long(loadWord(&_header->used)) : 0;
}

QString YMMapAllocator::errorString() const
{
    switch (_error) {
    case ERR_OUT_OF_MEMORY:
        return QStringLiteral("Out of memory");
    case ERR_NOT_INITIALIZED:
        return QStringLiteral("YMMap is not initialized");
    case ERR_INVALID_ALLOCATION_SIZE:
        return QStringLiteral("Invalid allocation size");
    case ERR_OFFSET_OUT_OF_BOUNDS:
        return QStringLiteral("Offset pointer is out of bounds");
    default:
        return QStringLiteral("GetLastError() = %1").arg(_error);
    }
}

// ---------------------------------------------------------------------------------------------

long BasicAllocator::base()
{
    return 0;
}

long BasicAllocator::allocate(long size)
{
    return reinterpret_cast<long>(malloc(size_t(size)));
}

void BasicAllocator::deallocate(long where, long)
{
    free(reinterpret_cast<void*>(where));
}

char* ExternalAllocator::_segBase = nullptr;
long ExternalAllocator::_segSize = 0;
long ExternalAllocator::_offsetFromBase = 0;

void ExternalAllocator::init()
{
    _segSize = 0x100000;
    _offsetFromBase = 0;
    _segBase = static_cast<char*>(malloc(size_t(_segSize)));
}

long ExternalAllocator::base()
{
    return reinterpret_cast<long>(_segBase);
}

long ExternalAllocator::allocate(long size)
{
    const long where = _offsetFromBase;
    _offsetFromBase += size;
    return where;
}

void ExternalAllocator::deallocate(long where, long size)
{
    // A range outside the block is left alone rather than written over someone else's memory.
    if (!_segBase || where < 0 || size <= 0 || where > _segSize || size > _segSize - where)
        return;
    memset(_segBase + where, 0xFF, size_t(size));
}

void ExternalAllocator::reallocate(long size)
{
    if (size <= 0)
        return;
    char* block = static_cast<char*>(malloc(size_t(size)));
    if (!block)
        return;
    // Meant for growing; a smaller size keeps what fits instead of writing past the new block.
    if (_segBase && _segSize > 0)
        memcpy(block, _segBase, size_t(qMin(_segSize, size)));
    _segSize = size;
    free(_segBase);
    _segBase = block;
}
