// Every SHA-256 block function against the portable one, and the keyed hash from its cached pads
// against the general steps, on arbitrary input. The first byte chooses the key's length (0 to
// 255, so keys past the block's size take the long-key path), the rest is key then message.

#include "ysha256.h"
#include "ysha256_p.h"

#include <QByteArray>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// Derived, so its keyed hash runs the general steps through the virtual operations.
class SteppedSha256 : public YSHA256
{
public:
    void appendBlock(const QByteArray& data) override { YSHA256::appendBlock(data); }
};

void checkBlockFunctions(const uint8_t* data, size_t size)
{
    ysha256::BlockVariant variants[8];
    const int count = ysha256::availableBlockVariants(variants, 8);
    const size_t blocks = size / 64;
    uint32_t expected[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c,
        0x1f83d9ab, 0x5be0cd19};
    uint32_t start[8];
    std::memcpy(start, expected, sizeof start);
    variants[0].blocks(expected, data, blocks);
    for (int i = 1; i < count; ++i) {
        uint32_t state[8];
        std::memcpy(state, start, sizeof state);
        variants[i].blocks(state, data, blocks);
        if (std::memcmp(state, expected, sizeof state) != 0)
            std::abort();
    }
}

void checkKeyedHash(const uint8_t* data, size_t size)
{
    if (size == 0)
        return;
    const size_t keySize = data[0] < size - 1 ? data[0] : size - 1;
    const QByteArray key(reinterpret_cast<const char*>(data + 1), int(keySize));
    const QByteArray message(
        reinterpret_cast<const char*>(data + 1 + keySize), int(size - 1 - keySize));
    YSHA256 cached;
    SteppedSha256 stepped;
    // Twice: the second call finds the pads cached, and a state left by the first.
    for (int round = 0; round < 2; ++round) {
        if (cached.hmac(message, key) != stepped.hmac(message, key))
            std::abort();
        cached.init();
        stepped.init();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    checkBlockFunctions(data, size);
    checkKeyedHash(data, size);
    return 0;
}
