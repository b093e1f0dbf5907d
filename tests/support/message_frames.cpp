#include "message_frames.h"

#include <QBuffer>
#include <QDataStream>

namespace yovotest {

QByteArray frameOf(const YMessage* message)
{
    QByteArray frame;
    QDataStream stream(&frame, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_4_8);
    stream << message;
    return frame;
}

std::unique_ptr<YMessage> messageFrom(const QByteArray& frame, qint64* position)
{
    QBuffer buffer;
    buffer.setData(frame);
    buffer.open(QIODevice::ReadOnly);
    QDataStream stream(&buffer);
    stream.setVersion(QDataStream::Qt_4_8);
    YMessage* message = nullptr;
    try {
        stream >> message;
    } catch (...) {
        if (position)
            *position = buffer.pos();
        throw;
    }
    if (position)
        *position = buffer.pos();
    return std::unique_ptr<YMessage>(message);
}

} // namespace yovotest
