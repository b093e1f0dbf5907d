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

using ysha256::roundConstants;

// Rounds 4i to 4i+3. W holds the schedule words of four consecutive groups, group g in W[g % 4].
// After the rounds of group i the words of group i+1 are completed (sha256msg2), and the first
// half of group i+3's arithmetic is started (sha256msg1) in the register group i-1 has freed.
template<int i>
__attribute__((always_inline)) inline void fourRounds(__m128i& abef, __m128i& cdgh, __m128i (&W)[4])
{
    __m128i msg = _mm_add_epi32(
        W[i % 4], _mm_load_si128(reinterpret_cast<const __m128i*>(roundConstants + 4 * i)));
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
