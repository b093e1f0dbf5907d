// A message goes out and comes in at every request a daemon serves, and nearly every frame has
// the one form that YMessage itself writes. Building and parsing that form by hand saves the
// stream objects, the property calls and the variants, while the bytes stay exactly those of the
// general path (which frames of any other form still take).
#include "message_body_p.h"

#include "message.h"

#include <QString>
#include <QVarLengthArray>

#include <cstring>
#include <memory>

namespace {

const quint32 TYPE_STRING = 10; // QString in Qt 4's variant numbering, as in Qt 5's
const quint32 TYPE_INT = 2;
const quint32 NULL_TEXT = 0xFFFFFFFFu;
const char CLASS_NAME[] = "YMessage";

char* putWord(char* out, quint32 value)
{
    out[0] = char(value >> 24);
    out[1] = char(value >> 16);
    out[2] = char(value >> 8);
    out[3] = char(value);
    return out + 4;
}

char* putText(char* out, const QString& text)
{
    out = putWord(out, TYPE_STRING);
    *out++ = 0;
    if (text.isNull())
        return putWord(out, NULL_TEXT);
    const int length = text.size();
    out = putWord(out, quint32(length) * 2);
    const ushort* units = text.utf16();
    for (int i = 0; i < length; ++i) {
        *out++ = char(units[i] >> 8);
        *out++ = char(units[i]);
    }
    return out;
}

int textSize(const QString& text)
{
    return 9 + (text.isNull() ? 0 : text.size() * 2);
}

class Reader
{
public:
    explicit Reader(const QByteArray& body)
        : _at(reinterpret_cast<const uchar*>(body.constData()))
        , _end(_at + body.size())
    {
    }

    bool word(quint32& value)
    {
        if (_end - _at < 4)
            return false;
        value = (quint32(_at[0]) << 24) | (quint32(_at[1]) << 16) | (quint32(_at[2]) << 8)
            | quint32(_at[3]);
        _at += 4;
        return true;
    }

    bool className()
    {
        quint32 length = 0;
        if (!word(length) || length != sizeof(CLASS_NAME) || _end - _at < qint64(length))
            return false;
        if (std::memcmp(_at, CLASS_NAME, sizeof(CLASS_NAME)) != 0)
            return false;
        _at += length;
        return true;
    }

    // A value's head: its type word and a null flag of 0.
    bool head(quint32 expectedType)
    {
        quint32 type = 0;
        if (!word(type) || type != expectedType || _at == _end || *_at != 0)
            return false;
        ++_at;
        return true;
    }

    bool text(QString& out)
    {
        quint32 bytes = 0;
        if (!head(TYPE_STRING) || !word(bytes))
            return false;
        if (bytes == NULL_TEXT) {
            out = QString();
            return true;
        }
        if ((bytes & 1) != 0 || quint64(_end - _at) < bytes)
            return false;
        const int length = int(bytes / 2);
        out = QString(length, Qt::Uninitialized);
        QChar* units = out.data();
        for (int i = 0; i < length; ++i, _at += 2)
            units[i] = QChar(ushort((ushort(_at[0]) << 8) | _at[1]));
        return true;
    }

    bool number(int& out)
    {
        quint32 value = 0;
        if (!head(TYPE_INT) || !word(value))
            return false;
        out = int(value);
        return true;
    }

private:
    const uchar* _at;
    const uchar* _end;
};

} // namespace

namespace framebody {

QByteArray write(const YMessage& message)
{
    const QString objectName = message.objectName();
    const int size = 4 + int(sizeof(CLASS_NAME)) + textSize(objectName)
        + textSize(message.getStringType()) + 9 + textSize(message.getStringData());
    // Assembled in a buffer of its own (on the stack for the usual small message) and copied
    // once: writing straight into a new QByteArray makes the optimiser take it for the shared
    // empty array and report every store as out of bounds.
    QVarLengthArray<char, 512> buffer(size);
    char* out = buffer.data();
    out = putWord(out, sizeof(CLASS_NAME));
    std::memcpy(out, CLASS_NAME, sizeof(CLASS_NAME));
    out += sizeof(CLASS_NAME);
    out = putText(out, objectName);
    out = putText(out, message.getStringType());
    out = putWord(out, TYPE_INT);
    *out++ = 0;
    out = putWord(out, quint32(message.getIntData()));
    putText(out, message.getStringData());
    return QByteArray(buffer.constData(), size);
}

YMessage* read(const QByteArray& body)
{
    Reader reader(body);
    QString objectName;
    QString stringType;
    int intData = 0;
    QString stringData;
    if (!reader.className() || !reader.text(objectName) || !reader.text(stringType)
        || !reader.number(intData) || !reader.text(stringData))
        return nullptr;
    std::unique_ptr<YMessage> message(new YMessage);
    message->setObjectName(objectName);
    message->setStringType(stringType);
    message->setIntData(intData);
    message->setStringData(stringData);
    return message.release();
}

} // namespace framebody
