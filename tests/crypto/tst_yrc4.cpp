#include "yrc4.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include <QByteArray>

namespace {

QByteArray encrypt(YRc4& cipher, QByteArray data)
{
    cipher.rc4(reinterpret_cast<unsigned char*>(data.data()), data.size());
    return data;
}

QByteArray encrypt(const QByteArray& key, const QByteArray& data)
{
    YRc4 cipher(key);
    return encrypt(cipher, data);
}

// The cipher from an independent implementation; empty when its legacy provider is missing.
QByteArray referenceRc4(const QByteArray& key, const QByteArray& data)
{
    static OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    static OSSL_PROVIDER* defaults = OSSL_PROVIDER_load(nullptr, "default");
    EVP_CIPHER* rc4 = EVP_CIPHER_fetch(nullptr, "RC4", nullptr);
    if (legacy == nullptr || defaults == nullptr || rc4 == nullptr)
        return QByteArray();
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex2(ctx, rc4, nullptr, nullptr, nullptr);
    EVP_CIPHER_CTX_set_key_length(ctx, key.size());
    EVP_EncryptInit_ex2(
        ctx, nullptr, reinterpret_cast<const unsigned char*>(key.constData()), nullptr, nullptr);
    QByteArray out(data.size(), '\0');
    int length = 0;
    EVP_EncryptUpdate(ctx, reinterpret_cast<unsigned char*>(out.data()), &length,
        reinterpret_cast<const unsigned char*>(data.constData()), data.size());
    EVP_CIPHER_CTX_free(ctx);
    EVP_CIPHER_free(rc4);
    return out;
}

QByteArray pattern(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 73 + seed * 31 + 5) & 0xff);
    return data;
}

} // namespace

TEST(YRc4, PublishedVectorOne)
{
    const QByteArray key = QByteArray::fromHex("0123456789ABCDEF");
    EXPECT_EQ(QByteArray::fromHex("75B7878099E0C596"),
        encrypt(key, QByteArray::fromHex("0123456789ABCDEF")));
}

TEST(YRc4, PublishedVectorsTwoAndThree)
{
    EXPECT_EQ(QByteArray::fromHex("7494C2E7104B0879"),
        encrypt(QByteArray::fromHex("0123456789ABCDEF"), QByteArray(8, '\0')));
    EXPECT_EQ(
        QByteArray::fromHex("DE188941A3375D3A"), encrypt(QByteArray(8, '\0'), QByteArray(8, '\0')));
}

TEST(YRc4, TextKeyVectors)
{
    EXPECT_EQ(QByteArray::fromHex("BBF316E8D940AF0AD3"), encrypt("Key", "Plaintext"));
    EXPECT_EQ(QByteArray::fromHex("1021BF0420"), encrypt("Wiki", "pedia"));
    EXPECT_EQ(
        QByteArray::fromHex("45A01F645FC35B383552544B9BF5"), encrypt("Secret", "Attack at dawn"));
}

TEST(YRc4, MatchesReferenceForManyKeysAndLengths)
{
    if (referenceRc4("k", "x").isEmpty())
        GTEST_SKIP() << "the reference cipher is not available";
    for (int keySize : {1, 5, 16, 32, 255, 256, 300}) {
        const QByteArray key = pattern(keySize, keySize);
        const QByteArray data = pattern(5000, 1);
        EXPECT_EQ(referenceRc4(key, data), encrypt(key, data)) << keySize;
    }
}

TEST(YRc4, ResetBetweenTwoPassesRestoresTheBuffer)
{
    const QByteArray original = pattern(1000, 2);
    YRc4 cipher("password");
    QByteArray data = encrypt(cipher, original);
    EXPECT_NE(original, data);
    cipher.reset();
    EXPECT_EQ(original, encrypt(cipher, data));
}

TEST(YRc4, FiveThenSevenBytesEqualTwelveAtOnce)
{
    const QByteArray data("Hello, world");
    ASSERT_EQ(12, data.size());
    YRc4 split("key");
    const QByteArray first = encrypt(split, data.left(5));
    const QByteArray second = encrypt(split, data.mid(5));
    EXPECT_EQ(encrypt("key", data), first + second);
}

TEST(YRc4, CopyConstructorStartsTheKeyStreamAfresh)
{
    YRc4 source("key");
    encrypt(source, "consumed");
    YRc4 copy(source);
    EXPECT_EQ(encrypt("key", "text"), encrypt(copy, "text"));
}

TEST(YRc4, AssignmentContinuesWhereTheSourceStands)
{
    YRc4 source("key");
    encrypt(source, "consumed");
    YRc4 target("other");
    target = source;
    YRc4 reference("key");
    encrypt(reference, "consumed");
    EXPECT_EQ(encrypt(reference, "text"), encrypt(target, "text"));
    // The target's use doesn't move the source on.
    EXPECT_EQ(encrypt("key", "consumedtext").mid(8), encrypt(source, "text"));
    // The password came along: a reset starts the source's key stream.
    target.reset();
    EXPECT_EQ(encrypt("key", "text"), encrypt(target, "text"));
}

TEST(YRc4, SetPasswordRestartsWithTheNewKey)
{
    YRc4 cipher("first");
    encrypt(cipher, "consumed");
    cipher.setPassword("second");
    EXPECT_EQ(encrypt("second", "text"), encrypt(cipher, "text"));
}

TEST(YRc4, EmptyPasswordActsAsSingleZeroByte)
{
    YRc4 empty;
    EXPECT_EQ(encrypt(QByteArray(1, '\0'), "some text"), encrypt(empty, "some text"));
    EXPECT_EQ(encrypt(QByteArray(1, '\0'), "some text"), encrypt(QByteArray(), "some text"));
}

TEST(YRc4, EmptyOrNegativeLengthLeavesStateAlone)
{
    YRc4 cipher("key");
    unsigned char byte = 0x55;
    cipher.rc4(&byte, 0);
    cipher.rc4(&byte, -3);
    cipher.rc4(nullptr, 10);
    EXPECT_EQ(0x55, byte);
    EXPECT_EQ(encrypt("key", "text"), encrypt(cipher, "text"));
}

TEST(YRc4, SelfTestPrintsThreePassedLines)
{
    testing::internal::CaptureStdout();
    const bool passed = YRc4::selfTest();
    const std::string output = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(passed);
    EXPECT_EQ("  ARC4 test #1: passed\n  ARC4 test #2: passed\n  ARC4 test #3: passed\n", output);
}
