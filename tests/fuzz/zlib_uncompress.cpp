// zlib streams from arbitrary bytes: each gives its data back or one of the two failures in
// words, and what comes back compresses and expands to itself again.
#include "ycompress.h"
#include "yexception.h"

#include <QByteArray>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

bool endsWith(const char* text, const char* tail)
{
    const size_t length = strlen(text), tailLength = strlen(tail);
    return length >= tailLength && strcmp(text + length - tailLength, tail) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray input(reinterpret_cast<const char*>(data), int(size));
    QByteArray output;
    try {
        output = YCompress::zlibUncompress(input);
    } catch (const YException& e) {
        if (!endsWith(e.what(), "Compressed data is corrupted")
            && !endsWith(e.what(), "Insuffucient memory"))
            abort();
        return 0;
    }
    // Empty data compresses to nothing at all, which is no stream: that way round only data. Big
    // expansions are left to the unit tests, so that the fuzzer keeps its pace.
    if (!output.isEmpty() && output.size() <= (64 << 10)
        && YCompress::zlibUncompress(YCompress::zlibCompress(output, 1)) != output)
        abort();
    return 0;
}
