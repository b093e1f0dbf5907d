// Replacing a configuration file on Linux. The new content goes to "<file>.new" in the same
// folder, is flushed to the disk with fsync, and rename(2) puts it in place: rename is atomic
// within one file system, so a reader (or a crash, or a power cut after the folder's fsync) sees
// the old file or the new one, never a mix or an empty file. The folder is synced after the rename
// because the new directory entry is itself data the disk must hold.
//
// A file reached through a symbolic link is replaced at its target: renaming over the link would
// turn it into a plain file and cut it off from what it pointed to. The new file takes the old
// file's mode and owner before it becomes visible, so an administrator's permissions survive.
#include "scan_dir_p.h"

#include "yunix_p.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString replacementTarget(const QString& file)
{
    const QFileInfo info(file);
    if (info.isSymLink()) {
        const QString canonical = info.canonicalFilePath();
        if (!canonical.isEmpty())
            return canonical;
    }
    return file;
}

// Gives the new file the old one's mode and owner; only an owner that differs is set, so that an
// ordinary user can rewrite his own files.
bool copyModeAndOwner(int fd, const QByteArray& target)
{
    struct stat old;
    if (::stat(target.constData(), &old) != 0)
        return errno == ENOENT;
    if (::fchmod(fd, old.st_mode & 07777) != 0)
        return false;
    struct stat fresh;
    if (::fstat(fd, &fresh) != 0)
        return false;
    if (fresh.st_uid != old.st_uid || fresh.st_gid != old.st_gid) {
        if (::fchown(fd, old.st_uid, old.st_gid) != 0)
            return false;
        // fchown clears set-id bits; put the mode back.
        if (::fchmod(fd, old.st_mode & 07777) != 0)
            return false;
    }
    return true;
}

void syncFolderOf(const QByteArray& target)
{
    QByteArray folder = target.left(target.lastIndexOf('/'));
    if (folder.isEmpty())
        folder = target.startsWith('/') ? QByteArray("/") : QByteArray(".");
    int fd;
    Y_EINTR_LOOP(fd, ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd < 0)
        return;
    // Some file systems refuse fsync on a folder; the rename has happened all the same.
    ::fsync(fd);
    ::close(fd);
}

} // namespace

YScanDirSys::ReplaceResult YScanDirSys::replaceFile(const QString& file, const QByteArray& content)
{
    ReplaceResult result {Replaced, 0, QString(), replacementTarget(file)};
    result.temporary = QStringLiteral("%1.new").arg(result.target);
    const QByteArray temporary = QFile::encodeName(result.temporary);
    const QByteArray target = QFile::encodeName(result.target);

    FILE* stream = std::fopen(temporary.constData(), "w+be");
    if (!stream) {
        result.step = OpenFailed;
        result.error = errno;
        return result;
    }
    // The text ends at its first NUL and the shortfall fails the write. // kept:
    // rewrite-nul-ends-text
    const size_t length = qstrnlen(content.constData(), uint(content.size()));
    errno = 0;
    const size_t written = length > 0 ? std::fwrite(content.constData(), 1, length, stream) : 0;
    bool ok = written == size_t(content.size()) && std::fflush(stream) == 0;
    ok = ok && copyModeAndOwner(fileno(stream), target);
    ok = ok && ::fsync(fileno(stream)) == 0;
    const int writeError = errno;
    if (std::fclose(stream) != 0 && ok) {
        ok = false;
    } else {
        errno = writeError;
    }
    if (!ok) {
        result.step = WriteFailed;
        result.error = errno;
        return result;
    }
    if (::rename(temporary.constData(), target.constData()) != 0) {
        result.step = RenameFailed;
        result.error = errno;
        return result;
    }
    syncFolderOf(target);
    return result;
}

QString YScanDirSys::errorText(int error)
{
    char buffer[256];
    // The GNU strerror_r returns the text, which may or may not be the buffer.
    return QString::fromLocal8Bit(strerror_r(error, buffer, sizeof buffer));
}
