#ifndef YOVOLIB_YSHA256_H
#define YOVOLIB_YSHA256_H

#include "yhmac_provider.h"
#include "yovolib_export.h"

#include <QByteArray>

struct YSHA256Private;

/// The SHA-256 digest, as lower-case hexadecimal text or as raw bytes.
class YOVOLIB_EXPORT YSHA256 : public YHMacProvider
{
public:
    /// Allocates the context and starts it.
    YSHA256();
    /// Shares the source's context: both objects then feed and finish one running digest.
    YSHA256(const YSHA256& other);
    /// Shares the source's context, as the copy constructor does.
    YSHA256& operator=(const YSHA256& other);
    ~YSHA256() override;

    /// Adds the bytes to the running digest.
    void appendBlock(const QByteArray& data) override;
    /// Pads, processes the last block and returns 64 lower-case hexadecimal characters. Does not
    /// restart: call init before the next digest.
    QByteArray completedHash() override;
    /// Pads, processes the last block and returns the 32 digest bytes, then restarts by itself.
    /// Unlike completedHash, on purpose: the keyed hash relies on both behaviours.
    QByteArray rowCompletedHash() override;
    /// Restarts the state words, the count and the buffer.
    void init() override;

    /// The digest of the array as 64 lower-case hexadecimal characters.
    static QByteArray hash(const QByteArray& data);

private:
    friend class YHMacProvider;
    // The keyed hash from the pads' states cached for the last key; false when the running state
    // makes the general path necessary (the result then depends on it).
    bool keyedHashFromPads(const QByteArray& message, const QByteArray& key, QByteArray& result);

    YSHA256Private* _context;
};

#endif // YOVOLIB_YSHA256_H
