#ifndef YOVOLIB_YTEST_DIR_H
#define YOVOLIB_YTEST_DIR_H

#include "yovolib_export.h"

#include <QDir>
#include <QString>

/// A folder for test data, "<root>/<module>/<name>", made and emptied at construction.
class YOVOLIB_EXPORT YTestDir
{
public:
    YTestDir(const char* root, const char* module, const char* name);

    QString getAbsoluteDirName();
    QString getAbsoluteFileName(const char* file);
    /// Removes everything inside the folder and keeps the folder.
    void clean();

    /// A folder: its entries, then the folder by QDir::rmpath, which also takes empty parents
    /// with it. Anything else: QFile::remove.
    static void recursiveClean(const QString& path);
    static QString getUnittestsDirName(const QString& base);
    static QString getInputDirName(const QString& base);
    static QString getOutputDirName(const QString& base);

private:
    QDir _dir;
};

#endif // YOVOLIB_YTEST_DIR_H
