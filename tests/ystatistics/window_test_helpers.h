#ifndef YOVOTEST_WINDOW_TEST_HELPERS_H
#define YOVOTEST_WINDOW_TEST_HELPERS_H

#include "ymoving_window.h"

#include <QDateTime>
#include <QStringList>
#include <QThread>

#include <ostream>

// Readable failure messages for the window's printed lines.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toStdString() << '"';
}

namespace windowtest {

inline QStringList& capturedLines()
{
    static QStringList lines;
    return lines;
}

inline void captureMessage(QtMsgType, const QMessageLogContext&, const QString& message)
{
    capturedLines().append(message);
}

/// The lines that printList writes through qDebug.
inline QStringList printedList(YMovingWindow& window)
{
    capturedLines().clear();
    QtMessageHandler previous = qInstallMessageHandler(captureMessage);
    window.printList();
    qInstallMessageHandler(previous);
    return capturedLines();
}

inline qint64 nowSeconds()
{
    return QDateTime::currentSecsSinceEpoch();
}

/// Returns at the start of a new wall-clock second, with most of it still ahead.
inline qint64 waitForNextSecond()
{
    const qint64 start = nowSeconds();
    while (nowSeconds() == start)
        QThread::msleep(5);
    return nowSeconds();
}

/// Waits until the wall clock reads at least the given second.
inline void waitUntilSecond(qint64 second)
{
    while (nowSeconds() < second)
        QThread::msleep(20);
}

} // namespace windowtest

#endif // YOVOTEST_WINDOW_TEST_HELPERS_H
