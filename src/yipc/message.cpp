#include "message.h"

#include "message_body_p.h"
#include "yassert.h"
#include "yexception.h"

#include <QByteArray>
#include <QIODevice>
#include <QMetaProperty>
#include <QVariant>

#include <cstring>
#include <memory>

namespace {

// The stream version deployed peers write and read: Qt 4.8's.
const int FRAME_STREAM_VERSION = QDataStream::Qt_4_8;
// How long each part of a frame may take to arrive.
const int READ_WAIT_MS = 30000;
// A length word above this is refused before anything is waited for or allocated: a message is
// two short texts and a number, and a peer that claims gigabytes is broken or hostile.
const quint32 MAX_FRAME_LENGTH = 64u * 1024u * 1024u;

void waitForBytes(QIODevice* device, qint64 count)
{
    while (device->bytesAvailable() < count) {
        if (!device->waitForReadyRead(READ_WAIT_MS))
            throw YException(
                QStringLiteral("Error while waiting for read: ") + device->errorString());
    }
}

// Whether the next value in the body is one that a message's property could take. Lists, maps,
// hashes and user types may nest without limit, so that a small frame could exhaust the stack;
// none of them fits a text or a number, and reading stops in front of them as at a body's end,
// as it does in front of a list of texts whose count the rest of the body cannot hold.
quint32 wordAt(const QByteArray& bytes, int at)
{
    return (quint32(uchar(bytes[at])) << 24) | (quint32(uchar(bytes[at + 1])) << 16)
        | (quint32(uchar(bytes[at + 2])) << 8) | quint32(uchar(bytes[at + 3]));
}

// Qt reserves room for a list of texts from its count before it reads a single text, so that
// a count of hundreds of millions in a small frame asks for gigabytes. Every text takes at least
// its four-byte length word, which bounds what an honest count can be.
bool listCountFits(QIODevice* body)
{
    const int headBytes = 4 + 1 + 4; // type, null flag, count
    const QByteArray head = body->peek(headBytes);
    if (head.size() < headBytes)
        return true; // the read yields a default, as a truncated body does
    const qint64 room = body->bytesAvailable() - headBytes;
    return qint64(wordAt(head, 5)) <= room / 4;
}

bool nextValueIsPlain(QDataStream& inner)
{
    const QByteArray head = inner.device()->peek(4);
    if (head.size() < 4)
        return true; // the read yields a default, as a truncated body does
    const quint32 type = wordAt(head, 0);
    if (type == QMetaType::QStringList)
        return listCountFits(inner.device());
    switch (type) {
    case QMetaType::UnknownType:
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::QChar:
    case QMetaType::QString:
    case QMetaType::QStringList:
    case QMetaType::QByteArray:
    case QMetaType::QDate:
    case QMetaType::QTime:
    case QMetaType::QDateTime:
        return true;
    default:
        return false;
    }
}

// The class name and the values one by one, as Qt's stream format reads them. Throws for a body
// that names another class.
YMessage* readGenerally(const QByteArray& body)
{
    QDataStream inner(body);
    inner.setVersion(FRAME_STREAM_VERSION);
    char* rawName = nullptr;
    inner >> rawName;
    const std::unique_ptr<char[]> className(rawName);
    if (!className || std::strcmp(className.get(), "YMessage") != 0)
        throw YException("unrecognized class while deserializing");

    YMessage* result = new YMessage;
    const QMetaObject* meta = result->metaObject();
    const int count = meta->propertyCount();
    for (int i = 0; i < count; ++i) {
        if (!nextValueIsPlain(inner))
            break;
        QVariant value;
        inner >> value;
        // kept: frame-property-type-ignored
        meta->property(i).write(result, value);
    }
    return result;
}

} // namespace

YMessage::YMessage()
    // The integer is the sender's to set; zero only keeps an unset value from being read as
    // garbage.
    : _intData(0)
{
}

YMessage::~YMessage() = default;

QString YMessage::toString() const
{
    return QStringLiteral("instance of YMessage: stringType=%1, intData=%2, stringData=%3")
        .arg(_stringType, QString::number(_intData), _stringData);
}

const QString YMessage::toShortString() const
{
    return QStringLiteral("%1:%2:%3").arg(_stringType, QString::number(_intData), _stringData);
}

QDataStream& operator<<(QDataStream& stream, const YMessage* message)
{
    if (!message)
        failedAssertion(__FILE__, __LINE__, "message != 0", nullptr, YDebug::STDERR);
    const QMetaObject* meta = message->metaObject();
    QByteArray body;
    if (meta == &YMessage::staticMetaObject) {
        body = framebody::write(*message);
    } else {
        QDataStream inner(&body, QIODevice::WriteOnly);
        inner.setVersion(FRAME_STREAM_VERSION);
        inner << meta->className();
        const int count = meta->propertyCount();
        for (int i = 0; i < count; ++i)
            inner << meta->property(i).read(message);
    }
    stream << quint32(body.size());
    stream << body;
    return stream;
}

QDataStream& operator>>(QDataStream& stream, YMessage*& message)
{
    QIODevice* device = stream.device();
    if (!device)
        throw YException("Can't read a message from a stream without a device");

    waitForBytes(device, 4);
    quint32 length = 0;
    stream >> length;
    if (length > MAX_FRAME_LENGTH)
        throw YException(QStringLiteral("Message frame too long: %1 bytes").arg(length));
    // kept: frame-wait-misses-prefix
    waitForBytes(device, length);
    QByteArray body;
    stream >> body;

    // The body as peers write it is read directly; anything else goes the general way, value by
    // value through QVariant, which gives the same message for the common form.
    YMessage* result = framebody::read(body);
    if (!result)
        result = readGenerally(body);
    message = result;
    return stream;
}
