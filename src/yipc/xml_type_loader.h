#ifndef YOVOLIB_XML_TYPE_LOADER_H
#define YOVOLIB_XML_TYPE_LOADER_H

#include "type_info.h"
#include "yovolib_export.h"

#include <QHash>
#include <QString>

class QDomElement;
class QIODevice;

/// A source of type declarations.
class YOVOLIB_EXPORT YTypeLoader
{
public:
    YTypeLoader() = default;
    YTypeLoader(const YTypeLoader&) = default;
    YTypeLoader& operator=(const YTypeLoader&) = default;
    virtual YTypeInfo_t<YMD5> loadTypeByName(const QString& name) = 0;
    virtual QHash<QString, YTypeInfo_t<YMD5>> loadAllTypes() = 0;
    virtual ~YTypeLoader();
};

/// Reads finalised types from an XML document: <types>, one element per type with a "name", and
/// <field name type [size]> children. The document's order is the order of declaration, and so
/// decides the digests. Nothing is registered.
class YOVOLIB_EXPORT YXmlTypeLoader : public YTypeLoader
{
public:
    /// The device is the caller's: opened for reading, able to reset(), never deleted here.
    YXmlTypeLoader(QIODevice* device = nullptr);
    YXmlTypeLoader(const YXmlTypeLoader& other) = default;
    YXmlTypeLoader& operator=(const YXmlTypeLoader& other) = default;
    ~YXmlTypeLoader() override;

    void setDevice(QIODevice* device) { _device = device; }
    QIODevice* getDevice() { return _device; }

    /// Reads the whole document again and picks the type; throws "Type %1 was not found on a
    /// given device".
    YTypeInfo_t<YMD5> loadTypeByName(const QString& name) override;
    /// Every type of the document by name; a later type of one name replaces the earlier one.
    QHash<QString, YTypeInfo_t<YMD5>> loadAllTypes() override;
    /// One type element, finalised.
    YTypeInfo_t<YMD5> constructType(QDomElement* typeElement);

private:
    QIODevice* _device;
};

#endif // YOVOLIB_XML_TYPE_LOADER_H
