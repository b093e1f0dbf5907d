// SHA-256 rounds on the x86 SHA extensions. This file alone is compiled with -msha -msse4.1, so
// nothing here may run before the caller has checked CPUID: ysha256.cpp does, once.
//
// The instructions keep the eight working words in two registers, ABEF and CDGH, and run two
// rounds per sha256rnds2; sha256msg1 and sha256msg2 extend the schedule four words at a time.
// Each group of four rounds below therefore also prepares the schedule words that a later group
// needs, so that the message arithmetic overlaps the rounds.

#include "ysha256_p.h"

#include <immintrin.h>

namespace {

alignas(16) const uint32_t K[64] = {0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b,
    0x59f111f1, 0x923f82a4, 0xab1c5ed5, 0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74,
    0x80deb1fe, 0x9bdc06a7, 0xc19bf174, 0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f,
    0x4a7484aa, 0x5cb0a9dc, 0x76f988da, 0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3,
    0xd5a79147, 0x06ca6351, 0x14292967, 0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354,
    0x766a0abb, 0x81c2c92e, 0x92722c85, 0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819,
    0xd6990624, 0xf40e3585, 0x106aa070, 0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3,
    0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3, 0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa,
    0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

// Rounds 4i to 4i+3. W holds the schedule words of four consecutive groups, group g in W[g % 4].
// After the rounds of group i the words of group i+1 are completed (sha256msg2), and the first
// half of group i+3's arithmetic is started (sha256msg1) in the register group i-1 has freed.
template<int i>
__attribute__((always_inline)) inline void fourRounds(__m128i& abef, __m128i& cdgh, __m128i (&W)[4])
{
    __m128i msg
        = _mm_add_epi32(W[i % 4], _mm_load_si128(reinterpret_cast<const __m128i*>(K + 4 * i)));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, msg);
    if (i >= 3 && i <= 14) {
        __m128i& next = W[(i + 1) % 4];
        next = _mm_add_epi32(next, _mm_alignr_epi8(W[i % 4], W[(i + 3) % 4], 4));
        next = _mm_sha256msg2_epu32(next, W[i % 4]);
    }
    msg = _mm_shuffle_epi32(msg, 0x0e);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, msg);
    if (i >= 1 && i <= 12)
        W[(i + 3) % 4] = _mm_sha256msg1_epu32(W[(i + 3) % 4], W[i % 4]);
}

} // namespace

namespace ysha256 {

void blocksShaNi(uint32_t state[8], const unsigned char* data, size_t blocks)
{
    // The message words are big-endian; this shuffle swaps the bytes of each 32-bit lane.
    const __m128i byteSwap = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);

    // state[0..3] is DCBA from the high lane down, state[4..7] HGFE; the rounds want ABEF, CDGH.
    const __m128i dcba = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state));
    const __m128i hgfe = _mm_loadu_si128(reinterpret_cast<const __m128i*>(state + 4));
    const __m128i cdab = _mm_shuffle_epi32(dcba, 0xb1);
    const __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1b);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xf0);

    for (; blocks > 0; --blocks, data += 64) {
        const __m128i abefBefore = abef;
        const __m128i cdghBefore = cdgh;
        __m128i W[4];
        for (int g = 0; g < 4; ++g)
            W[g] = _mm_shuffle_epi8(
                _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + 16 * g)), byteSwap);

        fourRounds<0>(abef, cdgh, W);
        fourRounds<1>(abef, cdgh, W);
        fourRounds<2>(abef, cdgh, W);
        fourRounds<3>(abef, cdgh, W);
        fourRounds<4>(abef, cdgh, W);
        fourRounds<5>(abef, cdgh, W);
        fourRounds<6>(abef, cdgh, W);
        fourRounds<7>(abef, cdgh, W);
        fourRounds<8>(abef, cdgh, W);
        fourRounds<9>(abef, cdgh, W);
        fourRounds<10>(abef, cdgh, W);
        fourRounds<11>(abef, cdgh, W);
        fourRounds<12>(abef, cdgh, W);
        fourRounds<13>(abef, cdgh, W);
        fourRounds<14>(abef, cdgh, W);
        fourRounds<15>(abef, cdgh, W);

        abef = _mm_add_epi32(abef, abefBefore);
        cdgh = _mm_add_epi32(cdgh, cdghBefore);
    }

    const __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
    const __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state), _mm_blend_epi16(feba, dchg, 0xf0));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(state + 4), _mm_alignr_epi8(dchg, feba, 8));
}

} // namespace ysha256
