#include "ycompress.h"

#include "yexception.h"

#include <zlib.h>

#include <limits>
#include <new>

namespace {

// The most a QByteArray holds, less room for its header.
const int maxCapacity = std::numeric_limits<int>::max() - 64;

// The first output size; doubling goes on from there. Eight times the input covers the usual
// ratios of text in one pass, and untouched capacity costs no memory pages.
int initialCapacity(int compressedSize)
{
    const int factor = 8;
    const int minimum = 256;
    if (compressedSize > maxCapacity / factor)
        return maxCapacity;
    return qMax(minimum, compressedSize * factor);
}

[[noreturn]] void throwNoMemory()
{
    throw YException("Insuffucient memory");
}

} // namespace

QByteArray YCompress::zlibCompress(QByteArray data, int level)
{
    QByteArray compressed
        = qCompress(reinterpret_cast<const uchar*>(data.constData()), data.size(), level);
    return removeQtHeader(compressed);
}

QByteArray YCompress::zlibUncompress(QByteArray data)
{
    QByteArray output;
    try {
        output.reserve(initialCapacity(data.size()));
    } catch (const std::bad_alloc&) {
        throwNoMemory();
    }
    for (;;) {
        output.resize(output.capacity());
        uLongf length = uLongf(output.size());
        const int result = ::uncompress(reinterpret_cast<Bytef*>(output.data()), &length,
            reinterpret_cast<const Bytef*>(data.constData()), uLong(data.size()));
        switch (result) {
        case Z_BUF_ERROR: {
            // Past the largest QByteArray the stream expands beyond what can be returned.
            const int capacity = output.capacity();
            if (capacity >= maxCapacity)
                throwNoMemory();
            try {
                output.reserve(capacity > maxCapacity / 2 ? maxCapacity : capacity * 2);
            } catch (const std::bad_alloc&) {
                throwNoMemory();
            }
            break;
        }
        case Z_MEM_ERROR:
            throwNoMemory();
        case Z_DATA_ERROR:
            throw YException("Compressed data is corrupted");
        case Z_OK:
            // A kept result should not hold more slack from the guess than it holds data. Such a
            // result moves to an array of its own size rather than shrinking in place: shrinking
            // a large block teaches the allocator to map fresh pages for every following guess,
            // which costs more than the copy.
            if (output.capacity() - int(length) > qMax(int(length), 4096))
                return QByteArray(output.constData(), int(length));
            output.resize(int(length));
            return output;
        default:
            // uncompress reports nothing else; should it, the call is simply repeated.
            break;
        }
    }
}

QByteArray& YCompress::removeQtHeader(QByteArray& data)
{
    data.remove(0, 4);
    return data;
}
