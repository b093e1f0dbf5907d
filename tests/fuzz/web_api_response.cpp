// The web API's reply: whatever bytes a server sends become a response document whose error
// message can be asked for. The same bytes, cut in four, are signed as key, host, path and date.

#include "web_api.h"

#include <QByteArray>
#include <QString>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes(reinterpret_cast<const char*>(data), static_cast<int>(size));
    YWebApiResponse response(bytes);
    response.setStatus(200);
    const QString message = response.getErrorMessage();
    if (response.getStatus() != 200)
        __builtin_trap();

    const int quarter = bytes.size() / 4;
    const QByteArray signature
        = YWebApi::getSignature(bytes.left(quarter), QString::fromUtf8(bytes.mid(quarter, quarter)),
            QString::fromUtf8(bytes.mid(2 * quarter, quarter)),
            QString::fromUtf8(bytes.mid(3 * quarter)));
    // Always 64 lower-case hexadecimal characters, whatever went in.
    if (signature.size() != 64)
        __builtin_trap();
    for (char c : signature) {
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f')))
            __builtin_trap();
    }
    (void)message;
    return 0;
}
