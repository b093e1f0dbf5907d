#ifndef YOVOLIB_YSERIALIZABLE_H
#define YOVOLIB_YSERIALIZABLE_H

#include "yovolib_export.h"

#include <QObject>
#include <QString>

/// A QObject that dumps its Qt properties as text; the properties are those of the derived class.
class YOVOLIB_EXPORT YSerializable : public QObject
{
    Q_OBJECT
public:
    YSerializable();
    ~YSerializable() override;

    /// The most derived class that has a meta-object.
    QString getClassName() const;
    /// "instance of <class> {name=value, ...}", inherited properties first.
    QString toString() const;
    /// Three lines per property on standard output, for a person at a terminal.
    void printAll() const;
};

#endif // YOVOLIB_YSERIALIZABLE_H
