// A hash table attached to a segment that holds arbitrary bytes, header included, as a peer with
// a bug or a stray writer could leave it. Lookups, inserts and removes must give not-found or
// the table's own error words, and a value handed out by pointer must lie inside the mapping.
//
// Input: one byte n, then n bytes of operations, then the segment's bytes from its first one
// (the rest of the segment is zero).
#include "ymmap_allocator.h"
#include "ymmap_hash.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

// One page: the allocator adds its 8 header bytes to the size asked for.
const unsigned int SEGMENT_SIZE = 4096;

struct Segment
{
    Segment()
    {
        name = "fuzzhash" + QByteArray::number(qint64(getpid()));
        if (!owner.create(name.constData(), SEGMENT_SIZE - 8) || !hash.attach(name.constData())) {
            fprintf(stderr, "no segment: %s / %s\n", qPrintable(owner.errorString()),
                qPrintable(hash.errorString()));
            abort();
        }
        // The view starts with the allocator's header, 8 bytes before the base of all offsets.
        bytes = static_cast<char*>(owner.baseAddress()) - 8;
    }
    QByteArray name;
    YMMapAllocator owner;
    YMMapHash hash;
    char* bytes;
};

class Script
{
public:
    Script(const uint8_t* data, size_t size)
        : _data(data)
        , _size(size)
    {
    }
    bool atEnd() const { return _at >= _size; }
    uint8_t byte() { return _at < _size ? _data[_at++] : 0; }
    QByteArray bytes(size_t count)
    {
        count = count < _size - _at ? count : _size - _at;
        const QByteArray result(reinterpret_cast<const char*>(_data + _at), int(count));
        _at += count;
        return result;
    }

private:
    const uint8_t* _data;
    size_t _size;
    size_t _at = 0;
};

bool isTableError(const QString& text)
{
    return text.isEmpty() || text == QLatin1String("YMMapHash: corrupt hash table in the segment")
        || text.startsWith(QLatin1String("YMMapHash::newEntry: can't allocate new entry: "))
        || text.startsWith(QLatin1String("YMMapHash::insert: has is full: "));
}

void check(bool condition)
{
    if (!condition)
        abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Segment segment;
    if (size == 0)
        return 0;
    const size_t scriptSize = data[0] < size - 1 ? data[0] : size - 1;
    Script script(data + 1, scriptSize);
    const size_t filled
        = size - 1 - scriptSize < SEGMENT_SIZE ? size - 1 - scriptSize : SEGMENT_SIZE;
    memcpy(segment.bytes, data + 1 + scriptSize, filled);
    memset(segment.bytes + filled, 0, SEGMENT_SIZE - filled);

    YMMapHash& hash = segment.hash;
    // The table has a view of its own, at another address than the one written through above.
    const char* begin = static_cast<const char*>(hash.getAllocator().baseAddress()) - 8;
    const char* end = begin + SEGMENT_SIZE;
    // With no script at all, a few lookups still walk the chains.
    const int operations = script.atEnd() ? 4 : 64;
    for (int i = 0; i < operations && (i < 4 || !script.atEnd()); ++i) {
        const uint8_t op = script.byte();
        const QByteArray key
            = script.atEnd() ? QByteArray("key") + char('0' + i) : script.bytes(script.byte() % 16);
        switch (op % 7) {
        case 0: {
            QByteArray value;
            if (hash.value(key, value))
                check(value.size() <= int(SEGMENT_SIZE));
            break;
        }
        case 1: {
            void* pointer = nullptr;
            int length = -1;
            if (hash.value(key, &pointer, length)) {
                const char* p = static_cast<const char*>(pointer);
                check(length >= 0 && p >= begin && p <= end && length <= end - p);
            }
            break;
        }
        case 2:
            hash.contains(key);
            break;
        case 3:
        case 4: {
            const QByteArray value = script.bytes(script.byte() % 32);
            const bool done = op % 7 == 3 ? hash.insert(key, value) : hash.atomicInsert(key, value);
            check(done || isTableError(hash.errorString()));
            break;
        }
        case 5:
            check(hash.remove(key) || isTableError(hash.errorString()));
            break;
        case 6:
            hash.getEntriesCount();
            break;
        }
    }
    return 0;
}
