#ifndef YOVOLIB_PARAMETERS_REGISTRY_H
#define YOVOLIB_PARAMETERS_REGISTRY_H

#include "yovolib_export.h"
#include "yprintable.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QVariant>

class QDomElement;
class QDomNode;
class YParameterValuesManager;

/// Name, type and default of one configuration parameter. A null default means the parameter has
/// no default of its own, which is not the same as an empty one.
class YOVOLIB_EXPORT YParameterDescriptor : public YPrintable
{
public:
    /// The empty descriptor: type QVariant::Invalid, null strings.
    YParameterDescriptor();
    YParameterDescriptor(const YParameterDescriptor& other);
    YParameterDescriptor(QVariant::Type type, const QString& name);
    YParameterDescriptor(QVariant::Type type, const QString& name, const QString& defaultValue);
    YParameterDescriptor& operator=(const YParameterDescriptor& other);

    QString toString() const override;
    ~YParameterDescriptor() override;

    bool isValid() const { return _type != QVariant::Invalid; }
    QVariant::Type getType() const { return _type; }
    const QString& getName() const { return _name; }
    const QString& getDefaultValue() const { return _defaultValue; }

private:
    QVariant::Type _type;
    QString _name;
    QString _defaultValue;
};

/// The parameters a daemon knows, read from its deployment descriptor (XML text). Entries that do
/// not apply to the running operating system are left out. One instance per process.
class YOVOLIB_EXPORT YParametersRegistry
{
public:
    /// Creates the process's instance from the XML text itself. Throws YException for a document
    /// an administrator got wrong, and the instance then stays unset; a second successful call is
    /// a failed assertion.
    static void init(const QString& descriptorXml);
    /// Null before init().
    static YParametersRegistry* getInstance();

    explicit YParametersRegistry(const QString& descriptorXml);
    /// Leaves the values manager alone.
    ~YParametersRegistry();
    YParametersRegistry(const YParametersRegistry&) = delete;
    YParametersRegistry& operator=(const YParametersRegistry&) = delete;

    /// Not owned; may be done once only.
    void addParameterValuesManager(YParameterValuesManager* manager);
    bool isParameterRegistered(const QString& name) const;
    bool contains(const QByteArray& name);
    const QHash<QString, YParameterDescriptor>& getParametersHash() const;
    /// Needs a values manager, although the lookup itself does not use it.
    QVariant::Type getType(const QString& name);
    /// The manager's list; calling it before a manager is attached is the caller's error.
    const QList<QPair<QByteArray, QByteArray>> getValuesList() const;

private:
    static YParameterDescriptor constructDescriptor(const QDomNode* node);
    static bool isRestrictionMet(const QDomElement& element);
    const YParameterDescriptor& findParameterDescriptor(const QString& name) const;
    YParameterDescriptor& findParameterDescriptor(const QString& name);

    YParameterValuesManager* _valuesManager;
    QHash<QString, YParameterDescriptor> _parametersHash;

    static YParametersRegistry* _instance;
};

#endif // YOVOLIB_PARAMETERS_REGISTRY_H
