// Reads message frames from a buffer as a server reads them from a socket: every outcome but a
// message or a YException is a finding.
#include "message.h"
#include "yexception.h"

#include <QBuffer>
#include <QByteArray>
#include <QDataStream>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QBuffer buffer;
    buffer.setData(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    buffer.open(QIODevice::ReadOnly);
    QDataStream stream(&buffer);
    stream.setVersion(QDataStream::Qt_4_8);
    // Frames follow each other as on a connection; each read either gives a message or throws.
    for (int frames = 0; frames < 8 && !buffer.atEnd(); ++frames) {
        YMessage* message = nullptr;
        try {
            stream >> message;
        } catch (const YException&) {
            break;
        }
        if (message) {
            (void)message->toString();
            delete message;
        }
    }
    return 0;
}
