#include "ysha256.h"

#include "ydigest_p.h"
#include "ysha256_p.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

using ydigest::load32be;
using ydigest::rotr;
using ydigest::store32be;

// The running state of a keyed hash after its inner and its outer pad, for one key block. Every
// signature of a daemon is made with the same few keys, and these two blocks are a third of the
// work of a short one.
struct YSHA256KeyedPads
{
    bool valid;
    unsigned char keyBlock[64]; // the key as the pads use it: zero-filled to the block
    uint32_t inner[8];
    uint32_t outer[8];
};

// The context as the standard describes it. The owner count exists only because copies share one
// context: the last of them frees it, and copies may live on different threads.
struct YSHA256Private
{
    uint32_t state[8];
    uint32_t countHigh; // message length in bits, high word
    uint32_t countLow;
    unsigned char buffer[64];
    int fill;
    std::atomic<int> owners;
    YSHA256KeyedPads pads;
};

namespace ysha256 {

alignas(16) const uint32_t roundConstants[64] = {0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5,
    0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3,
    0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174, 0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc,
    0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7,
    0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13,
    0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3,
    0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5,
    0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3, 0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208,
    0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

} // namespace ysha256

namespace {

const uint32_t initialState[8] = {
    0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};

void sha256Start(YSHA256Private* ctx)
{
    std::memcpy(ctx->state, initialState, sizeof(initialState));
    ctx->countHigh = ctx->countLow = 0;
    ctx->fill = 0;
}

// The rounds are written out with the eight words renamed instead of moved, so that the compiler
// keeps them in registers. The message schedule runs four words at a time in vectors (the
// compiler's generic vector types, which become SSE or AVX code on x86 and NEON on ARM), each
// group computed a little before the rounds use it; the vectors also add the round constants.

const uint32_t* const K = ysha256::roundConstants;

typedef uint32_t Vec4 __attribute__((vector_size(16)));

inline Vec4 loadVec(const uint32_t* p)
{
    Vec4 v;
    std::memcpy(&v, p, sizeof(v));
    return v;
}

inline void storeVec(uint32_t* p, Vec4 v)
{
    std::memcpy(p, &v, sizeof(v));
}

inline Vec4 sigma0(Vec4 x)
{
    return (x >> 7) ^ (x << 25) ^ (x >> 18) ^ (x << 14) ^ (x >> 3);
}

inline Vec4 sigma1(Vec4 x)
{
    return (x >> 17) ^ (x << 15) ^ (x >> 19) ^ (x << 13) ^ (x >> 10);
}

// The next four schedule words from the last sixteen (x0 oldest). The last two of the four depend
// on the first two through sigma1, so that part is done in two halves.
inline Vec4 nextSchedule(Vec4 x0, Vec4 x1, Vec4 x2, Vec4 x3)
{
    const Vec4 zero = {0, 0, 0, 0};
    const Vec4 w15 = __builtin_shufflevector(x0, x1, 1, 2, 3, 4);
    const Vec4 w7 = __builtin_shufflevector(x2, x3, 1, 2, 3, 4);
    Vec4 next = x0 + sigma0(w15) + w7;
    const Vec4 low = sigma1(__builtin_shufflevector(x3, x3, 2, 3, 2, 3));
    next += __builtin_shufflevector(low, zero, 0, 1, 4, 5);
    const Vec4 high = sigma1(__builtin_shufflevector(next, next, 0, 1, 0, 1));
    next += __builtin_shufflevector(zero, high, 0, 1, 6, 7);
    return next;
}

// Sigma functions of the rounds. Nested, each needs one copy of its argument instead of three,
// which suits plain x86-64; with three-operand rotations (BMI2) the flat form is shorter and has
// the shorter chain of dependencies.
template<bool Flat> inline uint32_t bigSigma0(uint32_t x)
{
    return Flat ? rotr(x, 2) ^ rotr(x, 13) ^ rotr(x, 22) : rotr(x ^ rotr(x ^ rotr(x, 9), 11), 2);
}

template<bool Flat> inline uint32_t bigSigma1(uint32_t x)
{
    return Flat ? rotr(x, 6) ^ rotr(x, 11) ^ rotr(x, 25) : rotr(x ^ rotr(x ^ rotr(x, 14), 5), 6);
}

// One round. Maj(a, b, c) is written as b ^ ((a ^ b) & (b ^ c)): this round's a ^ b is the next
// round's b ^ c, carried in 'ab' / 'bc', which saves one operation per round.
#define SHA_ROUND(a, b, c, d, e, f, g, h, i)                                                       \
    do {                                                                                           \
        const uint32_t t1 = h + wk[i] + ((g) ^ ((e) & ((f) ^ (g)))) + bigSigma1<Flat>(e);          \
        d += t1;                                                                                   \
        ab = (a) ^ (b);                                                                            \
        h = t1 + ((b) ^ (ab & bc)) + bigSigma0<Flat>(a);                                           \
        bc = ab;                                                                                   \
    } while (false)

#define SHA_EIGHT(i)                                                                               \
    SHA_ROUND(a, b, c, d, e, f, g, h, (i) + 0);                                                    \
    SHA_ROUND(h, a, b, c, d, e, f, g, (i) + 1);                                                    \
    SHA_ROUND(g, h, a, b, c, d, e, f, (i) + 2);                                                    \
    SHA_ROUND(f, g, h, a, b, c, d, e, (i) + 3);                                                    \
    SHA_ROUND(e, f, g, h, a, b, c, d, (i) + 4);                                                    \
    SHA_ROUND(d, e, f, g, h, a, b, c, (i) + 5);                                                    \
    SHA_ROUND(c, d, e, f, g, h, a, b, (i) + 6);                                                    \
    SHA_ROUND(b, c, d, e, f, g, h, a, (i) + 7)

#define SHA_SCHEDULE(i, x0, x1, x2, x3)                                                            \
    x0 = nextSchedule(x0, x1, x2, x3);                                                             \
    storeVec(wk + (i), x0 + loadVec(K + (i)))

template<bool Flat>
__attribute__((always_inline)) inline void sha256BlocksBody(
    uint32_t state[8], const unsigned char* data, size_t blocks)
{
    uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
    uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
    for (; blocks > 0; --blocks, data += 64) {
        alignas(16) uint32_t wk[64];
        for (int i = 0; i < 16; ++i)
            wk[i] = load32be(data + 4 * i);
        Vec4 x0 = loadVec(wk), x1 = loadVec(wk + 4), x2 = loadVec(wk + 8), x3 = loadVec(wk + 12);
        for (int i = 0; i < 16; i += 4)
            storeVec(wk + i, loadVec(wk + i) + loadVec(K + i));

        uint32_t ab;
        uint32_t bc = b ^ c;
        SHA_SCHEDULE(16, x0, x1, x2, x3);
        SHA_SCHEDULE(20, x1, x2, x3, x0);
        SHA_EIGHT(0);
        SHA_SCHEDULE(24, x2, x3, x0, x1);
        SHA_SCHEDULE(28, x3, x0, x1, x2);
        SHA_EIGHT(8);
        SHA_SCHEDULE(32, x0, x1, x2, x3);
        SHA_SCHEDULE(36, x1, x2, x3, x0);
        SHA_EIGHT(16);
        SHA_SCHEDULE(40, x2, x3, x0, x1);
        SHA_SCHEDULE(44, x3, x0, x1, x2);
        SHA_EIGHT(24);
        SHA_SCHEDULE(48, x0, x1, x2, x3);
        SHA_SCHEDULE(52, x1, x2, x3, x0);
        SHA_EIGHT(32);
        SHA_SCHEDULE(56, x2, x3, x0, x1);
        SHA_SCHEDULE(60, x3, x0, x1, x2);
        SHA_EIGHT(40);
        SHA_EIGHT(48);
        SHA_EIGHT(56);

        a = state[0] += a;
        b = state[1] += b;
        c = state[2] += c;
        d = state[3] += d;
        e = state[4] += e;
        f = state[5] += f;
        g = state[6] += g;
        h = state[7] += h;
    }
}

#undef SHA_ROUND
#undef SHA_EIGHT
#undef SHA_SCHEDULE

void sha256BlocksPlain(uint32_t state[8], const unsigned char* data, size_t blocks)
{
    sha256BlocksBody<false>(state, data, blocks);
}

using ysha256::BlockFunction;
using ysha256::BlockVariant;

// YOVO_SHA256_PORTABLE_ONLY leaves the variants out, so that the portable code can be built and
// tested alone, as on a processor that has none of them.
#if (defined(__x86_64__) || defined(__i386__)) && (defined(__GNUC__) || defined(__clang__))        \
    && !defined(YOVO_SHA256_PORTABLE_ONLY)
#define YOVO_SHA256_X86_VARIANTS 1
#endif

#ifdef YOVO_SHA256_X86_VARIANTS
// The same code once more for processors with AVX2 and BMI2 (nearly all x86-64 servers since
// 2013): three-operand vector and rotate instructions shorten the schedule and the rounds by a
// quarter.
__attribute__((target("avx2,bmi,bmi2"))) void sha256BlocksAvx2(
    uint32_t state[8], const unsigned char* data, size_t blocks)
{
    sha256BlocksBody<true>(state, data, blocks);
}

// CPUID rather than the compiler's feature names: not every compiler we build with knows "sha".
bool hasShaExtensions()
{
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx))
        return false;
    const bool ssse3 = ecx & (1u << 9);
    const bool sse41 = ecx & (1u << 19);
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx))
        return false;
    const bool sha = ebx & (1u << 29);
    return ssse3 && sse41 && sha;
}

bool hasAvx2()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi")
        && __builtin_cpu_supports("bmi2");
}
#endif

const BlockVariant portableVariant = {"portable", sha256BlocksPlain};

// The fastest first: the dedicated instructions beat any arrangement of the general ones.
int collectVariants(BlockVariant* out, int capacity)
{
    BlockVariant found[3];
    int count = 0;
    found[count++] = portableVariant;
#ifdef YOVO_SHA256_X86_VARIANTS
    if (hasAvx2())
        found[count++] = BlockVariant {"avx2", sha256BlocksAvx2};
    if (hasShaExtensions())
        found[count++] = BlockVariant {"sha-ni", ysha256::blocksShaNi};
#endif
    const int written = count < capacity ? count : capacity;
    for (int i = 0; i < written; ++i)
        out[i] = found[i];
    return written;
}

bool portableForced()
{
    const char* value = std::getenv(ysha256::PortableSwitch);
    return value && value[0] != '\0' && std::strcmp(value, "0") != 0;
}

BlockVariant chooseBlockVariant()
{
    if (portableForced())
        return portableVariant;
    BlockVariant variants[3];
    const int count = collectVariants(variants, 3);
    return variants[count - 1];
}

const BlockVariant& blockVariant()
{
    static const BlockVariant chosen = chooseBlockVariant();
    return chosen;
}

void sha256Blocks(uint32_t state[8], const unsigned char* data, size_t blocks)
{
    static const BlockFunction blockFunction = blockVariant().blocks;
    blockFunction(state, data, blocks);
}

void sha256Update(YSHA256Private* ctx, const unsigned char* data, size_t length)
{
    if (length == 0)
        return;
    // The bit count is kept modulo 2^64, as the padding writes it.
    const uint64_t bits
        = (uint64_t(ctx->countHigh) << 32 | ctx->countLow) + (uint64_t(length) << 3);
    ctx->countHigh = uint32_t(bits >> 32);
    ctx->countLow = uint32_t(bits);

    if (ctx->fill > 0) {
        const size_t room = size_t(64 - ctx->fill);
        if (length < room) {
            std::memcpy(ctx->buffer + ctx->fill, data, length);
            ctx->fill += int(length);
            return;
        }
        std::memcpy(ctx->buffer + ctx->fill, data, room);
        sha256Blocks(ctx->state, ctx->buffer, 1);
        ctx->fill = 0;
        data += room;
        length -= room;
    }
    if (length >= 64) {
        sha256Blocks(ctx->state, data, length / 64);
        data += length & ~size_t(63);
        length &= 63;
    }
    if (length > 0) {
        std::memcpy(ctx->buffer, data, length);
        ctx->fill = int(length);
    }
}

// Pads and processes the last block. The count stays as it was and the buffer ends empty, so a
// second call without a restart pads again on top of the finished state.
void sha256Final(YSHA256Private* ctx)
{
    int fill = ctx->fill;
    ctx->buffer[fill++] = 0x80;
    if (fill > 56) {
        std::memset(ctx->buffer + fill, 0, size_t(64 - fill));
        sha256Blocks(ctx->state, ctx->buffer, 1);
        fill = 0;
    }
    std::memset(ctx->buffer + fill, 0, size_t(56 - fill));
    store32be(ctx->buffer + 56, ctx->countHigh);
    store32be(ctx->buffer + 60, ctx->countLow);
    sha256Blocks(ctx->state, ctx->buffer, 1);
    ctx->fill = 0;
}

QByteArray digestText(const YSHA256Private* ctx)
{
    unsigned char digest[32];
    for (int i = 0; i < 8; ++i)
        store32be(digest + 4 * i, ctx->state[i]);
    return ydigest::hexText(digest, false);
}

// True when the state is that of a fresh or freshly restarted digest: only then is the keyed
// hash of a short key independent of what came before.
bool isFresh(const YSHA256Private* ctx)
{
    return ctx->fill == 0 && ctx->countLow == 0 && ctx->countHigh == 0
        && std::memcmp(ctx->state, initialState, sizeof(initialState)) == 0;
}

void preparePads(YSHA256KeyedPads& pads, const unsigned char (&keyBlock)[64])
{
    unsigned char inner[64];
    unsigned char outer[64];
    for (int i = 0; i < 64; ++i) {
        inner[i] = keyBlock[i] ^ 0x36;
        outer[i] = keyBlock[i] ^ 0x5c;
    }
    std::memcpy(pads.inner, initialState, sizeof(initialState));
    std::memcpy(pads.outer, initialState, sizeof(initialState));
    sha256Blocks(pads.inner, inner, 1);
    sha256Blocks(pads.outer, outer, 1);
    std::memcpy(pads.keyBlock, keyBlock, 64);
    pads.valid = true;
}

// Continues a digest whose first block was one of the pads.
void resumeAfterPad(YSHA256Private* ctx, const uint32_t (&padState)[8])
{
    std::memcpy(ctx->state, padState, sizeof(ctx->state));
    ctx->countHigh = 0;
    ctx->countLow = 64 * 8;
    ctx->fill = 0;
}

} // namespace

YSHA256::YSHA256()
    : _context(new YSHA256Private)
{
    sha256Start(_context);
    _context->owners = 1;
    _context->pads.valid = false;
}

YSHA256::YSHA256(const YSHA256& other)
    : YHMacProvider(other)
    , _context(ydigest::adopt(other._context))
{
}

YSHA256& YSHA256::operator=(const YSHA256& other)
{
    YHMacProvider::operator=(other);
    ydigest::reassign(_context, other._context);
    return *this;
}

YSHA256::~YSHA256()
{
    ydigest::release(_context);
}

void YSHA256::appendBlock(const QByteArray& data)
{
    sha256Update(
        _context, reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()));
}

QByteArray YSHA256::completedHash()
{
    sha256Final(_context);
    return digestText(_context);
}

// kept: row-restarts-completed-does-not
QByteArray YSHA256::rowCompletedHash()
{
    sha256Final(_context);
    QByteArray digest(32, Qt::Uninitialized);
    unsigned char* out = reinterpret_cast<unsigned char*>(digest.data());
    for (int i = 0; i < 8; ++i)
        store32be(out + 4 * i, _context->state[i]);
    sha256Start(_context);
    return digest;
}

void YSHA256::init()
{
    sha256Start(_context);
}

// The same steps as the general keyed hash, and the context ends as it would leave it: finished
// on the outer digest, not restarted.
bool YSHA256::keyedHashFromPads(
    const QByteArray& message, const QByteArray& key, QByteArray& result)
{
    YSHA256Private* ctx = _context;
    unsigned char keyBlock[64];
    if (key.size() > 64) {
        // kept: long-hmac-key -- the text form of the key's digest, then a restart.
        YSHA256Private keyDigest;
        sha256Start(&keyDigest);
        sha256Update(&keyDigest, reinterpret_cast<const unsigned char*>(key.constData()),
            size_t(key.size()));
        sha256Final(&keyDigest);
        const QByteArray text = digestText(&keyDigest);
        std::memcpy(keyBlock, text.constData(), 64);
        sha256Start(ctx);
    } else {
        if (!isFresh(ctx))
            return false;
        std::memcpy(keyBlock, key.constData(), size_t(key.size()));
        std::memset(keyBlock + key.size(), 0, size_t(64 - key.size()));
    }
    YSHA256KeyedPads& pads = ctx->pads;
    if (!pads.valid || std::memcmp(pads.keyBlock, keyBlock, 64) != 0)
        preparePads(pads, keyBlock);

    resumeAfterPad(ctx, pads.inner);
    sha256Update(
        ctx, reinterpret_cast<const unsigned char*>(message.constData()), size_t(message.size()));
    sha256Final(ctx);
    unsigned char innerDigest[32];
    for (int i = 0; i < 8; ++i)
        store32be(innerDigest + 4 * i, ctx->state[i]);

    resumeAfterPad(ctx, pads.outer);
    sha256Update(ctx, innerDigest, sizeof(innerDigest));
    sha256Final(ctx);
    result = digestText(ctx);
    return true;
}

QByteArray YSHA256::hash(const QByteArray& data)
{
    // Same result as a fresh object fed once, without the heap context.
    YSHA256Private context;
    sha256Start(&context);
    sha256Update(
        &context, reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()));
    sha256Final(&context);
    return digestText(&context);
}

int ysha256::availableBlockVariants(BlockVariant* out, int capacity)
{
    return collectVariants(out, capacity);
}

BlockVariant ysha256::chosenBlockVariant()
{
    return blockVariant();
}
