// Not part of the YovoLib API: the scanner's line rules, shared by its reading and writing halves,
// and the operating system's side of replacing a configuration file.
#ifndef YOVOLIB_SCAN_DIR_P_H
#define YOVOLIB_SCAN_DIR_P_H

#include <QByteArray>
#include <QString>

#include <cstring>

enum class YScanDirLineKind
{
    NotADirective,
    SectionHeader,
    DirectiveLine
};

/// The scanner's line rules on the bytes of one line (without its LF). For a header, `key`
/// receives the section's name.
YScanDirLineKind yScanDirParseLine(
    const char* begin, const char* end, bool sections, QString& key, QString& value);

/// Where the line that starts at `start` ends: its LF, or the end of the text.
inline int yScanDirLineEnd(const QByteArray& text, int start)
{
    const int size = text.size();
    if (start >= size)
        return size;
    const void* found = std::memchr(text.constData() + start, '\n', size_t(size - start));
    return found ? int(static_cast<const char*>(found) - text.constData()) : size;
}

namespace YScanDirSys {

/// How far a replacement got; anything but Replaced leaves the old file as it was.
enum ReplaceStep
{
    Replaced,
    OpenFailed,
    WriteFailed,
    RenameFailed
};

struct ReplaceResult
{
    ReplaceStep step;
    int error; ///< errno of the failed step, 0 when the step failed without one
    QString temporary; ///< the "<file>.new" that was written
    QString target; ///< the file that was (or would have been) replaced
};

/// Writes `content` up to its first NUL byte to "<file>.new" beside the file's real target and
/// moves it over that target in one step, keeping the old file's mode and owner. A content with a
/// NUL byte is a write failure, as the text writer the format was made for has always counted it.
ReplaceResult replaceFile(const QString& file, const QByteArray& content);

/// The system's text for an errno value.
QString errorText(int error);

} // namespace YScanDirSys

#endif // YOVOLIB_SCAN_DIR_P_H
