#ifndef YOVOLIB_YREADER_WRITER_LOCKER_H
#define YOVOLIB_YREADER_WRITER_LOCKER_H

#include "yovolib_export.h"

class YSemaphore;
class YOneLockSemaphore;

/// Scope guard for one writer across processes: takes the writer gate, then all reader tokens.
/// It never throws and never times out; isLocked() tells whether the lock was really obtained.
class YOVOLIB_EXPORT YWriterLocker
{
public:
    /// Blocks until the gate and all getMaxCount() tokens of `semaphore` are held, or one fails.
    YWriterLocker(YSemaphore* semaphore, YOneLockSemaphore* writerSemaphore);
    /// Copies give back what the source holds: a locker is not to be copied while it holds.
    YWriterLocker(const YWriterLocker& other) = default;
    YWriterLocker& operator=(const YWriterLocker& other) = default;
    /// Gives back the tokens first, then the gate.
    virtual ~YWriterLocker();

    /// True only when both the gate and the tokens are held.
    bool isLocked() const { return _hasTokens && _hasWriterSemaphore; }

private:
    YSemaphore* _semaphore;
    YOneLockSemaphore* _writerSemaphore;
    bool _hasTokens;
    bool _hasWriterSemaphore;
};

/// Scope guard for one reader across processes: one token of the readers' semaphore.
class YOVOLIB_EXPORT YReaderLocker
{
public:
    /// Blocks until one token is held. The writer gate is not looked at: it may be null.
    YReaderLocker(YSemaphore* semaphore, YOneLockSemaphore* writerSemaphore);
    YReaderLocker(const YReaderLocker& other) = default;
    YReaderLocker& operator=(const YReaderLocker& other) = default;
    /// Gives the token back.
    virtual ~YReaderLocker();

    /// True when the token is held.
    bool isLocked() const { return _hasTokens; }

private:
    YSemaphore* _semaphore;
    // The gate and its flag are kept like the writer's and never read: readers don't touch the
    // gate, but the fields keep the object's layout the same as the writer's.
    [[maybe_unused]] YOneLockSemaphore* _writerSemaphore;
    bool _hasTokens;
    [[maybe_unused]] bool _hasWriterSemaphore;
};

#endif // YOVOLIB_YREADER_WRITER_LOCKER_H
