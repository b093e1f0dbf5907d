// Not part of the YovoLib API: the SHA-256 block functions and the choice among them, reachable
// by the tests and the benchmark so that every path the processor has can be checked and timed.

#ifndef YOVOLIB_YSHA256_P_H
#define YOVOLIB_YSHA256_P_H

#include "yovolib_export.h"

#include <cstddef>
#include <cstdint>

namespace ysha256 {

/// The 64 round constants, aligned for vector loads; every block function reads these.
alignas(16) extern const uint32_t roundConstants[64];

/// Runs the compression function over whole 64-byte blocks.
typedef void (*BlockFunction)(uint32_t state[8], const unsigned char* data, size_t blocks);

struct BlockVariant
{
    const char* name;
    BlockFunction blocks;
};

/// The environment variable that, when set to anything but "0" or an empty text at the first
/// digest, keeps the process on the portable block function.
constexpr const char* PortableSwitch = "YOVO_SHA256_PORTABLE";

/// Every block function this processor can run, the portable one first; returns how many were
/// written (at most `capacity`).
YOVOLIB_EXPORT int availableBlockVariants(BlockVariant* out, int capacity);
/// The block function the digests use, chosen once at the first call.
YOVOLIB_EXPORT BlockVariant chosenBlockVariant();

#if defined(__x86_64__) || defined(__i386__)
/// The rounds on the processor's SHA instructions; only to be called where CPUID reports them
/// together with SSSE3 and SSE4.1.
void blocksShaNi(uint32_t state[8], const unsigned char* data, size_t blocks);
#endif

} // namespace ysha256

#endif // YOVOLIB_YSHA256_P_H
