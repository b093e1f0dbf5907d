#ifndef YOVOLIB_YCOMPRESS_H
#define YOVOLIB_YCOMPRESS_H

#include "yovolib_export.h"

#include <QByteArray>

/// Plain zlib streams: Qt's compression without its four-byte length prefix.
class YOVOLIB_EXPORT YCompress
{
public:
    /// Compresses at the level (-1 for zlib's default, 0 to 9; other values count as -1) and
    /// returns a zlib stream. An empty input gives an empty result, which is no stream.
    static QByteArray zlibCompress(QByteArray data, int level);
    /// Inflates a zlib stream, growing the output by doubling until it fits. Throws YException
    /// "Compressed data is corrupted" for anything that is not a whole stream, and "Insuffucient
    /// memory" when zlib or the output array cannot get the memory.
    static QByteArray zlibUncompress(QByteArray data);

private:
    static QByteArray& removeQtHeader(QByteArray& data);
};

#endif // YOVOLIB_YCOMPRESS_H
