#include "message.h"
#include "yexception.h"

#include "message_frames.h"

#include <gtest/gtest.h>

#include <QBuffer>
#include <QDataStream>
#include <QMetaProperty>

#include <memory>
#include <string>

using yovotest::frameOf;
using yovotest::messageFrom;

namespace {

YMessage* example()
{
    YMessage* message = new YMessage;
    message->setStringType("a");
    message->setIntData(5);
    message->setStringData("b");
    return message;
}

// Pieces of a frame, written out from the documented layout.
QByteArray word(quint32 value)
{
    QByteArray bytes(4, '\0');
    bytes[0] = char(value >> 24);
    bytes[1] = char(value >> 16);
    bytes[2] = char(value >> 8);
    bytes[3] = char(value);
    return bytes;
}

QByteArray stringVariant(const QString& text)
{
    QByteArray bytes = word(10) + QByteArray(1, '\0');
    if (text.isNull())
        return bytes + word(0xFFFFFFFF);
    bytes += word(quint32(text.size() * 2));
    for (QChar c : text) {
        bytes += char(c.unicode() >> 8);
        bytes += char(c.unicode() & 0xFF);
    }
    return bytes;
}

QByteArray intVariant(qint32 value)
{
    return word(2) + QByteArray(1, '\0') + word(quint32(value));
}

QByteArray frameAround(const QByteArray& body)
{
    return word(quint32(body.size())) + word(quint32(body.size())) + body;
}

QByteArray bodyNaming(const char* className)
{
    const QByteArray name(className);
    return word(quint32(name.size() + 1)) + name + QByteArray(1, '\0');
}

// A class of its own with the message's properties and no more: it is written the general way,
// property by property through the meta-object.
class RenamedMessage : public YMessage
{
    Q_OBJECT
};

// One more property: it follows the message's four on the wire.
class WiderMessage : public YMessage
{
    Q_OBJECT
    Q_PROPERTY(int extra READ extra)
public:
    int extra() const { return 77; }
};

} // namespace

TEST(YMessage, GeneralAndDirectWritersGiveTheSameBytes)
{
    std::unique_ptr<YMessage> message(example());
    message->setObjectName(QString::fromUtf8("n\xC3\xA4me"));
    RenamedMessage renamed;
    renamed.setObjectName(message->objectName());
    renamed.setStringType("a");
    renamed.setIntData(5);
    renamed.setStringData("b");
    const QByteArray direct = frameOf(message.get());
    const QByteArray general = frameOf(&renamed);
    const QByteArray className = bodyNaming("YMessage");
    const QByteArray otherName = bodyNaming("RenamedMessage");
    EXPECT_EQ(direct.mid(8 + className.size()).toHex(), general.mid(8 + otherName.size()).toHex());
    EXPECT_EQ(otherName, general.mid(8, otherName.size()));
}

TEST(YMessage, FrameOfAWiderClassCarriesItsPropertiesAndIsNotRead)
{
    WiderMessage wider;
    wider.setStringType("a");
    wider.setIntData(5);
    wider.setStringData("b");
    const QByteArray body = bodyNaming("WiderMessage") + stringVariant(QString())
        + stringVariant("a") + intVariant(5) + stringVariant("b") + intVariant(77);
    const QByteArray frame = frameOf(&wider);
    EXPECT_EQ(frameAround(body).toHex(), frame.toHex());
    EXPECT_THROW(messageFrom(frame), YException);
}

TEST(YMessage, TextForms)
{
    std::unique_ptr<YMessage> message(example());
    EXPECT_EQ(QStringLiteral("a:5:b"), message->toShortString());
    EXPECT_EQ(QStringLiteral("instance of YMessage: stringType=a, intData=5, stringData=b"),
        message->toString());
    EXPECT_EQ(QStringLiteral("YMessage"), message->getClassName());
}

TEST(YMessage, PropertiesStandInWireOrder)
{
    YMessage message;
    const QMetaObject* meta = message.metaObject();
    ASSERT_EQ(4, meta->propertyCount());
    EXPECT_STREQ("objectName", meta->property(0).name());
    EXPECT_STREQ("stringType", meta->property(1).name());
    EXPECT_STREQ("intData", meta->property(2).name());
    EXPECT_STREQ("stringData", meta->property(3).name());
}

TEST(YMessage, ExampleFrameIsSixtyOneBytes)
{
    std::unique_ptr<YMessage> message(example());
    const QByteArray body = bodyNaming("YMessage") + stringVariant(QString()) + stringVariant("a")
        + intVariant(5) + stringVariant("b");
    ASSERT_EQ(53, body.size());
    const QByteArray expected = QByteArray::fromHex("00000035"
                                                    "00000035"
                                                    "00000009"
                                                    "594d65737361676500"
                                                    "0000000a00ffffffff"
                                                    "0000000a00000000020061"
                                                    "000000020000000005"
                                                    "0000000a00000000020062");
    EXPECT_EQ(frameAround(body), expected);
    const QByteArray frame = frameOf(message.get());
    EXPECT_EQ(61, frame.size());
    EXPECT_EQ(expected.toHex(), frame.toHex());
}

TEST(YMessage, EmptyAndNullTextsDiffer)
{
    YMessage message;
    message.setStringType(QStringLiteral(""));
    message.setIntData(-1);
    const QByteArray frame = frameOf(&message);
    const QByteArray body = bodyNaming("YMessage") + stringVariant(QString()) + word(10)
        + QByteArray(1, '\0') + word(0) + intVariant(-1) + stringVariant(QString());
    EXPECT_EQ(frameAround(body).toHex(), frame.toHex());

    const std::unique_ptr<YMessage> back = messageFrom(frame);
    EXPECT_FALSE(back->getStringType().isNull());
    EXPECT_TRUE(back->getStringType().isEmpty());
    EXPECT_TRUE(back->getStringData().isNull());
}

TEST(YMessage, RoundTripKeepsAllFieldsAndTheObjectName)
{
    YMessage message;
    message.setObjectName("sender");
    message.setStringType("status");
    message.setIntData(-123456789);
    message.setStringData("all well");
    qint64 position = 0;
    const QByteArray frame = frameOf(&message);
    const std::unique_ptr<YMessage> back = messageFrom(frame, &position);
    EXPECT_EQ(QStringLiteral("sender"), back->objectName());
    EXPECT_EQ(QStringLiteral("status"), back->getStringType());
    EXPECT_EQ(-123456789, back->getIntData());
    EXPECT_EQ(QStringLiteral("all well"), back->getStringData());
    EXPECT_EQ(frame.size(), position);
}

TEST(YMessage, NonLatinTextSurvives)
{
    YMessage message;
    const QString text = QString::fromUtf8("Zürich · Москва · 東京 · \xF0\x9F\x99\x82");
    message.setStringType(text);
    message.setIntData(1);
    message.setStringData(text + text);
    const QByteArray frame = frameOf(&message);
    // UTF-16 on the wire, big-endian: the surrogate pair of the last character stands as it is.
    EXPECT_TRUE(frame.contains(QByteArray::fromHex("d83dde42")));
    const std::unique_ptr<YMessage> back = messageFrom(frame);
    EXPECT_EQ(text, back->getStringType());
    EXPECT_EQ(text + text, back->getStringData());
}

TEST(YMessage, FrameNamingAnotherClassThrowsAndTheStreamStandsAtTheNextFrame)
{
    const QByteArray foo = frameAround(bodyNaming("Foo") + stringVariant(QString())
        + stringVariant("x") + intVariant(1) + stringVariant("y"));
    std::unique_ptr<YMessage> second(example());
    const QByteArray both = foo + frameOf(second.get());

    QBuffer buffer;
    buffer.setData(both);
    buffer.open(QIODevice::ReadOnly);
    QDataStream stream(&buffer);
    YMessage* message = reinterpret_cast<YMessage*>(0x1);
    try {
        stream >> message;
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ("unrecognized class while deserializing", e.what());
    }
    EXPECT_EQ(reinterpret_cast<YMessage*>(0x1), message);
    EXPECT_EQ(foo.size(), buffer.pos());
    message = nullptr;
    stream >> message;
    std::unique_ptr<YMessage> owned(message);
    EXPECT_EQ(QStringLiteral("a:5:b"), owned->toShortString());
}

TEST(YMessage, ValueOfAnotherTypeIsConvertedOrLeavesTheField)
{
    // The integer arrives as text that reads as a number, the second text as a number.
    const QByteArray body = bodyNaming("YMessage") + stringVariant(QString())
        + stringVariant("kind") + stringVariant("42") + intVariant(7);
    const std::unique_ptr<YMessage> back = messageFrom(frameAround(body));
    EXPECT_EQ(QStringLiteral("kind"), back->getStringType());
    EXPECT_EQ(42, back->getIntData());
    EXPECT_EQ(QStringLiteral("7"), back->getStringData());

    // A value that no property takes (a list of variants) ends the reading: what came before
    // stays, the rest keeps its defaults.
    const QByteArray nested = bodyNaming("YMessage") + stringVariant(QString())
        + stringVariant("kind") + word(9) + QByteArray(1, '\0') + word(1) + intVariant(3)
        + stringVariant("never read");
    const std::unique_ptr<YMessage> partial = messageFrom(frameAround(nested));
    EXPECT_EQ(QStringLiteral("kind"), partial->getStringType());
    EXPECT_EQ(0, partial->getIntData());
    EXPECT_TRUE(partial->getStringData().isNull());
}

TEST(YMessage, ListOfTextsCountingMoreThanTheBodyHoldsEndsTheReading)
{
    // 268 million texts claimed in a few bytes: reading stops in front of the list instead of
    // reserving room for them, and the fields read before it stay.
    const QByteArray claims = bodyNaming("YMessage") + stringVariant(QString())
        + stringVariant("kind") + word(11) + QByteArray(1, '\0') + word(0x10000002)
        + stringVariant("never read");
    const std::unique_ptr<YMessage> partial = messageFrom(frameAround(claims));
    EXPECT_EQ(QStringLiteral("kind"), partial->getStringType());
    EXPECT_EQ(0, partial->getIntData());
    EXPECT_TRUE(partial->getStringData().isNull());

    // A list that fits is read whole; the integer cannot take it and keeps its default, and the
    // value after it still arrives.
    const QByteArray honest = bodyNaming("YMessage") + stringVariant(QString())
        + stringVariant("kind") + word(11) + QByteArray(1, '\0') + word(1)
        + stringVariant("9").mid(5) + stringVariant("after");
    const std::unique_ptr<YMessage> whole = messageFrom(frameAround(honest));
    EXPECT_EQ(QStringLiteral("kind"), whole->getStringType());
    EXPECT_EQ(0, whole->getIntData());
    EXPECT_EQ(QStringLiteral("after"), whole->getStringData());
}

TEST(YMessage, TruncatedBodyGivesWhatArrived)
{
    const QByteArray body
        = bodyNaming("YMessage") + stringVariant(QString()) + stringVariant("only this");
    const std::unique_ptr<YMessage> back = messageFrom(frameAround(body));
    EXPECT_EQ(QStringLiteral("only this"), back->getStringType());
    EXPECT_TRUE(back->getStringData().isEmpty());
}

TEST(YMessage, MissingBytesOnADeviceThatCannotWaitThrow)
{
    std::unique_ptr<YMessage> message(example());
    const QByteArray frame = frameOf(message.get());
    for (int cut : {0, 3, 8, 56}) {
        try {
            messageFrom(frame.left(cut));
            FAIL() << "no exception at " << cut;
        } catch (const YException& e) {
            EXPECT_EQ(0u, std::string(e.what()).find("Error while waiting for read: ")) << cut;
        }
    }
}

TEST(YMessage, WaitForTheBodyCountsWithoutItsLengthPrefix)
{
    // L bytes are waited for although L + 4 follow the first word: with the last four bytes
    // missing the read goes on, finds the body short and reads no class name.
    std::unique_ptr<YMessage> message(example());
    const QByteArray frame = frameOf(message.get());
    try {
        messageFrom(frame.left(frame.size() - 4));
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ("unrecognized class while deserializing", e.what());
    }
}

TEST(YMessage, LengthWordBeyondAnyMessageIsRefusedAtOnce)
{
    const QByteArray header = word(0xFFFFFFF0) + word(0xFFFFFFF0);
    try {
        messageFrom(header);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_STREQ("Message frame too long: 4294967280 bytes", e.what());
    }
}

TEST(YMessage, GarbledFramesNeverCrash)
{
    std::unique_ptr<YMessage> message(example());
    const QByteArray frame = frameOf(message.get());
    // Every single byte flipped in turn: each read either gives a message or throws.
    for (int i = 0; i < frame.size(); ++i) {
        for (char flip : {char(0xFF), char(0x80), char(0x01)}) {
            QByteArray garbled = frame;
            garbled[i] = char(garbled[i] ^ flip);
            try {
                messageFrom(garbled);
            } catch (const YException&) {
            }
        }
    }
    SUCCEED();
}

#include "tst_message.moc"
