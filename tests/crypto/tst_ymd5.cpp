#include "ymd5.h"

#include "digest_checks.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <QByteArray>

namespace {

// The digest as an independent implementation computes it, in the library's text form.
QByteArray referenceMd5(const QByteArray& data)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_Digest(data.constData(), size_t(data.size()), digest, &length, EVP_md5(), nullptr);
    return QByteArray(reinterpret_cast<const char*>(digest), int(length)).toHex().toUpper();
}

QByteArray pattern(int size)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 131 + 7) & 0xff);
    return data;
}

} // namespace

TEST(YMD5, EmptyArrayGivesTheKnownDigest)
{
    EXPECT_EQ(QByteArray("D41D8CD98F00B204E9800998ECF8427E"), YMD5::hash(QByteArray()));
}

// The test suite published with the algorithm, in upper case.
TEST(YMD5, PublishedTestSuite)
{
    EXPECT_EQ(QByteArray("0CC175B9C0F1B6A831C399E269772661"), YMD5::hash("a"));
    EXPECT_EQ(QByteArray("900150983CD24FB0D6963F7D28E17F72"), YMD5::hash("abc"));
    EXPECT_EQ(QByteArray("F96B697D7CB7938D525A2F31AAF161D0"), YMD5::hash("message digest"));
    EXPECT_EQ(
        QByteArray("C3FCD3D76192E4007DFB496CCA67E13B"), YMD5::hash("abcdefghijklmnopqrstuvwxyz"));
    EXPECT_EQ(QByteArray("D174AB98D277D9F5A5611C2C9F419D9F"),
        YMD5::hash("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"));
    EXPECT_EQ(QByteArray("57EDF4A22BE3C955AC49DA2E2107B67A"),
        YMD5::hash("1234567890123456789012345678901234567890123456789012345678901234567890"
                   "1234567890"));
}

TEST(YMD5, TextIsThirtyTwoUpperCaseHexDigits)
{
    const QByteArray text = YMD5::hash("abc");
    ASSERT_EQ(YMD5::HashSize, text.size());
    for (char c : text)
        EXPECT_TRUE((c >= '0' && c <= '9') || (c >= 'A' && c <= 'F')) << c;
    EXPECT_EQ(16, YMD5::DigestSize);
    EXPECT_EQ(32, YMD5::HashSize);
}

// 55 bytes leave room for the padding in the same block, 56 and 64 need a second block.
TEST(YMD5, PaddingBoundariesMatchReference)
{
    for (int size : {55, 56, 57, 63, 64, 65, 119, 120, 128}) {
        const QByteArray data(size, 'a');
        EXPECT_EQ(referenceMd5(data), YMD5::hash(data)) << size;
    }
}

TEST(YMD5, EveryLengthUpToThreeBlocksMatchesReference)
{
    for (int size = 0; size <= 200; ++size) {
        const QByteArray data = pattern(size);
        EXPECT_EQ(referenceMd5(data), YMD5::hash(data)) << size;
    }
}

TEST(YMD5, MillionTimesA)
{
    const QByteArray data(1000000, 'a');
    EXPECT_EQ(QByteArray("7707D6AE4E027C70EEA2A935C2296F21"), YMD5::hash(data));
}

TEST(YMD5, PiecewiseAppendingGivesTheSameDigest)
{
    const QByteArray data = pattern(300);
    yovotest::expectPiecewiseDigest<YMD5>(data, YMD5::hash(data));
}

TEST(YMD5, EmptyAppendChangesNothing)
{
    YMD5 md5;
    md5.appendBlock(QByteArray());
    md5.appendBlock("abc");
    md5.appendBlock(QByteArray());
    EXPECT_EQ(QByteArray("900150983CD24FB0D6963F7D28E17F72"), md5.completedHash());
}

TEST(YMD5, FreshObjectWithoutInputGivesEmptyDigest)
{
    YMD5 md5;
    EXPECT_EQ(QByteArray("D41D8CD98F00B204E9800998ECF8427E"), md5.completedHash());
}

TEST(YMD5, CopiesShareOneRunningDigest)
{
    YMD5 original;
    original.appendBlock("a");
    {
        YMD5 copy(original);
        copy.appendBlock("b");
    }
    original.appendBlock("c");
    EXPECT_EQ(YMD5::hash("abc"), original.completedHash());
}

TEST(YMD5, AssignmentSharesTheSourceContext)
{
    YMD5 source;
    source.appendBlock("ab");
    YMD5 target;
    target.appendBlock("ignored");
    target = source;
    target.appendBlock("c");
    YMD5& alias = target;
    target = alias;
    EXPECT_EQ(YMD5::hash("abc"), source.completedHash());
}
