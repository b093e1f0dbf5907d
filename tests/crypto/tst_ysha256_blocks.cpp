// Every SHA-256 block function this processor can run, checked on its own: the padding is done
// here, so a fault in one variant can't hide behind the choice the library makes.

#include "ysha256.h"
#include "ysha256_p.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <QByteArray>

#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

std::vector<ysha256::BlockVariant> variants()
{
    ysha256::BlockVariant found[8];
    const int count = ysha256::availableBlockVariants(found, 8);
    return std::vector<ysha256::BlockVariant>(found, found + count);
}

// FIPS 180-2 padding and initial words, written out independently of the library's own.
QByteArray digestWith(ysha256::BlockFunction blocks, const QByteArray& message)
{
    uint32_t state[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c,
        0x1f83d9ab, 0x5be0cd19};
    QByteArray padded = message;
    padded.append(char(0x80));
    while (padded.size() % 64 != 56)
        padded.append('\0');
    const uint64_t bits = uint64_t(message.size()) * 8;
    for (int shift = 56; shift >= 0; shift -= 8)
        padded.append(char((bits >> shift) & 0xff));
    blocks(state, reinterpret_cast<const unsigned char*>(padded.constData()),
        size_t(padded.size() / 64));
    QByteArray raw;
    for (uint32_t word : state)
        for (int shift = 24; shift >= 0; shift -= 8)
            raw.append(char((word >> shift) & 0xff));
    return raw.toHex();
}

QByteArray reference(const QByteArray& data)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.constData(), size_t(data.size()), digest, &length, EVP_sha256(), nullptr);
    return QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex();
}

bool switchIsSet()
{
    const char* value = std::getenv(ysha256::PortableSwitch);
    return value && value[0] != '\0' && std::strcmp(value, "0") != 0;
}

} // namespace

TEST(YSHA256Blocks, PortableComesFirstAndIsAlwaysThere)
{
    const std::vector<ysha256::BlockVariant> found = variants();
    ASSERT_FALSE(found.empty());
    EXPECT_STREQ("portable", found.front().name);
}

// The machines this library is built on have the SHA extensions; where CPUID says so, the
// variant must be offered, or the fast path would silently never run.
TEST(YSHA256Blocks, ShaExtensionsAreOfferedWhereTheProcessorHasThem)
{
#if defined(__x86_64__) && defined(__GNUC__)
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    __asm__("cpuid" : "=a"(eax), "=b"(ebx), "=c"(ecx), "=d"(edx) : "a"(7), "c"(0));
    const bool sha = ebx & (1u << 29);
    bool offered = false;
    for (const ysha256::BlockVariant& v : variants())
        offered = offered || std::string(v.name) == "sha-ni";
    EXPECT_EQ(sha, offered);
#else
    GTEST_SKIP() << "x86 only";
#endif
}

TEST(YSHA256Blocks, TheSwitchKeepsTheDigestsOnThePortablePath)
{
    const std::vector<ysha256::BlockVariant> found = variants();
    if (switchIsSet())
        EXPECT_STREQ("portable", ysha256::chosenBlockVariant().name);
    else
        EXPECT_STREQ(found.back().name, ysha256::chosenBlockVariant().name);
    // And the digests go through it.
    EXPECT_EQ(reference("abc"), YSHA256::hash("abc"));
}

TEST(YSHA256Blocks, EveryVariantGivesTheStandardsExamples)
{
    struct Example
    {
        QByteArray message;
        QByteArray digest;
    };
    const Example examples[] = {
        {QByteArray(), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
        {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
        {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmnoijklmnopjklmnopqklmnopqrl"
         "mnopqrsmnopqrstnopqrstu",
            "cf5b16a778af8380036ce59e7b0492370b249b11e8f07a51afac45037afee9d1"},
        {QByteArray(1000000, 'a'),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
    };
    for (const ysha256::BlockVariant& v : variants())
        for (const Example& e : examples)
            EXPECT_EQ(e.digest, digestWith(v.blocks, e.message))
                << v.name << " " << e.message.size();
}

TEST(YSHA256Blocks, VariantsAgreeOnRandomLengthsUpToTenThousandBytes)
{
    std::mt19937 random(20261124);
    std::uniform_int_distribution<int> lengths(0, 10000);
    std::uniform_int_distribution<int> bytes(0, 255);
    const std::vector<ysha256::BlockVariant> found = variants();
    for (int round = 0; round < 200; ++round) {
        const int length = round < 2 ? round * 10000 : lengths(random);
        QByteArray data(length, Qt::Uninitialized);
        for (char& c : data)
            c = char(bytes(random));
        const QByteArray expected = reference(data);
        for (const ysha256::BlockVariant& v : found)
            ASSERT_EQ(expected, digestWith(v.blocks, data)) << v.name << " " << length;
    }
}

// The rounds load the message without any alignment; every offset within a vector must work.
TEST(YSHA256Blocks, VariantsReadUnalignedInput)
{
    QByteArray storage(64 * 5 + 16, Qt::Uninitialized);
    for (int i = 0; i < storage.size(); ++i)
        storage[i] = char(i * 29 + 3);
    for (const ysha256::BlockVariant& v : variants()) {
        for (int offset = 0; offset < 16; ++offset) {
            const QByteArray message(storage.constData() + offset, 64 * 5);
            uint32_t expected[8] = {1, 2, 3, 4, 5, 6, 7, 8};
            uint32_t actual[8] = {1, 2, 3, 4, 5, 6, 7, 8};
            variants().front().blocks(
                expected, reinterpret_cast<const unsigned char*>(message.constData()), 5);
            v.blocks(
                actual, reinterpret_cast<const unsigned char*>(storage.constData()) + offset, 5);
            EXPECT_EQ(0, std::memcmp(expected, actual, sizeof(expected))) << v.name << offset;
        }
    }
}
