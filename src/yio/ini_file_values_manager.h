#ifndef YOVOLIB_INI_FILE_VALUES_MANAGER_H
#define YOVOLIB_INI_FILE_VALUES_MANAGER_H

#include "parameters_registry.h"
#include "php_ini_parser.h"
#include "yovolib_export.h"

#include <QByteArray>
#include <QFileInfo>
#include <QHash>
#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

/// Where the parameter registry finds current values; the daemon attaches one after init().
class YOVOLIB_EXPORT YParameterValuesManager
{
public:
    virtual const QString getValue(const QString& name) const = 0;
    virtual void setValue(const QString& name, const QString& value) = 0;
    virtual bool containsValue(const QString& name) const = 0;
    virtual const QList<QPair<QByteArray, QByteArray>> getValuesList() const = 0;
    virtual ~YParameterValuesManager();
};

/// Answers from ini files and folders, each file read by its own YPhpIniParser, and from the
/// descriptors' defaults. Changes stay in memory; nothing is written to a file.
class YOVOLIB_EXPORT YIniFileValuesManager : public YParameterValuesManager
{
public:
    /// `paths` holds files and folders, the last the strongest. Defaults apply to parameters that
    /// no file declares. Throws YException for a path that is neither file nor folder.
    YIniFileValuesManager(
        const QStringList& paths, const QHash<QString, YParameterDescriptor>& descriptors);
    ~YIniFileValuesManager() override;
    YIniFileValuesManager(const YIniFileValuesManager&) = delete;
    YIniFileValuesManager& operator=(const YIniFileValuesManager&) = delete;

    /// Reads the file with a new parser, which takes over every key it declares. Re-reading a file
    /// leaves the old parser answering for keys the new read no longer declares, deliberately.
    void addIniFile(const QString& path);
    void addIniFile(const QFileInfo& file);
    /// Reads every readable file of the folder, whatever its name, in the file system's order.
    void addIniDir(const QString& path);
    void addIniDir(const QFileInfo& dir);

    /// Throws YException for a parameter that neither a file nor a default defines.
    const QString getValue(const QString& name) const override;
    void setValue(const QString& name, const QString& value) override;
    bool containsValue(const QString& name) const override;
    const QList<QPair<QByteArray, QByteArray>> getValuesList() const override;

private:
    QHash<QString, YPhpIniParser*> _parsersByFile;
    QHash<QString, YPhpIniParser*> _parsersByKey;
    YPhpIniParser _memoryValues;
};

#endif // YOVOLIB_INI_FILE_VALUES_MANAGER_H
