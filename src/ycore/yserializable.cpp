#include "yserializable.h"

#include <QMetaProperty>
#include <QVariant>

#include <iostream>

namespace {

// The value is cut at its first NUL, as a C string would be.
QString propertyText(const QObject* object, const QMetaProperty& property)
{
    const QByteArray local = property.read(object).toString().toLocal8Bit();
    return QString::fromLocal8Bit(local.constData());
}

} // namespace

YSerializable::YSerializable()
    : QObject(nullptr)
{
}

YSerializable::~YSerializable() = default;

QString YSerializable::getClassName() const
{
    return QString::fromLatin1(metaObject()->className());
}

QString YSerializable::toString() const
{
    const QMetaObject* meta = metaObject();
    QString text = QStringLiteral("instance of ") + getClassName() + QStringLiteral(" {");
    const int count = meta->propertyCount();
    for (int i = 0; i < count; ++i) {
        const QMetaProperty property = meta->property(i);
        text += QString::fromLatin1(property.name());
        text += QLatin1Char('=');
        text += propertyText(this, property);
        if (i + 1 < count)
            text += QStringLiteral(", ");
    }
    text += QLatin1Char('}');
    return text;
}

void YSerializable::printAll() const
{
    const QMetaObject* meta = metaObject();
    for (int i = 0; i < meta->propertyCount(); ++i) {
        const QMetaProperty property = meta->property(i);
        const QVariant value = property.read(this);
        std::cout << "property name: " << property.name() << ", "
                  << "type name: " << property.typeName() << ", "
                  << "is valid: " << (property.isValid() ? 1 : 0) << ", "
                  << "is readable: " << (property.isReadable() ? 1 : 0) << std::endl;
        std::cout << "value: " << propertyText(this, property).toLocal8Bit().constData()
                  << std::endl;
        std::cout << "type: " << static_cast<int>(value.type())
                  << ", userType: " << value.userType() << std::endl;
    }
}
