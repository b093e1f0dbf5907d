#include "yrc4.h"

#include <cstdio>
#include <cstring>

YRc4::YRc4()
{
    reset();
}

YRc4::YRc4(const QByteArray& password)
    : password(password)
{
    reset();
}

// kept: rc4-copy-restarts
YRc4::YRc4(const YRc4& other)
    : password(other.password)
{
    reset();
}

YRc4& YRc4::operator=(const YRc4& other)
{
    std::memcpy(m, other.m, sizeof(m));
    x = other.x;
    y = other.y;
    password = other.password;
    return *this;
}

void YRc4::setPassword(const QByteArray& newPassword)
{
    password = newPassword;
    reset();
}

void YRc4::reset()
{
    static const unsigned char zeroKey = 0;
    const unsigned char* key = reinterpret_cast<const unsigned char*>(password.constData());
    int keyLength = password.size();
    // kept: rc4-empty-key-zero-byte
    if (keyLength == 0) {
        key = &zeroKey;
        keyLength = 1;
    }

    x = 0;
    y = 0;
    for (int i = 0; i < 256; ++i)
        m[i] = i;
    int j = 0;
    int k = 0;
    for (int i = 0; i < 256; ++i) {
        const int a = m[i];
        j = (j + a + key[k]) & 0xff;
        m[i] = m[j];
        m[j] = a;
        if (++k >= keyLength)
            k = 0;
    }
}

void YRc4::rc4(unsigned char* data, long length)
{
    if (data == nullptr || length <= 0)
        return;
    // Indexes as bytes wrap by themselves; the table is read through a local pointer so that the
    // compiler keeps x and y in registers for the whole loop.
    unsigned char xi = static_cast<unsigned char>(x);
    unsigned char yi = static_cast<unsigned char>(y);
    int* const table = m;
    for (long i = 0; i < length; ++i) {
        ++xi;
        const int a = table[xi];
        yi = static_cast<unsigned char>(yi + a);
        const int b = table[yi];
        table[xi] = b;
        table[yi] = a;
        data[i] ^= static_cast<unsigned char>(table[static_cast<unsigned char>(a + b)]);
    }
    x = xi;
    y = yi;
}

bool YRc4::selfTest()
{
    static const unsigned char keys[3][8] = {{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF},
        {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF},
        {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}};
    static const unsigned char plain[3][8] = {{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF},
        {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00},
        {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00}};
    static const unsigned char cipher[3][8] = {{0x75, 0xB7, 0x87, 0x80, 0x99, 0xE0, 0xC5, 0x96},
        {0x74, 0x94, 0xC2, 0xE7, 0x10, 0x4B, 0x08, 0x79},
        {0xDE, 0x18, 0x89, 0x41, 0xA3, 0x37, 0x5D, 0x3A}};

    bool allPassed = true;
    for (int i = 0; i < 3; ++i) {
        std::printf("  ARC4 test #%d: ", i + 1);
        unsigned char buffer[8];
        std::memcpy(buffer, plain[i], 8);
        YRc4 cipherState(QByteArray(reinterpret_cast<const char*>(keys[i]), 8));
        cipherState.rc4(buffer, 8);
        const bool passed = std::memcmp(buffer, cipher[i], 8) == 0;
        std::printf(passed ? "passed\n" : "failed\n");
        allPassed = allPassed && passed;
    }
    std::fflush(stdout);
    return allPassed;
}
