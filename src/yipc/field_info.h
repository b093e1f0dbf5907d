#ifndef YOVOLIB_FIELD_INFO_H
#define YOVOLIB_FIELD_INFO_H

#include "yovolib_export.h"
#include "yprintable.h"

#include <QHash>
#include <QSharedData>
#include <QSharedDataPointer>
#include <QString>

/// The shared body of a field descriptor.
class YOVOLIB_EXPORT YFieldInfoData : public QSharedData
{
public:
    unsigned int _type = 0;
    unsigned int _size = 0;
    QString _name;
    unsigned int _properties = 0;
    unsigned int _order = 0;
};

/// One field of a typed message type. Its constants enter the type digest: they never change.
class YOVOLIB_EXPORT YFieldInfo : public YPrintable
{
public:
    static constexpr unsigned int FT_MIN_TYPE = 1;
    static constexpr unsigned int FT_MIN_ATOMIC_TYPE = 1;
    static constexpr unsigned int FT_8 = 1;
    static constexpr unsigned int FT_16 = 2;
    static constexpr unsigned int FT_32 = 3;
    static constexpr unsigned int FT_64 = 4;
    static constexpr unsigned int FT_MAX_ATOMIC_TYPE = 4;
    static constexpr unsigned int FT_MIN_RAW_TYPE = 101;
    static constexpr unsigned int FT_FIXED_SIZE = 101;
    static constexpr unsigned int FT_VARIABLE_SIZE = 102;
    static constexpr unsigned int FT_MAX_RAW_TYPE = 102;
    static constexpr unsigned int FT_MAX_TYPE = 102;

    static constexpr unsigned int FS_ANY_SIZE = 0;
    static constexpr unsigned int FS_8 = 1;
    static constexpr unsigned int FS_16 = 2;
    static constexpr unsigned int FS_32 = 4;
    static constexpr unsigned int FS_64 = 8;

    static constexpr unsigned int FP_MIN_PROPERTY = 0;
    static constexpr unsigned int FP_NOTHING = 0;
    static constexpr unsigned int FP_INTERNAL = 1;
    static constexpr unsigned int FP_MAX_PROPERTY = 1;

    static constexpr unsigned int FO_MIN_INTERNAL = 0;
    static constexpr unsigned int FO_CONTENT_DIGEST = 0;
    static constexpr unsigned int FO_TYPE_DIGEST = 1;
    static constexpr unsigned int FO_OFFSETS = 2;
    static constexpr unsigned int FO_MAX_INTERNAL = 2;
    static constexpr unsigned int FO_MIN_EXTERNAL = 3;

    static const QString FN_CONTENT_DIGEST;
    static const QString FN_TYPE_DIGEST;
    static const QString FN_OFFSETS;
    static const QString FTN_8;
    static const QString FTN_16;
    static const QString FTN_32;
    static const QString FTN_64;
    static const QString FTN_FIXED_SIZE;
    static const QString FTN_VARIABLE_SIZE;

    /// Atomic type to its size.
    static QHash<unsigned int, unsigned int> ATOMIC_FIELD_TYPES_HASH;
    /// The three fields every finalised type carries ahead of the user's fields.
    static QHash<QString, YFieldInfo> INTERNAL_FIELD_TYPES_HASH;
    static QHash<unsigned int, QString> FIELD_TYPE_TO_STRING_HASH;
    static QHash<unsigned int, QString> FIELD_PROPERTIES_TO_STRING_HASH;

    /// An empty descriptor (type 0), for containers; it is never verified.
    YFieldInfo();
    /// Verifies the declaration and throws YException when it breaks the rules.
    YFieldInfo(const QString& name, const unsigned int& type, const unsigned int& size,
        const unsigned int& properties, const unsigned int& order);
    YFieldInfo(const YFieldInfo& other) = default;
    YFieldInfo& operator=(const YFieldInfo& other) = default;
    ~YFieldInfo() override;

    const QString& getName() const { return _d->_name; }
    const unsigned int& getType() const { return _d->_type; }
    const unsigned int& getSize() const { return _d->_size; }
    const unsigned int& getOrder() const { return _d->_order; }
    const unsigned int& getProperties() const { return _d->_properties; }

    /// ORs the bits in.
    void setProperty(unsigned int property);
    /// ORs in the complement of the bits: every other bit gets set and the given ones stay as they
    /// were. Deliberate; it never clears anything.
    void unsetProperty(unsigned int property);
    /// Adds the bits, as setProperty does; it never replaces.
    void setProperties(unsigned int properties);

    /// True when any of the bits is set, so is(FP_NOTHING) is always false.
    bool is(unsigned int property) const { return (_d->_properties & property) != 0; }
    bool isAtomicType() const;
    bool isRawType() const;

    /// True only for descriptors that share one body; isIdenticalTo() compares attributes.
    bool operator==(const YFieldInfo& other) const { return _d == other._d; }
    bool isIdenticalTo(const YFieldInfo& other) const;
    /// Whether this declaration fits what the system expects: raw fields fit at any size, and an
    /// expectation without properties is never met.
    bool matches(const YFieldInfo& expected) const;

    const QString getTypeAsString() const;
    const QString getPropertiesAsString() const;
    /// "Field: Name %1, Type %2, Size %3, Properties %4, Order %5".
    QString toString() const override;

    static bool isNameInternal(const QString& name);
    /// The table's row; a name that is not internal ends the process through a failed assertion.
    static YFieldInfo getInternalFieldInfo(const QString& name);

private:
    YFieldInfo(const QString& name, const unsigned int& type, const unsigned int& size,
        const unsigned int& properties, const unsigned int& order, bool unverified);

    static void fillTablesIfNeeded();
    void verifyFieldAttributes() const;
    void verifyAgainstInternalFields() const;

    QSharedDataPointer<YFieldInfoData> _d;
};

#endif // YOVOLIB_FIELD_INFO_H
