#ifndef YOVOLIB_YRC4_H
#define YOVOLIB_YRC4_H

#include "yovolib_export.h"

#include <QByteArray>

/// The ARC4 stream cipher. Encryption and decryption are the same call.
class YOVOLIB_EXPORT YRc4
{
public:
    /// An empty password, which keys as the single byte 0.
    YRc4();
    /// Keys the cipher with the password.
    YRc4(const QByteArray& password);
    /// Takes the password only and starts the key stream afresh, wherever the source stands.
    YRc4(const YRc4& other);
    /// Takes the whole generator state, so the target goes on where the source stands. Differs
    /// from the copy constructor on purpose.
    YRc4& operator=(const YRc4& other);

    /// Stores the key and restarts the key stream.
    void setPassword(const QByteArray& password);
    /// Runs the key schedule anew from the stored password.
    void reset();
    /// XORs the key stream over the bytes in place; nothing happens for a length of 0 or less.
    void rc4(unsigned char* data, long length);

    /// Runs three published ARC4 vectors and prints "  ARC4 test #<n>: passed" (or "failed") for
    /// each on standard output. True when all passed.
    static bool selfTest();

private:
    int m[256];
    int x;
    int y;
    QByteArray password;
};

#endif // YOVOLIB_YRC4_H
