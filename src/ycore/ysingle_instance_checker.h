#ifndef YOVOLIB_YSINGLE_INSTANCE_CHECKER_H
#define YOVOLIB_YSINGLE_INSTANCE_CHECKER_H

#include "yovolib_export.h"

#include <QSharedPointer>
#include <QString>

class YSemaphore;

/// Tells whether another copy of a program runs, by a named semaphore of one token that the
/// running copy holds. A copy that ends without markAsNotRunning() keeps the token taken for as
/// long as any process has the semaphore open.
class YOVOLIB_EXPORT YSingleInstanceChecker
{
public:
    /// Throws YException "YSemaphore: invalid semaphore name <name>" for a bad name.
    explicit YSingleInstanceChecker(const QString& name);
    /// A copy shares the semaphore object.
    YSingleInstanceChecker(const YSingleInstanceChecker& other) = default;
    YSingleInstanceChecker& operator=(const YSingleInstanceChecker& other) = default;
    /// The system's semaphore stays open until the process ends.
    ~YSingleInstanceChecker();

    /// Takes the token, waiting 1 ms: true when this process holds it now.
    bool markAsRunning();
    /// True when the token is taken, also when this process holds it.
    bool isAnotherRunning();
    /// Gives the token back.
    bool markAsNotRunning();

private:
    bool isUsable();

    QString _name;
    QSharedPointer<YSemaphore> _semaphore;
};

#endif // YOVOLIB_YSINGLE_INSTANCE_CHECKER_H
