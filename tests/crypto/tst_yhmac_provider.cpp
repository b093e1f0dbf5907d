#include "yhmac_provider.h"
#include "ysha256.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <QByteArray>

#include <random>

namespace {

// HMAC-SHA256 as the RFC defines it, from an independent implementation, as lower-case text.
QByteArray referenceHmac(const QByteArray& message, const QByteArray& key)
{
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha256(), key.constData(), key.size(),
        reinterpret_cast<const unsigned char*>(message.constData()), size_t(message.size()), out,
        &length);
    return QByteArray(reinterpret_cast<const char*>(out), int(length)).toHex();
}

QByteArray hmacOfFresh(const QByteArray& message, const QByteArray& key)
{
    YSHA256 sha;
    return sha.hmac(message, key);
}

QByteArray bytes(int size, char value)
{
    return QByteArray(size, value);
}

QByteArray counting(int first, int count)
{
    QByteArray data;
    for (int i = 0; i < count; ++i)
        data.append(char(first + i));
    return data;
}

} // namespace

// The SHA-256 results of the published HMAC test cases whose keys fit in one block.
TEST(YHMacProvider, PublishedCasesWithKeysUpToTheBlock)
{
    EXPECT_EQ(QByteArray("b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"),
        hmacOfFresh("Hi There", bytes(20, 0x0b)));
    EXPECT_EQ(QByteArray("5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"),
        hmacOfFresh("what do ya want for nothing?", "Jefe"));
    EXPECT_EQ(QByteArray("773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"),
        hmacOfFresh(bytes(50, char(0xdd)), bytes(20, char(0xaa))));
    EXPECT_EQ(QByteArray("82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"),
        hmacOfFresh(bytes(50, char(0xcd)), counting(1, 25)));
    // The published result of this case is truncated to 128 bits.
    EXPECT_TRUE(hmacOfFresh("Test With Truncation", bytes(20, 0x0c))
                    .startsWith("a3b6167473100ee06e0c796c2955552b"));
}

TEST(YHMacProvider, KeysUpToSixtyFourBytesMatchReference)
{
    const QByteArray message("The quick brown fox jumps over the lazy dog");
    for (int size : {0, 1, 31, 32, 33, 63, 64}) {
        const QByteArray key = counting(0x20, size);
        EXPECT_EQ(referenceHmac(message, key), hmacOfFresh(message, key)) << size;
    }
    for (int size : {0, 55, 56, 64, 200})
        EXPECT_EQ(referenceHmac(bytes(size, 'm'), "key"), hmacOfFresh(bytes(size, 'm'), "key"))
            << size;
}

// A key longer than the block is replaced by the text of its digest, not by the raw digest.
TEST(YHMacProvider, SixtyFiveByteKeyIsReplacedByItsHexDigest)
{
    const QByteArray message("message");
    const QByteArray key = counting(0x30, 65);
    const QByteArray hexKey = YSHA256::hash(key);
    ASSERT_EQ(64, hexKey.size());
    EXPECT_EQ(hmacOfFresh(message, hexKey), hmacOfFresh(message, key));
    EXPECT_EQ(referenceHmac(message, hexKey), hmacOfFresh(message, key));
    EXPECT_NE(referenceHmac(message, key), hmacOfFresh(message, key));
}

// The published case with a 131-byte key gives another result under the library's rule.
TEST(YHMacProvider, PublishedLargeKeyCaseFollowsTheLibraryRule)
{
    const QByteArray key = bytes(131, char(0xaa));
    const QByteArray message("Test Using Larger Than Block-Size Key - Hash Key First");
    const QByteArray rfcResult("60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
    EXPECT_EQ(rfcResult, referenceHmac(message, key));
    EXPECT_NE(rfcResult, hmacOfFresh(message, key));
    EXPECT_EQ(referenceHmac(message, YSHA256::hash(key)), hmacOfFresh(message, key));
}

// Keys up to the block don't restart the digest: whatever the provider holds goes into the
// inner hash.
TEST(YHMacProvider, SecondHmacWithoutInitContinuesFromTheLeftState)
{
    const QByteArray key("secret");
    const QByteArray message("payload");
    YSHA256 sha;
    const QByteArray first = sha.hmac(message, key);
    EXPECT_EQ(referenceHmac(message, key), first);
    const QByteArray second = sha.hmac(message, key);
    EXPECT_NE(first, second);
    EXPECT_NE(hmacOfFresh(message, key), second);
    sha.init();
    EXPECT_EQ(first, sha.hmac(message, key));
}

TEST(YHMacProvider, PendingInputBeforeHmacChangesTheResult)
{
    YSHA256 sha;
    sha.appendBlock("stale");
    EXPECT_NE(referenceHmac("m", "k"), sha.hmac("m", "k"));
}

// With a long key the provider restarts after hashing the key, so earlier state doesn't matter.
TEST(YHMacProvider, LongKeyRestartsTheProvider)
{
    const QByteArray key = bytes(100, 'k');
    YSHA256 sha;
    sha.appendBlock("stale");
    EXPECT_EQ(hmacOfFresh("m", key), sha.hmac("m", key));
}

TEST(YHMacProvider, WorksThroughTheAbstractInterface)
{
    YSHA256 sha;
    YHMacProvider& provider = sha;
    EXPECT_EQ(referenceHmac("m", "k"), provider.hmac("m", "k"));
    provider.init();
    provider.appendBlock("abc");
    EXPECT_EQ(QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"),
        provider.completedHash());
}

namespace {

// Derived, so the keyed hash runs its general steps through the virtual operations: the
// reference for what the plain type does from its cached pads.
class SteppedSha256 : public YSHA256
{
public:
    void appendBlock(const QByteArray& data) override
    {
        ++appended;
        YSHA256::appendBlock(data);
    }
    int appended = 0;
};

QByteArray randomBytes(std::mt19937& random, int size)
{
    std::uniform_int_distribution<int> byte(0, 255);
    QByteArray data(size, Qt::Uninitialized);
    for (char& c : data)
        c = char(byte(random));
    return data;
}

} // namespace

TEST(YHMacProvider, RepeatedAndAlternatingKeysMatchReferenceEveryTime)
{
    std::mt19937 random(17);
    std::uniform_int_distribution<int> lengths(0, 300);
    const QByteArray keys[] = {"Jefe", randomBytes(random, 64), randomBytes(random, 65),
        randomBytes(random, 1), QByteArray()};
    YSHA256 sha;
    for (int round = 0; round < 200; ++round) {
        const QByteArray& key = keys[(round / 3) % 5];
        const QByteArray message = randomBytes(random, lengths(random));
        sha.init();
        const QByteArray expected = key.size() > 64 ? referenceHmac(message, YSHA256::hash(key))
                                                    : referenceHmac(message, key);
        ASSERT_EQ(expected, sha.hmac(message, key)) << round;
    }
}

TEST(YHMacProvider, KeyChangedInPlaceIsNotServedFromTheFormerPads)
{
    YSHA256 sha;
    QByteArray key("secret-key");
    const QByteArray first = sha.hmac("message", key);
    key[0] = 'S';
    sha.init();
    EXPECT_EQ(referenceHmac("message", key), sha.hmac("message", key));
    EXPECT_NE(first, referenceHmac("message", key));
    // Keys that differ only by trailing zero bytes share a key block, and so a result.
    sha.init();
    EXPECT_EQ(referenceHmac("message", "ab"), sha.hmac("message", QByteArray("ab\0\0", 4)));
}

TEST(YHMacProvider, DerivedProviderStillRunsItsOwnSteps)
{
    SteppedSha256 sha;
    EXPECT_EQ(referenceHmac("Hi There", bytes(20, 0x0b)), sha.hmac("Hi There", bytes(20, 0x0b)));
    EXPECT_EQ(4, sha.appended);
}

// Whatever the path, the provider is left exactly as the general steps leave it: finished on
// the outer digest and not restarted, so a later completedHash pads on top of it.
TEST(YHMacProvider, CachedPadsLeaveTheSameStateAsTheGeneralSteps)
{
    std::mt19937 random(5);
    for (int keySize : {0, 20, 64, 65, 200}) {
        const QByteArray key = randomBytes(random, keySize);
        for (int messageSize : {0, 31, 55, 56, 64, 100}) {
            const QByteArray message = randomBytes(random, messageSize);
            YSHA256 cached;
            SteppedSha256 stepped;
            for (int i = 0; i < 3; ++i) {
                ASSERT_EQ(stepped.hmac(message, key), cached.hmac(message, key))
                    << keySize << " " << messageSize << " " << i;
                cached.appendBlock("tail");
                stepped.appendBlock("tail");
                ASSERT_EQ(stepped.completedHash(), cached.completedHash());
                if (i == 1) {
                    cached.init();
                    stepped.init();
                }
            }
        }
    }
}
