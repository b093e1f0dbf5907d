#include "ini_file_values_manager.h"

#include "yexception.h"

#include <QDir>
#include <QMutex>
#include <QMutexLocker>

#include <memory>
#include <vector>

YParameterValuesManager::~YParameterValuesManager() = default;

namespace {

// Parsers live as long as the process: after a file is read again, the manager may still point
// at the old parser for keys the new read lacks. They are kept here rather than leaked, so that
// they are released at exit and leak checkers stay quiet.
class ParserKeeper
{
public:
    YPhpIniParser* make()
    {
        QMutexLocker locker(&_mutex);
        _parsers.emplace_back(new YPhpIniParser(QStringList(QLatin1String("")), nullptr));
        return _parsers.back().get();
    }

private:
    QMutex _mutex;
    std::vector<std::unique_ptr<YPhpIniParser>> _parsers;
};

ParserKeeper& keeper()
{
    static ParserKeeper instance;
    return instance;
}

[[noreturn]] void throwLocal8Bit(const QString& message, const char* file, unsigned int line)
{
    const QByteArray text = message.toLocal8Bit();
    throw YException(text.constData(), file, line);
}

} // namespace

YIniFileValuesManager::YIniFileValuesManager(
    const QStringList& paths, const QHash<QString, YParameterDescriptor>& descriptors)
    : _memoryValues(QStringList(QLatin1String("")), nullptr)
{
    for (const QString& path : paths) {
        const QFileInfo info(path);
        if (info.isDir()) {
            addIniDir(info);
        } else if (info.isFile()) {
            addIniFile(info);
        } else {
            throwLocal8Bit(QStringLiteral("Error to access the %1 file (is not a regular "
                                          "file/directory or it does not exists)")
                               .arg(path),
                __FILE__, __LINE__);
        }
    }
    for (auto it = descriptors.cbegin(); it != descriptors.cend(); ++it) {
        const QString& defaultValue = it->getDefaultValue();
        if (!defaultValue.isNull() && !containsValue(it->getName()))
            setValue(it->getName(), defaultValue);
    }
}

YIniFileValuesManager::~YIniFileValuesManager() = default;

void YIniFileValuesManager::addIniFile(const QString& path)
{
    addIniFile(QFileInfo(path));
}

void YIniFileValuesManager::addIniFile(const QFileInfo& file)
{
    const QString path = file.absoluteFilePath();
    const QFileInfo info(path);
    if (!info.exists() || !info.isFile() || !info.isReadable()) {
        throwLocal8Bit(
            QStringLiteral("Error to access the %1 file (is not a regular file, does not "
                           "exists, wrong permissions or is not readable)")
                .arg(path),
            __FILE__, __LINE__);
    }
    // The old parser keeps answering for keys the new read lacks. // kept:
    // values-manager-old-parser
    _parsersByFile.remove(path);
    YPhpIniParser* parser = keeper().make();
    parser->addFile(path);
    _parsersByFile.insert(path, parser);
    // A later file takes a key over whole: values never merge across files.
    const QHash<QString, QStringList> entries = parser->entriesOrderedByKey();
    for (auto it = entries.cbegin(); it != entries.cend(); ++it)
        _parsersByKey.insert(it.key(), parser);
}

void YIniFileValuesManager::addIniDir(const QString& path)
{
    addIniDir(QFileInfo(path));
}

void YIniFileValuesManager::addIniDir(const QFileInfo& dir)
{
    const QString path = dir.absoluteFilePath();
    const QFileInfo info(path);
    if (!info.exists() || !info.isDir() || !info.isReadable()) {
        throwLocal8Bit(QStringLiteral("Error to access the %1 file (is not a directory file, does "
                                      "not exists, wrong permissions or is not readable)")
                           .arg(path),
            __FILE__, __LINE__);
    }
    // No name filter, unlike YPhpIniParser::addDirectory: every readable file is read as ini text.
    // kept: values-manager-every-file
    const QStringList names
        = QDir(path).entryList(QDir::Files | QDir::Readable | QDir::NoDotAndDotDot, QDir::NoSort);
    for (const QString& name : names)
        addIniFile(QStringLiteral("%1/%2").arg(path, name));
}

const QString YIniFileValuesManager::getValue(const QString& name) const
{
    const auto it = _parsersByKey.constFind(name);
    if (it == _parsersByKey.cend()) {
        Y_THROW(QStringLiteral("The parameter '%1' is not defined in any of the INI file(s): %2")
                    .arg(name, QStringList(_parsersByFile.keys()).join(QLatin1String(", "))));
    }
    return (*it)->stringValue(name);
}

void YIniFileValuesManager::setValue(const QString& name, const QString& value)
{
    const auto it = _parsersByKey.constFind(name);
    if (it != _parsersByKey.cend()) {
        (*it)->setString(name, value);
        return;
    }
    _memoryValues.setString(name, value);
    _parsersByKey.insert(name, &_memoryValues);
}

bool YIniFileValuesManager::containsValue(const QString& name) const
{
    return _parsersByKey.contains(name);
}

const QList<QPair<QByteArray, QByteArray>> YIniFileValuesManager::getValuesList() const
{
    QList<QPair<QByteArray, QByteArray>> list;
    list.reserve(_parsersByKey.size());
    for (auto it = _parsersByKey.cbegin(); it != _parsersByKey.cend(); ++it)
        list.append(qMakePair(it.key().toLocal8Bit(), (*it)->stringValue(it.key()).toLocal8Bit()));
    return list;
}
