#ifndef YOVOLIB_DIGEST_CHECKS_H
#define YOVOLIB_DIGEST_CHECKS_H

// Header only: the portable digest tests build without the support library.

#include <QByteArray>

#include <gtest/gtest.h>

namespace yovotest {

/// Fed in two pieces, split around the block and padding edges, and then byte by byte, the
/// hasher must give the digest of the whole.
template<typename Hasher>
void expectPiecewiseDigest(const QByteArray& data, const QByteArray& expected)
{
    for (int split : {0, 1, 55, 56, 63, 64, 65, 128, 299, 300}) {
        Hasher hasher;
        hasher.appendBlock(data.left(split));
        hasher.appendBlock(data.mid(split));
        EXPECT_EQ(expected, hasher.completedHash()) << split;
    }
    Hasher bytewise;
    for (char c : data)
        bytewise.appendBlock(QByteArray(1, c));
    EXPECT_EQ(expected, bytewise.completedHash());
}

} // namespace yovotest

#endif // YOVOLIB_DIGEST_CHECKS_H
