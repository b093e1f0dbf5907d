#ifndef YOVOLIB_YHMAC_PROVIDER_H
#define YOVOLIB_YHMAC_PROVIDER_H

#include "yovolib_export.h"

#include <QByteArray>

/// A digest that can key itself: the keyed hash is built on the digest's own operations.
class YOVOLIB_EXPORT YHMacProvider
{
public:
    /// Sets the block size to 64 bytes.
    YHMacProvider();
    virtual ~YHMacProvider();

    /// init, appendBlock(data), and the digest's text from completedHash.
    virtual QByteArray hashBlock(const QByteArray& data);
    /// Adds the bytes to the running digest.
    virtual void appendBlock(const QByteArray& data) = 0;
    /// Finishes the digest and returns its text form.
    virtual QByteArray completedHash() = 0;
    /// Finishes the digest and returns its raw bytes ("row" is the name callers know).
    virtual QByteArray rowCompletedHash() = 0;
    /// Restarts the digest.
    virtual void init() = 0;

    /// The keyed hash of the message, as the text of completedHash. A key longer than the block
    /// is replaced by the text form of its digest, not by the raw digest, so that signatures made
    /// by earlier peers keep matching. Keys up to the block size don't restart the digest: the
    /// provider must be fresh or freshly restarted.
    QByteArray hmac(const QByteArray& message, const QByteArray& key);

protected:
    int _blockSize;
};

#endif // YOVOLIB_YHMAC_PROVIDER_H
