#ifndef YOVOLIB_MESSAGE_H
#define YOVOLIB_MESSAGE_H

#include "yovolib_export.h"
#include "yprintable.h"
#include "yserializable.h"

#include <QDataStream>
#include <QString>

/// The one message class that daemons exchange: a type word, an integer and a text. Its wire form
/// is its class name and its Qt properties, objectName first, in the stream format of Qt 4.8.
class YOVOLIB_EXPORT YMessage : public YSerializable, public YPrintable
{
    Q_OBJECT
    Q_PROPERTY(QString stringType READ getStringType WRITE setStringType)
    Q_PROPERTY(int intData READ getIntData WRITE setIntData)
    Q_PROPERTY(QString stringData READ getStringData WRITE setStringData)
public:
    /// Whoever builds a message sets all three fields before sending it.
    YMessage();
    ~YMessage() override;

    const QString& getStringType() const { return _stringType; }
    void setStringType(const QString& stringType) { _stringType = stringType; }
    int getIntData() const { return _intData; }
    void setIntData(int intData) { _intData = intData; }
    const QString& getStringData() const { return _stringData; }
    void setStringData(const QString& stringData) { _stringData = stringData; }

    /// "instance of YMessage: stringType=%1, intData=%2, stringData=%3".
    QString toString() const override;
    /// "%1:%2:%3" with the same three values.
    const QString toShortString() const;

private:
    QString _stringType;
    int _intData;
    QString _stringData;
};

/// Writes the frame: the body's length, then the body as a byte array (its length once more).
YOVOLIB_EXPORT QDataStream& operator<<(QDataStream& stream, const YMessage* message);
/// Waits up to 30 seconds for each part of a frame, reads it and hands a new message to the
/// caller, who deletes it. Throws YException when a wait fails or the frame names another class.
YOVOLIB_EXPORT QDataStream& operator>>(QDataStream& stream, YMessage*& message);

#endif // YOVOLIB_MESSAGE_H
