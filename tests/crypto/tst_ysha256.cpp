#include "ysha256.h"

#include "digest_checks.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <QByteArray>

namespace {

const QByteArray emptyDigest("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");

QByteArray referenceRaw(const QByteArray& data)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.constData(), size_t(data.size()), digest, &length, EVP_sha256(), nullptr);
    return QByteArray(reinterpret_cast<const char*>(digest), int(length));
}

QByteArray referenceText(const QByteArray& data)
{
    return referenceRaw(data).toHex();
}

QByteArray pattern(int size)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 167 + 11) & 0xff);
    return data;
}

} // namespace

TEST(YSHA256, EmptyArrayGivesTheStandardDigestInLowerCase)
{
    EXPECT_EQ(emptyDigest, YSHA256::hash(QByteArray()));
}

// The examples of the standard: one block, two blocks, and a million "a".
TEST(YSHA256, PublishedExamples)
{
    EXPECT_EQ(QByteArray("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"),
        YSHA256::hash("abc"));
    EXPECT_EQ(QByteArray("248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"),
        YSHA256::hash("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"));
    EXPECT_EQ(QByteArray("cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"),
        YSHA256::hash(QByteArray(1000000, 'a')));
}

// 55 bytes leave room for the padding in the same block, 56 and 64 need a second block.
TEST(YSHA256, PaddingBoundariesMatchReference)
{
    EXPECT_EQ(56, QByteArray("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq").size());
    EXPECT_EQ(QByteArray("9f4390f8d30c2dd92ec9f095b65e2b9ae9b0a925a5258e241c9f1e910f734318"),
        YSHA256::hash(QByteArray(55, 'a')));
    EXPECT_EQ(QByteArray("b35439a4ac6f0948b6d6f9e3c6af0f5f590ce20f1bde7090ef7970686ec6738a"),
        YSHA256::hash(QByteArray(56, 'a')));
    EXPECT_EQ(QByteArray("ffe054fe7ae0cb6dc65c3af9b61d5209f439851db43d0ba5997337df154668eb"),
        YSHA256::hash(QByteArray(64, 'a')));
    for (int size : {55, 56, 57, 63, 64, 65, 119, 120, 128})
        EXPECT_EQ(referenceText(QByteArray(size, 'a')), YSHA256::hash(QByteArray(size, 'a')))
            << size;
}

TEST(YSHA256, EveryLengthUpToFiveBlocksMatchesReference)
{
    for (int size = 0; size <= 320; ++size) {
        const QByteArray data = pattern(size);
        EXPECT_EQ(referenceText(data), YSHA256::hash(data)) << size;
    }
}

TEST(YSHA256, TextIsSixtyFourLowerCaseHexDigits)
{
    const QByteArray text = YSHA256::hash("abc");
    ASSERT_EQ(64, text.size());
    for (char c : text)
        EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')) << c;
}

TEST(YSHA256, PiecewiseAppendingGivesTheSameDigest)
{
    const QByteArray data = pattern(300);
    yovotest::expectPiecewiseDigest<YSHA256>(data, referenceText(data));
}

TEST(YSHA256, RowCompletedHashGivesRawBigEndianBytes)
{
    YSHA256 sha;
    sha.appendBlock("abc");
    const QByteArray raw = sha.rowCompletedHash();
    ASSERT_EQ(32, raw.size());
    EXPECT_EQ(referenceRaw("abc"), raw);
    EXPECT_EQ(static_cast<char>(0xba), raw.at(0));
    EXPECT_EQ(static_cast<char>(0xad), raw.at(31));
}

TEST(YSHA256, RowCompletedHashRestartsByItself)
{
    YSHA256 sha;
    sha.appendBlock("abc");
    sha.rowCompletedHash();
    EXPECT_EQ(QByteArray::fromHex(emptyDigest), sha.rowCompletedHash());
    sha.appendBlock("abc");
    EXPECT_EQ(referenceRaw("abc"), sha.rowCompletedHash());
}

// completedHash leaves the state as it is: a second call pads again on top of the finished state.
TEST(YSHA256, CompletedHashTwiceWithoutInitDiffers)
{
    YSHA256 sha;
    sha.appendBlock("abc");
    const QByteArray first = sha.completedHash();
    const QByteArray second = sha.completedHash();
    EXPECT_EQ(referenceText("abc"), first);
    EXPECT_NE(first, second);
    EXPECT_EQ(64, second.size());
}

TEST(YSHA256, InitRestartsStateCountAndBuffer)
{
    YSHA256 sha;
    sha.appendBlock(pattern(100));
    sha.completedHash();
    sha.appendBlock("partial");
    sha.init();
    sha.appendBlock("abc");
    EXPECT_EQ(referenceText("abc"), sha.completedHash());
    sha.init();
    EXPECT_EQ(emptyDigest, sha.completedHash());
}

TEST(YSHA256, HashBlockRestartsThenDigests)
{
    YSHA256 sha;
    sha.appendBlock("left over");
    EXPECT_EQ(referenceText("abc"), sha.hashBlock("abc"));
    YHMacProvider& provider = sha;
    EXPECT_EQ(referenceText("xyz"), provider.hashBlock("xyz"));
}

TEST(YSHA256, CopiesShareOneRunningDigest)
{
    YSHA256 original;
    original.appendBlock("a");
    {
        YSHA256 copy(original);
        copy.appendBlock("b");
    }
    original.appendBlock("c");
    EXPECT_EQ(referenceText("abc"), original.completedHash());

    YSHA256 target;
    target.appendBlock("ignored");
    target = original;
    target.init();
    target.appendBlock("xy");
    original.appendBlock("z");
    EXPECT_EQ(referenceText("xyz"), target.completedHash());
}

TEST(YSHA256, LongInputInOddPiecesMatchesReference)
{
    const QByteArray data = pattern(100000);
    YSHA256 sha;
    int offset = 0;
    int piece = 1;
    while (offset < data.size()) {
        sha.appendBlock(data.mid(offset, piece));
        offset += piece;
        piece = piece * 3 % 1000 + 1;
    }
    EXPECT_EQ(referenceText(data), sha.completedHash());
}
