#ifndef YOVOLIB_YMD5_H
#define YOVOLIB_YMD5_H

#include "yovolib_export.h"

#include <QByteArray>

struct YMD5Private;

/// The MD5 digest, given as upper-case hexadecimal text.
class YOVOLIB_EXPORT YMD5
{
public:
    /// Bytes of the digest.
    static const int DigestSize = 16;
    /// Characters of the hexadecimal text.
    static const int HashSize = 32;

    /// Allocates and starts the context.
    YMD5();
    /// Shares the source's context: both objects then feed and finish one running digest.
    YMD5(const YMD5& other);
    /// Shares the source's context, as the copy constructor does.
    YMD5& operator=(const YMD5& other);
    ~YMD5();

    /// Adds the bytes; an empty array changes nothing.
    void appendBlock(const QByteArray& data);
    /// Finishes the digest: 32 upper-case hexadecimal characters. The context is not restarted,
    /// so an object serves one digest.
    QByteArray completedHash();

    /// The digest of the array as 32 upper-case hexadecimal characters.
    static QByteArray hash(const QByteArray& data);

private:
    YMD5Private* _context;
};

#endif // YOVOLIB_YMD5_H
