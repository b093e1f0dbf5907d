#include "ymd5.h"

#include "ydigest_p.h"

#include <atomic>
#include <cstring>

using ydigest::load32le;
using ydigest::rotl;
using ydigest::store32le;

// The context as RFC 1321 keeps it. The owner count exists only because copies share one
// context: the last of them frees it.
struct YMD5Private
{
    uint32_t count[2]; // message length in bits, low word first
    uint32_t state[4];
    unsigned char buffer[64];
    unsigned char digest[16];
    std::atomic<int> owners;
};

namespace {

void md5Start(YMD5Private* ctx)
{
    ctx->count[0] = ctx->count[1] = 0;
    ctx->state[0] = 0x67452301;
    ctx->state[1] = 0xefcdab89;
    ctx->state[2] = 0x98badcfe;
    ctx->state[3] = 0x10325476;
}

// The rounds are written out so that the compiler keeps the four words in registers, and each
// step adds the constant and the message word before the boolean function, which takes them off
// the chain of dependent operations. In G the two halves of the function are disjoint, so they can
// be added separately instead of or-ed, and the half that waits for b comes last.
#define MD5_F(a, b, c, d, x, s, k)                                                                 \
    a += (x) + (k) + ((((c) ^ (d)) & (b)) ^ (d));                                                  \
    a = rotl(a, s) + (b)
#define MD5_G(a, b, c, d, x, s, k)                                                                 \
    a += (x) + (k) + ((c) & ~(d));                                                                 \
    a += (b) & (d);                                                                                \
    a = rotl(a, s) + (b)
#define MD5_H(a, b, c, d, x, s, k)                                                                 \
    a += (x) + (k) + ((b) ^ (c) ^ (d));                                                            \
    a = rotl(a, s) + (b)
#define MD5_I(a, b, c, d, x, s, k)                                                                 \
    a += (x) + (k) + ((c) ^ ((b) | ~(d)));                                                         \
    a = rotl(a, s) + (b)

void md5Blocks(uint32_t state[4], const unsigned char* data, size_t blocks)
{
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    for (; blocks > 0; --blocks, data += 64) {
        uint32_t x[16];
        for (int i = 0; i < 16; ++i)
            x[i] = load32le(data + 4 * i);
        const uint32_t aa = a, bb = b, cc = c, dd = d;

        MD5_F(a, b, c, d, x[0], 7, 0xd76aa478);
        MD5_F(d, a, b, c, x[1], 12, 0xe8c7b756);
        MD5_F(c, d, a, b, x[2], 17, 0x242070db);
        MD5_F(b, c, d, a, x[3], 22, 0xc1bdceee);
        MD5_F(a, b, c, d, x[4], 7, 0xf57c0faf);
        MD5_F(d, a, b, c, x[5], 12, 0x4787c62a);
        MD5_F(c, d, a, b, x[6], 17, 0xa8304613);
        MD5_F(b, c, d, a, x[7], 22, 0xfd469501);
        MD5_F(a, b, c, d, x[8], 7, 0x698098d8);
        MD5_F(d, a, b, c, x[9], 12, 0x8b44f7af);
        MD5_F(c, d, a, b, x[10], 17, 0xffff5bb1);
        MD5_F(b, c, d, a, x[11], 22, 0x895cd7be);
        MD5_F(a, b, c, d, x[12], 7, 0x6b901122);
        MD5_F(d, a, b, c, x[13], 12, 0xfd987193);
        MD5_F(c, d, a, b, x[14], 17, 0xa679438e);
        MD5_F(b, c, d, a, x[15], 22, 0x49b40821);

        MD5_G(a, b, c, d, x[1], 5, 0xf61e2562);
        MD5_G(d, a, b, c, x[6], 9, 0xc040b340);
        MD5_G(c, d, a, b, x[11], 14, 0x265e5a51);
        MD5_G(b, c, d, a, x[0], 20, 0xe9b6c7aa);
        MD5_G(a, b, c, d, x[5], 5, 0xd62f105d);
        MD5_G(d, a, b, c, x[10], 9, 0x02441453);
        MD5_G(c, d, a, b, x[15], 14, 0xd8a1e681);
        MD5_G(b, c, d, a, x[4], 20, 0xe7d3fbc8);
        MD5_G(a, b, c, d, x[9], 5, 0x21e1cde6);
        MD5_G(d, a, b, c, x[14], 9, 0xc33707d6);
        MD5_G(c, d, a, b, x[3], 14, 0xf4d50d87);
        MD5_G(b, c, d, a, x[8], 20, 0x455a14ed);
        MD5_G(a, b, c, d, x[13], 5, 0xa9e3e905);
        MD5_G(d, a, b, c, x[2], 9, 0xfcefa3f8);
        MD5_G(c, d, a, b, x[7], 14, 0x676f02d9);
        MD5_G(b, c, d, a, x[12], 20, 0x8d2a4c8a);

        MD5_H(a, b, c, d, x[5], 4, 0xfffa3942);
        MD5_H(d, a, b, c, x[8], 11, 0x8771f681);
        MD5_H(c, d, a, b, x[11], 16, 0x6d9d6122);
        MD5_H(b, c, d, a, x[14], 23, 0xfde5380c);
        MD5_H(a, b, c, d, x[1], 4, 0xa4beea44);
        MD5_H(d, a, b, c, x[4], 11, 0x4bdecfa9);
        MD5_H(c, d, a, b, x[7], 16, 0xf6bb4b60);
        MD5_H(b, c, d, a, x[10], 23, 0xbebfbc70);
        MD5_H(a, b, c, d, x[13], 4, 0x289b7ec6);
        MD5_H(d, a, b, c, x[0], 11, 0xeaa127fa);
        MD5_H(c, d, a, b, x[3], 16, 0xd4ef3085);
        MD5_H(b, c, d, a, x[6], 23, 0x04881d05);
        MD5_H(a, b, c, d, x[9], 4, 0xd9d4d039);
        MD5_H(d, a, b, c, x[12], 11, 0xe6db99e5);
        MD5_H(c, d, a, b, x[15], 16, 0x1fa27cf8);
        MD5_H(b, c, d, a, x[2], 23, 0xc4ac5665);

        MD5_I(a, b, c, d, x[0], 6, 0xf4292244);
        MD5_I(d, a, b, c, x[7], 10, 0x432aff97);
        MD5_I(c, d, a, b, x[14], 15, 0xab9423a7);
        MD5_I(b, c, d, a, x[5], 21, 0xfc93a039);
        MD5_I(a, b, c, d, x[12], 6, 0x655b59c3);
        MD5_I(d, a, b, c, x[3], 10, 0x8f0ccc92);
        MD5_I(c, d, a, b, x[10], 15, 0xffeff47d);
        MD5_I(b, c, d, a, x[1], 21, 0x85845dd1);
        MD5_I(a, b, c, d, x[8], 6, 0x6fa87e4f);
        MD5_I(d, a, b, c, x[15], 10, 0xfe2ce6e0);
        MD5_I(c, d, a, b, x[6], 15, 0xa3014314);
        MD5_I(b, c, d, a, x[13], 21, 0x4e0811a1);
        MD5_I(a, b, c, d, x[4], 6, 0xf7537e82);
        MD5_I(d, a, b, c, x[11], 10, 0xbd3af235);
        MD5_I(c, d, a, b, x[2], 15, 0x2ad7d2bb);
        MD5_I(b, c, d, a, x[9], 21, 0xeb86d391);

        a += aa;
        b += bb;
        c += cc;
        d += dd;
    }
    state[0] = a;
    state[1] = b;
    state[2] = c;
    state[3] = d;
}

#undef MD5_F
#undef MD5_G
#undef MD5_H
#undef MD5_I

void md5Update(YMD5Private* ctx, const unsigned char* data, size_t length)
{
    size_t index = (ctx->count[0] >> 3) & 0x3f;
    // The bit count is kept modulo 2^64, as the padding writes it.
    const uint64_t bits = (uint64_t(ctx->count[1]) << 32 | ctx->count[0]) + (uint64_t(length) << 3);
    ctx->count[0] = uint32_t(bits);
    ctx->count[1] = uint32_t(bits >> 32);

    if (index > 0) {
        const size_t room = 64 - index;
        if (length < room) {
            std::memcpy(ctx->buffer + index, data, length);
            return;
        }
        std::memcpy(ctx->buffer + index, data, room);
        md5Blocks(ctx->state, ctx->buffer, 1);
        data += room;
        length -= room;
    }
    if (length >= 64) {
        md5Blocks(ctx->state, data, length / 64);
        data += length & ~size_t(63);
        length &= 63;
    }
    if (length > 0)
        std::memcpy(ctx->buffer, data, length);
}

void md5Final(YMD5Private* ctx)
{
    unsigned char bits[8];
    store32le(bits, ctx->count[0]);
    store32le(bits + 4, ctx->count[1]);
    static const unsigned char padding[64] = {0x80};
    const size_t index = (ctx->count[0] >> 3) & 0x3f;
    md5Update(ctx, padding, index < 56 ? 56 - index : 120 - index);
    md5Update(ctx, bits, 8);
    for (int i = 0; i < 4; ++i)
        store32le(ctx->digest + 4 * i, ctx->state[i]);
}

} // namespace

const int YMD5::DigestSize;
const int YMD5::HashSize;

YMD5::YMD5()
    : _context(new YMD5Private)
{
    md5Start(_context);
    _context->owners = 1;
}

YMD5::YMD5(const YMD5& other)
    : _context(ydigest::adopt(other._context))
{
}

YMD5& YMD5::operator=(const YMD5& other)
{
    ydigest::reassign(_context, other._context);
    return *this;
}

YMD5::~YMD5()
{
    ydigest::release(_context);
}

void YMD5::appendBlock(const QByteArray& data)
{
    if (data.isEmpty())
        return;
    md5Update(
        _context, reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()));
}

QByteArray YMD5::completedHash()
{
    md5Final(_context);
    return ydigest::hexText(_context->digest, true);
}

QByteArray YMD5::hash(const QByteArray& data)
{
    YMD5Private context;
    md5Start(&context);
    md5Update(
        &context, reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()));
    md5Final(&context);
    return ydigest::hexText(context.digest, true);
}
