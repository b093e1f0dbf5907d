// The shared-memory hash table. Everything in the segment is offsets from the allocator's base
// address, so that each process may map it anywhere. The segment is taken on trust (there is
// no version and the magic is never tested), but it may have been written by anyone: every
// offset and length read from it is checked against the mapping before it is followed, and a
// chain is walked at most as many steps as buckets fit in the segment, so that a damaged table
// reads as "not found" instead of taking its readers down.
#include "ymmap_hash.h"

#include "yassert.h"
#include "ymmap_allocator_p.h"

#include <climits>
#include <cstring>

namespace {

const quint32 NIL = 0xFFFFFFFFu;
const quint64 BUCKET_SIZE = sizeof(YMMapHashBucket);
const quint32 HEADER_SIZE = sizeof(YMMapHashHeader);
const quint32 BACKBONE_SIZE = 4 * YMMapHash::BUCKET_COUNT;

static_assert(sizeof(YMMapHashBucket) == 24, "the bucket record is 24 bytes in every process");
static_assert(sizeof(YMMapHashHeader) == 16, "the table header is 16 bytes in every process");

// Links are published by one 32-bit store and followed by one 32-bit load, so that a reader
// without a lock never sees a half-made entry behind a link (see atomicInsert).
inline quint32 loadLink(const quint32* link)
{
    return __atomic_load_n(link, __ATOMIC_ACQUIRE);
}

inline void publishLink(quint32* link, quint32 offset)
{
    __atomic_store_n(link, offset, __ATOMIC_RELEASE);
}

inline quint32 loadWord(const quint32* word)
{
    return __atomic_load_n(word, __ATOMIC_RELAXED);
}

inline void storeWord(quint32* word, quint32 value)
{
    __atomic_store_n(word, value, __ATOMIC_RELAXED);
}

// Qt 4's unseeded QByteArray hash. Qt 5 seeds and changed its hash, and every process that
// shares a table must put a key into the same chain, also a peer built with Qt 4.
// kept: qt4-bucket-hash
inline uint qt4Hash(const QByteArray& key)
{
    const uchar* p = reinterpret_cast<const uchar*>(key.constData());
    uint h = 0;
    for (int i = key.size(); i > 0; --i) {
        h = (h << 4) + *p++;
        h ^= (h & 0xf0000000) >> 23;
        h &= 0x0fffffff;
    }
    return h;
}

} // namespace

/// What one operation needs of the segment, read and checked once.
struct YMMapHash::Table
{
    char* base;
    quint64 limit; ///< bytes from base that lie inside the segment and the mapping
    quint32* backbone;
    quint32 buckets;

    YMMapHashBucket* bucketAt(quint32 offset) const
    {
        if ((offset & 3) != 0 || quint64(offset) + BUCKET_SIZE > limit)
            return nullptr;
        return reinterpret_cast<YMMapHashBucket*>(base + offset);
    }

    quint32 offsetOf(const void* pointer) const
    {
        return quint32(static_cast<const char*>(pointer) - base);
    }

    // A chain can't hold more distinct buckets than fit in the segment: more steps is a loop.
    quint64 maxSteps() const { return limit / BUCKET_SIZE + 1; }

    YMMapHashBucket* find(const QByteArray& key, quint32 index) const
    {
        if (index >= buckets)
            return nullptr;
        const quint32 keyLength = quint32(key.size());
        quint64 steps = maxSteps();
        for (quint32 offset = loadLink(&backbone[index]); offset != NIL;) {
            YMMapHashBucket* bucket = bucketAt(offset);
            if (!bucket || steps-- == 0)
                return nullptr;
            if (bucket->keyLength == keyLength) {
                const quint32 keyOffset = bucket->keyOffset;
                if (quint64(keyOffset) + keyLength <= limit
                    && memcmp(base + keyOffset, key.constData(), keyLength) == 0)
                    return bucket;
            }
            offset = loadLink(&bucket->next);
        }
        return nullptr;
    }

    YMMapHashBucket* findLast(quint32 index) const
    {
        if (index >= buckets)
            return nullptr;
        quint32 offset = loadLink(&backbone[index]);
        if (offset == NIL)
            return nullptr;
        for (quint64 steps = maxSteps(); steps > 0; --steps) {
            YMMapHashBucket* bucket = bucketAt(offset);
            if (!bucket)
                return nullptr;
            const quint32 next = loadLink(&bucket->next);
            if (next == NIL)
                return bucket;
            offset = next;
        }
        return nullptr;
    }
};

YMMapHash::YMMapHash()
    : _header(nullptr)
    , _backbone(nullptr)
{
}

YMMapHash::~YMMapHash()
{
    _allocator.close();
}

bool YMMapHash::loadTable(Table& table) const
{
    // The allocator's own dataLimit() and baseAddress(), spelled out: this runs on every lookup.
    const YMMapAllocator& a = _allocator;
    if (!_header || !a._header || !a._view)
        return false;
    const quint64 total = qMin<quint64>(loadWord(&a._header->totalSize), a._handle->size);
    table.limit = total > sizeof(YMMapSegmentHeader) ? total - sizeof(YMMapSegmentHeader) : 0;
    if (table.limit < HEADER_SIZE)
        return false;
    table.base = static_cast<char*>(a._view) + sizeof(YMMapSegmentHeader);
    table.backbone = _backbone;
    table.buckets = loadWord(&_header->bucketCount);
    const quint64 backboneEnd
        = quint64(reinterpret_cast<char*>(_backbone) - table.base) + quint64(table.buckets) * 4;
    return table.buckets > 0 && backboneEnd <= table.limit;
}

bool YMMapHash::noTable()
{
    _errorString = QStringLiteral("Invalid hash table (_header==NULL)");
    return false;
}

bool YMMapHash::corrupt()
{
    _errorString = QStringLiteral("YMMapHash: corrupt hash table in the segment");
    return false;
}

bool YMMapHash::create(const char* name, unsigned int size)
{
    _header = nullptr;
    _backbone = nullptr;
    // A size the segment's words can't hold is left to the allocator to refuse.
    const unsigned int total = size > UINT_MAX - TABLE_SIZE ? UINT_MAX : size + TABLE_SIZE;
    if (!_allocator.create(name, total)) {
        _errorString = _allocator.errorString();
        return false;
    }
    return doInitialize();
}

bool YMMapHash::attach(const char* name)
{
    _header = nullptr;
    _backbone = nullptr;
    if (!_allocator.attach(name)) {
        _errorString = _allocator.errorString();
        return false;
    }
    // Deliberately not examined: whatever lies there is the table.
    char* base = static_cast<char*>(_allocator.baseAddress());
    _header = reinterpret_cast<YMMapHashHeader*>(base);
    _backbone = reinterpret_cast<quint32*>(base + HEADER_SIZE);
    return true;
}

bool YMMapHash::doInitialize()
{
    YMMapHashHeader* header = static_cast<YMMapHashHeader*>(_allocator.allocate(HEADER_SIZE));
    if (header) {
        storeWord(&header->bucketCount, BUCKET_COUNT);
        storeWord(&header->entriesCount, 0);
        storeWord(&header->magic, MAGIC);
    }
    quint32* backbone
        = header ? static_cast<quint32*>(_allocator.allocate(BACKBONE_SIZE)) : nullptr;
    if (!backbone) {
        _errorString = _allocator.errorString();
        _header = nullptr;
        _backbone = nullptr;
        _allocator.close();
        return false;
    }
    memset(backbone, 0xFF, BACKBONE_SIZE);
    _header = header;
    _backbone = backbone;
    return true;
}

YMMapHashBucket* YMMapHash::newEntry(const QByteArray& key, const QByteArray& value)
{
    // All three first, deliberately: a failure loses what the others got, there is no rollback.
    void* bucketSpace = _allocator.allocate(BUCKET_SIZE);
    void* valueSpace = _allocator.allocate(quint32(value.size()));
    void* keySpace = _allocator.allocate(quint32(key.size()));
    if (!bucketSpace || !valueSpace || !keySpace) {
        _errorString = QStringLiteral("YMMapHash::newEntry: can't allocate new entry: %1")
                           .arg(_allocator.errorString());
        return nullptr;
    }
    const char* base = static_cast<const char*>(_allocator.baseAddress());
    YMMapHashBucket* bucket = static_cast<YMMapHashBucket*>(bucketSpace);
    bucket->next = NIL;
    bucket->prev = NIL;
    bucket->valueLength = quint32(value.size());
    bucket->valueOffset = quint32(static_cast<const char*>(valueSpace) - base);
    memmove(valueSpace, value.constData(), size_t(value.size()));
    bucket->keyOffset = quint32(static_cast<const char*>(keySpace) - base);
    bucket->keyLength = quint32(key.size());
    memmove(keySpace, key.constData(), size_t(key.size()));
    return bucket;
}

bool YMMapHash::appendEntry(Table& table, quint32 index, YMMapHashBucket* entry)
{
    // The entry is whole before the one store that links it at the end of its chain.
    quint32* link = &table.backbone[index];
    quint32 previous = NIL;
    if (loadLink(link) != NIL) {
        YMMapHashBucket* last = table.findLast(index);
        if (!last)
            return corrupt();
        previous = table.offsetOf(last);
        link = &last->next;
    }
    entry->prev = previous;
    publishLink(link, table.offsetOf(entry));
    storeWord(&_header->entriesCount, loadWord(&_header->entriesCount) + 1);
    return true;
}

bool YMMapHash::insert(const QByteArray& key, const QByteArray& value)
{
    if (!_header)
        return noTable();
    Table table;
    if (!loadTable(table))
        return corrupt();
    const quint32 index = qt4Hash(key) % table.buckets;

    if (loadLink(&table.backbone[index]) == NIL) {
        YMMapHashBucket* entry = newEntry(key, value);
        return entry && appendEntry(table, index, entry);
    }

    if (YMMapHashBucket* found = table.find(key, index)) {
        const quint32 length = quint32(value.size());
        if (found->valueLength >= length) {
            // In place; the old capacity is forgotten, deliberately: a later, longer value
            // takes new space even where the first one would have left room.
            const quint32 valueOffset = found->valueOffset;
            if (quint64(valueOffset) + length > table.limit)
                return corrupt();
            found->valueLength = length;
            memmove(table.base + valueOffset, value.constData(), length);
            return true;
        }
        void* space = _allocator.allocate(length);
        if (!space) {
            // The misspelling is part of the message that callers match.
            // kept: has-is-full
            _errorString = QStringLiteral("YMMapHash::insert: has is full: %1")
                               .arg(_allocator.errorString());
            return false;
        }
        found->valueLength = length;
        memmove(space, value.constData(), length);
        found->valueOffset = table.offsetOf(space);
        return true;
    }

    YMMapHashBucket* entry = newEntry(key, value);
    return entry && appendEntry(table, index, entry);
}

bool YMMapHash::atomicInsert(const QByteArray& key, const QByteArray& value)
{
    if (!_header)
        return noTable();
    Table table;
    if (!loadTable(table))
        return corrupt();
    const quint32 index = qt4Hash(key) % table.buckets;

    if (loadLink(&table.backbone[index]) == NIL) {
        YMMapHashBucket* entry = newEntry(key, value);
        return entry && appendEntry(table, index, entry);
    }

    // The entry is whole before anything links to it; the one store into the chain publishes it.
    YMMapHashBucket* entry = newEntry(key, value);
    if (!entry)
        return false;
    const quint32 entryOffset = table.offsetOf(entry);

    if (YMMapHashBucket* old = table.find(key, index)) {
        const quint32 oldNext = loadLink(&old->next);
        entry->next = oldNext;
        if (oldNext != NIL) {
            if (YMMapHashBucket* following = table.bucketAt(oldNext))
                following->prev = entryOffset;
        }
        const quint32 oldPrev = old->prev;
        entry->prev = oldPrev;
        // The old bucket keeps its own links, so a reader standing on it walks on.
        if (oldPrev == NIL) {
            publishLink(&table.backbone[index], entryOffset);
        } else {
            YMMapHashBucket* previous = table.bucketAt(oldPrev);
            if (!previous)
                return corrupt();
            publishLink(&previous->next, entryOffset);
        }
        return true;
    }

    return appendEntry(table, index, entry);
}

bool YMMapHash::value(const QByteArray& key, QByteArray& out)
{
    void* data = nullptr;
    int length = 0;
    if (!value(key, &data, length))
        return false;
    // A reader that passes the same array again gets its bytes copied without an allocation.
    if (out.isDetached() && out.capacity() >= length) {
        out.resize(length);
        memcpy(out.data(), data, size_t(length));
    } else {
        out = QByteArray(static_cast<const char*>(data), length);
    }
    return true;
}

bool YMMapHash::value(const QByteArray& key, void** data, int& length)
{
    if (!_header)
        return noTable();
    Table table;
    if (!loadTable(table))
        return false;
    const YMMapHashBucket* bucket = table.find(key, qt4Hash(key) % table.buckets);
    if (!bucket)
        return false;
    const quint32 valueOffset = bucket->valueOffset;
    const quint32 valueLength = bucket->valueLength;
    if (valueLength > quint32(INT_MAX) || quint64(valueOffset) + valueLength > table.limit)
        return false;
    *data = table.base + valueOffset;
    length = int(valueLength);
    return true;
}

bool YMMapHash::contains(const QByteArray& key) const
{
    Y_ASSERT(_header != nullptr);
    Table table;
    if (!loadTable(table))
        return false;
    return table.find(key, qt4Hash(key) % table.buckets) != nullptr;
}

bool YMMapHash::remove(const QByteArray& key)
{
    if (!_header)
        return noTable();
    Table table;
    if (!loadTable(table))
        return false;
    const quint32 index = qt4Hash(key) % table.buckets;
    YMMapHashBucket* bucket = table.find(key, index);
    if (!bucket)
        return false;
    const quint32 self = table.offsetOf(bucket);
    const quint32 next = loadLink(&bucket->next);
    const quint32 prev = bucket->prev;
    if (prev == NIL) {
        // kept: removed-prev-link
        // Deliberately the following bucket's prev keeps pointing at the removed one.
        publishLink(&table.backbone[index], next);
    } else {
        YMMapHashBucket* previous = table.bucketAt(prev);
        if (!previous)
            return corrupt();
        if (next == NIL) {
            publishLink(&previous->next, NIL);
        } else {
            publishLink(&previous->next, next);
            // Deliberately the removed bucket itself, not its predecessor: prev behind a removed
            // entry is no chain link, though it still names an intact record.
            if (YMMapHashBucket* following = table.bucketAt(next))
                following->prev = self;
        }
    }
    storeWord(&_header->entriesCount, loadWord(&_header->entriesCount) - 1);
    return true;
}

void YMMapHash::clear()
{
    // Allocation restarts where the table began, so the header and backbone land at the same
    // offsets and every process that has the segment sees the empty table at once.
    _allocator.clear();
    doInitialize();
}

unsigned int YMMapHash::getEntriesCount()
{
    Y_ASSERT(_header != nullptr);
    return loadWord(&_header->entriesCount);
}

YMMapHashBucket* YMMapHash::doFindBucket(const QByteArray& key, unsigned int index) const
{
    Table table;
    return loadTable(table) ? table.find(key, index) : nullptr;
}

YMMapHashBucket* YMMapHash::doFindLastInList(unsigned int index) const
{
    Table table;
    return loadTable(table) ? table.findLast(index) : nullptr;
}

unsigned int YMMapHash::doGetIndexForKey(const QByteArray& key) const
{
    Y_ASSERT(_header != nullptr);
    Table table;
    return loadTable(table) ? qt4Hash(key) % table.buckets : 0;
}
