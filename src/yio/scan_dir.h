#ifndef YOVOLIB_SCAN_DIR_H
#define YOVOLIB_SCAN_DIR_H

#include "ydebug.h"
#include "yovolib_export.h"

#include <QByteArray>
#include <QSharedPointer>
#include <QString>
#include <QStringList>

#include <list>
#include <map>

/// The value of one directive line: the value text (comment removed, trimmed, quotes kept), the
/// file it came from and the section it stood under (null before the first header).
struct YOVOLIB_EXPORT YScanDirDirectiveValue
{
    QString value;
    QString file;
    QString section;
};

/// A directive value together with its key.
struct YOVOLIB_EXPORT YScanDirDirectiveValueEx
{
    QString name;
    YScanDirDirectiveValue value;
};

/// What a caller knows about a directive. A `type` of 1 marks a directive whose value may be
/// quoted when it is written back.
struct YOVOLIB_EXPORT YScanDirDirectiveInfo
{
    QString text;
    int type;
};

/// Puts the `extension` (or `yovo_extension`) lines of a file into the order they are written in.
class YOVOLIB_EXPORT IYScanDirValueSorter
{
public:
    virtual ~IYScanDirValueSorter();
    virtual void sort(std::list<YScanDirDirectiveValueEx>& values) = 0;
};

/// Reads a set of ini files into a table that remembers each directive's file and section, so that
/// the same files can be rewritten later without losing what the table does not own.
class YOVOLIB_EXPORT YScanDir
{
public:
    enum DirectiveMatchCode
    {
        DirectiveMatched = 0,
        DirectiveKeyMatched = 1,
        DirectiveNotFound = 2
    };

    typedef std::multimap<QString, YScanDirDirectiveValue> DirectiveMap;
    typedef std::map<QString, DirectiveMap> FileMap;
    typedef std::multimap<QString, YScanDirDirectiveInfo> MetadataMap;

    YScanDir(YDebug::StreamId stream = YDebug::STDERR);
    YScanDir(const YScanDir& other);
    YScanDir& operator=(const YScanDir& other);
    ~YScanDir();

    // Set-up.
    /// The list of files has no meaningful order: duplicates are removed through a set.
    void addFile(const QString& file);
    void addFiles(const QStringList& files);
    /// Adds the readable "*.ini" files of each directory, not of its sub-directories.
    void addDirectories(const QStringList& directories);
    /// Forgets the files to scan; the table stays.
    void clear();
    const QStringList& getIniFiles() const;
    /// Replaces the table by the content of the files; a file that does not open is left out.
    void scan();

    // Queries over the whole table, files in table order.
    bool contains(const QString& key);
    bool contains(const QString& key, const QString& value) const;
    bool getStringValue(const QString& key, QString& value);
    /// Trimmed, then one trailing and one leading quote removed.
    bool getStringValueTrimmed(const QString& key, QString& value);
    int getInt(const QString& key, int defaultValue);

    // Queries in one file; a relative name is made absolute first.
    bool getStringValue(
        const QString& section, const QString& key, const QString& file, QString& value) const;
    bool getStringValueTrimmed(
        const QString& section, const QString& key, const QString& file, QString& value) const;
    /// In a set's order; a section without directives does not exist for this list.
    QStringList getListOfSections(const QString& file) const;
    /// Appends; `keys` is not cleared.
    void getKeysOfSection(const QString& section, const QString& file, QStringList& keys) const;

    const FileMap& directives() const;

    // Changes of the table, in memory only; `file` arguments are the table's absolute names.
    /// Normalises the value and sets it on the key's first entry in the first file that has it.
    /// Never creates a directive.
    void setStringValue(const QString& key, const QString& value);
    /// Stores the value as given, creating the file's entry or the directive when missing.
    void setStringValue(
        const QString& section, const QString& key, const QString& value, const QString& file);
    /// Adds an entry without a section, also when the key exists; false for a file not scanned.
    bool addDirective(const QString& key, const QString& file, const QString& value);
    bool addDirective(const QString& key, const YScanDirDirectiveValue& value);
    /// Removes the matching entry; a key with a single entry goes whatever `value` says.
    bool removeDirective(const QString& key, const QString& file, const QString& value);
    bool setFileContent(const QString& file, const std::list<YScanDirDirectiveValueEx>& directives);
    /// Takes ownership; copies of this scanner share the sorter.
    void setExtensionsWriteSorter(IYScanDirValueSorter* sorter);

    // Writing.
    /// Rewrites every file of the table in place, keeping each line the table does not own.
    void flush();
    /// Regenerates every file of the table from the table alone; comments are lost.
    void flushWithSections();
    /// Copies each file of the table to "<file>.backup", one generation only.
    void backup();
    /// Scans one file, sets one directive and writes the file back.
    static void modifyDirective(
        YDebug::StreamId stream, const QString& file, const QString& key, const QString& value);

    /// Whether two values mean the same: quotes, "on"/"off" and the kind of slash don't count.
    static bool compareStrings(const QString& first, const QString& second);
    /// Replaces the metadata of all scanners; meant for the start-up of the process.
    static void setMetadata(const MetadataMap& metadata);

protected:
    QStringList doGetFilesOfDirectory(const QString& directory) const;
    void doScan();
    void doParseFileContent(const QByteArray& content, const QString& file);
    bool doFindDirective(const QString& key, DirectiveMap::iterator& found);
    DirectiveMatchCode doFindDirective(DirectiveMap& directives, const QString& key,
        const QString& value, DirectiveMap::iterator& found);
    bool isIniLine(const QByteArray& line, QString& key, QString& value);
    void doWriteFile(const QString& file, DirectiveMap directives);
    void doWriteFileWithSections(const QString& file, const DirectiveMap& directives);
    void doWriteExtensions(const QString& key, DirectiveMap& directives, QByteArray& out);
    /// The value as it is written: quoted when it holds a character that the syntax would
    /// otherwise take for itself.
    static QString doNormalizeValue(const QString& key, const QString& value);

private:
    void removeDuplicateFiles();
    bool writeFileContent(const QByteArray& content, const QString& file);
    static QString tableName(const QString& file);
    const YScanDirDirectiveValue* findInFile(
        const QString& section, const QString& key, const QString& file) const;

    FileMap _directives;
    YDebug::StreamId _logStream;
    QStringList _iniFiles;
    QSharedPointer<IYScanDirValueSorter> _extensionsSorter;

    static MetadataMap s_metadata;
};

#endif // YOVOLIB_SCAN_DIR_H
