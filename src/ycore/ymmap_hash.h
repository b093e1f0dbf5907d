#ifndef YOVOLIB_YMMAP_HASH_H
#define YOVOLIB_YMMAP_HASH_H

#include "ymmap_allocator.h"
#include "yovolib_export.h"

#include <QByteArray>
#include <QString>
#include <QtGlobal>

/// The table's header at base offset 0 of its segment.
struct YMMapHashHeader
{
    quint32 magic; ///< 34508, written and never tested
    quint32 bucketCount; ///< 503; read from the segment by every process
    quint32 entriesCount;
    quint32 reserved;
};

/// One chain entry, 24 bytes; every link is a base offset, 0xFFFFFFFF for none.
struct YMMapHashBucket
{
    quint32 next;
    quint32 prev; ///< not to be trusted behind a removed entry: only `next` is a chain link
    quint32 valueOffset;
    quint32 valueLength;
    quint32 keyOffset;
    quint32 keyLength;
};

/// A chained hash table from byte strings to byte strings that lives whole in a named segment
/// of YMMapAllocator, so that every process that attaches it by name sees the same table. Nothing
/// is freed before clear(). The class locks nothing: readers take a YReaderLocker, writers a
/// YWriterLocker; readers without a lock see whole entries only while writers use atomicInsert.
/// A segment is taken on trust, but no link or length that leads outside it is followed.
class YOVOLIB_EXPORT YMMapHash
{
public:
    enum
    {
        MAGIC = 34508,
        BUCKET_COUNT = 503,
        TABLE_SIZE = 16 + 4 * 503 ///< header and backbone, the first two allocations
    };

    /// No table yet.
    YMMapHash();
    /// A copy uses the same segment through the same mapping.
    YMMapHash(const YMMapHash& other) = default;
    YMMapHash& operator=(const YMMapHash& other) = default;
    /// Gives up this object's view; the table lives on while any process has it open.
    virtual ~YMMapHash();

    /// Makes the segment "Global\<name>Mmap" with `size` bytes for entries and a fresh table.
    bool create(const char* name, unsigned int size);
    /// Uses the table of an existing segment, without examining it.
    bool attach(const char* name);
    /// Adds the key, or replaces its value: in place when it fits, else in new space.
    bool insert(const QByteArray& key, const QByteArray& value);
    /// Adds or replaces with a whole new entry, published by one 32-bit store, so that readers
    /// without a lock see the old value or the new one, never a mix.
    bool atomicInsert(const QByteArray& key, const QByteArray& value);
    /// A copy of the value; false when the key is missing.
    bool value(const QByteArray& key, QByteArray& out);
    /// The value where it lies in the segment, valid until clear(); false when the key is missing.
    bool value(const QByteArray& key, void** data, int& length);
    /// Ends the process through a failed assertion on an object that has no table.
    bool contains(const QByteArray& key) const;
    /// Unlinks the entry; its space stays taken until clear().
    bool remove(const QByteArray& key);
    /// Empties the table for every process that has it, all space included.
    void clear();
    /// The count kept in the segment. Ends the process on an object that has no table.
    unsigned int getEntriesCount();
    /// The segment, for its sizes.
    const YMMapAllocator& getAllocator() const { return _allocator; }
    /// The last failure in words.
    QString errorString() const { return _errorString; }

protected:
    bool doInitialize();
    YMMapHashBucket* newEntry(const QByteArray& key, const QByteArray& value);
    YMMapHashBucket* doFindBucket(const QByteArray& key, unsigned int index) const;
    YMMapHashBucket* doFindLastInList(unsigned int index) const;
    unsigned int doGetIndexForKey(const QByteArray& key) const;

private:
    struct Table;
    bool loadTable(Table& table) const;
    bool appendEntry(Table& table, quint32 index, YMMapHashBucket* entry);
    bool noTable();
    bool corrupt();

    YMMapHashHeader* _header;
    YMMapAllocator _allocator;
    quint32* _backbone;
    QString _errorString;
};

#endif // YOVOLIB_YMMAP_HASH_H
