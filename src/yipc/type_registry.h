#ifndef YOVOLIB_TYPE_REGISTRY_H
#define YOVOLIB_TYPE_REGISTRY_H

#include "type_info.h"
#include "yovolib_export.h"

#include <QByteArray>
#include <QHash>
#include <QString>

/// The process-wide table of finalised types, by name and by digest. No locks: types are
/// registered at start-up by one thread and only read afterwards.
class YOVOLIB_EXPORT YTypeRegistry
{
public:
    /// Made at the first call, without a lock, and kept for the life of the process.
    static YTypeRegistry* getInstance();

    /// Throws for an open type and for a name that is registered already; a registered name with
    /// another digest ends the process through a failed assertion.
    void registerType(const YTypeInfo_t<YMD5>& typeInfo);
    bool isTypeRegistered(const QString& name);
    bool isTypeRegistered(const QByteArray& digest);
    const YTypeInfo_t<YMD5> getTypeInfoByName(const QString& name);
    const YTypeInfo_t<YMD5> getTypeInfoByDigest(const QByteArray& digest);
    void unregisterTypeByName(const QString& name);
    void unregisterTypeByDigest(const QByteArray& digest);
    /// Goes by the type's digest.
    void unregisterTypeByTypeInfo(const YTypeInfo_t<YMD5>& typeInfo);

private:
    YTypeRegistry() = default;
    YTypeRegistry(const YTypeRegistry&) = delete;
    YTypeRegistry& operator=(const YTypeRegistry&) = delete;

    QHash<QString, YTypeInfo_t<YMD5>> _typeByName;
    QHash<QByteArray, YTypeInfo_t<YMD5>> _typeByDigest;

    static YTypeRegistry* _instance;
};

#endif // YOVOLIB_TYPE_REGISTRY_H
