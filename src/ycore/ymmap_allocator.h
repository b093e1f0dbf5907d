#ifndef YOVOLIB_YMMAP_ALLOCATOR_H
#define YOVOLIB_YMMAP_ALLOCATOR_H

#include "yovolib_export.h"

#include <QString>
#include <QtGlobal>

#include <string>

struct YMMapHandle;
class YMMapHash;

/// The first 8 bytes of a segment: 32-bit little-endian words, whatever the process's word size.
struct YMMapSegmentHeader
{
    quint32 totalSize; ///< the whole segment, this header included
    quint32 used; ///< segment offset of the next free byte; 8 when empty
};

/// A named shared-memory segment with a bump allocator whose counter lives in the segment.
/// Space is only ever given back all at once by clear(). Processes see the segment at different
/// addresses, so whatever is stored inside refers to other things by offset from baseAddress().
/// Failures are results plus error(); nothing is logged or thrown. No locking: callers that share
/// a segment serialise allocate() themselves.
class YOVOLIB_EXPORT YMMapAllocator
{
public:
    enum
    {
        ERR_OUT_OF_MEMORY = 13459,
        ERR_NOT_INITIALIZED = 13460,
        ERR_INVALID_ALLOCATION_SIZE = 13461,
        ERR_OFFSET_OUT_OF_BOUNDS = 13462 ///< reserved: the offset conversions report by result only
    };

    /// Closed: no segment yet.
    YMMapAllocator();
    /// A copy shares the mapping of its source; the mapping is given up with the last of them.
    YMMapAllocator(const YMMapAllocator& other);
    YMMapAllocator& operator=(const YMMapAllocator& other);
    /// close().
    ~YMMapAllocator();

    /// Makes the segment "Global\<name>Mmap" with `size` bytes of data; fails with EEXIST while
    /// anyone has that name open. A name left behind by processes that all died is made afresh.
    bool create(const char* name, unsigned int size);
    /// Opens an existing segment; fails (error 0) when nobody has it open.
    bool attach(const char* name);
    /// The same as attach(): the view is writable all the same.
    bool attachReadOnly(const char* name);
    /// Gives up this object's view; the last user in any process removes the segment.
    void close();
    /// Makes all space free again without wiping it.
    void clear();
    /// `size` bytes rounded up to 4, or null with error() set.
    void* allocate(unsigned int size);
    /// The address of offset 0: the first byte after the segment header.
    void* baseAddress() const;
    /// Null when the offset lies outside the data.
    void* offsetToPtr(long offset) const;
    /// -1 when the pointer lies outside the data.
    long ptrToOffset(void* pointer) const;
    /// The segment's total size, header included; 0 without a segment.
    long memSize() const;
    /// The bytes in use, header included; 0 without a segment.
    long memUsage() const;
    /// True between a successful open and close().
    bool isOk() const { return _ok; }
    /// The last failure: an errno value or one of the ERR_ codes. Not reset by a success.
    int error() const { return _error; }
    /// error() in words.
    QString errorString() const;
    /// The system name of the segment, "Global\<name>Mmap".
    const std::string& getFilename() const { return _fileName; }

protected:
    bool doOpenSharedMemory(const char* name, unsigned int size, bool create, bool readOnly);

private:
    friend class YMMapHash;
    /// The bytes from baseAddress() that may be touched: bounded by the header and the mapping.
    quint64 dataLimit() const;
    bool hasSegment() const { return _header != nullptr && _view != nullptr; }

    YMMapHandle* _handle;
    void* _view;
    bool _ok;
    int _error;
    YMMapSegmentHeader* _header;
    std::string _fileName;
};

/// Allocation policy on the process heap: base() + allocate() is the block's address.
class YOVOLIB_EXPORT BasicAllocator
{
public:
    BasicAllocator& operator=(const BasicAllocator&) { return *this; }
    /// Always 0.
    static long base();
    /// malloc(size) as a number.
    static long allocate(long size);
    /// free() of `where`; the size is not needed.
    static void deallocate(long where, long size);
};

/// Allocation policy in one growing block: offsets from base(), never given back.
class YOVOLIB_EXPORT ExternalAllocator
{
public:
    ExternalAllocator& operator=(const ExternalAllocator&) { return *this; }
    /// Makes a block of 1 MiB and starts at offset 0.
    static void init();
    /// The block's address as a number.
    static long base();
    /// The next offset; `size` is added as it stands. Deliberately no check against the block's
    /// size: the caller calls reallocate() in time.
    static long allocate(long size);
    /// Fills the bytes with 0xFF; they stay taken.
    static void deallocate(long where, long size);
    /// Grows the block to `size` bytes, keeping its content; only for growing.
    static void reallocate(long size);

private:
    static char* _segBase;
    static long _segSize;
    static long _offsetFromBase;
};

#endif // YOVOLIB_YMMAP_ALLOCATOR_H
