// Not part of the YovoLib API: byte-order and text helpers shared by the digests.

#ifndef YOVOLIB_YDIGEST_P_H
#define YOVOLIB_YDIGEST_P_H

#include <QByteArray>

#include <atomic>
#include <cstdint>
#include <cstring>

namespace ydigest {

// Copies of a digest share one running state, which counts its owners in its atomic `owners`
// field so that the last owner frees it, whichever thread it is on. These are the only places
// that touch the count; the order is that of any shared pointer: taking a share needs no order,
// the last release must see every write the other owners made before freeing.
template<class Context> inline Context* adopt(Context* context)
{
    context->owners.fetch_add(1, std::memory_order_relaxed);
    return context;
}

template<class Context> inline void release(Context* context)
{
    if (context->owners.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete context;
}

template<class Context> inline void reassign(Context*& mine, Context* theirs)
{
    if (mine == theirs)
        return;
    adopt(theirs);
    release(mine);
    mine = theirs;
}

// memcpy keeps the loads legal for unaligned input; compilers turn it into one move (and a bswap
// where the order differs from the machine's).
inline uint32_t load32le(const unsigned char* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    return v;
}

inline uint32_t load32be(const unsigned char* p)
{
    uint32_t v;
    std::memcpy(&v, p, 4);
#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    return v;
}

inline void store32le(unsigned char* p, uint32_t v)
{
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    std::memcpy(p, &v, 4);
}

inline void store32be(unsigned char* p, uint32_t v)
{
#if !defined(__BYTE_ORDER__) || __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    v = __builtin_bswap32(v);
#endif
    std::memcpy(p, &v, 4);
}

inline uint32_t rotl(uint32_t v, int n)
{
    return (v << n) | (v >> (32 - n));
}
inline uint32_t rotr(uint32_t v, int n)
{
    return (v >> n) | (v << (32 - n));
}

// The same text as "%02X" (or "%02x") per byte, without a formatting call per byte. The text is
// assembled in a buffer of the digest's own size and copied once: the optimiser can then prove
// every store in bounds, which it cannot for a QByteArray that might be the shared empty one.
template<size_t N> inline QByteArray hexText(const unsigned char (&bytes)[N], bool upperCase)
{
    const char* digits = upperCase ? "0123456789ABCDEF" : "0123456789abcdef";
    char text[2 * N];
    for (size_t i = 0; i < N; ++i) {
        text[2 * i] = digits[bytes[i] >> 4];
        text[2 * i + 1] = digits[bytes[i] & 0x0f];
    }
    return QByteArray(text, int(2 * N));
}

} // namespace ydigest

#endif // YOVOLIB_YDIGEST_P_H
