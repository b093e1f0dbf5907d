// The thin layer over the system's thread-local storage: the slot that the threads family and a
// daemon's own per-thread data use.
#ifndef YOVOLIB_YTHREAD_STORAGE_H
#define YOVOLIB_YTHREAD_STORAGE_H

#include "ymutex.h"
#include "yovolib_export.h"

#include <QHash>
#include <QtGlobal>

/// One slot of thread-local storage, chosen by a logical key. Objects made with the same key
/// share one system key, which lives as long as the last of them.
class YOVOLIB_EXPORT YThreadStoragePrivate
{
public:
    /// Takes the system key of id, allocating one for the first user. Throws YException with
    /// "TlsAlloc failed" when the system has no key left.
    explicit YThreadStoragePrivate(int id);
    /// Gives the key back when this was its last user.
    ~YThreadStoragePrivate();

    /// The calling thread's value; null when it set none.
    void* data() const;
    /// Sets the calling thread's value; throws YException with "TlsSetValue failed".
    void setData(const void* data);

private:
    YThreadStoragePrivate(const YThreadStoragePrivate&) = delete;
    YThreadStoragePrivate& operator=(const YThreadStoragePrivate&) = delete;

    static bool allocSys(quint32* key);
    static void freeSys(quint32 key);
    static void* getSys(quint32 key);
    static bool setSys(quint32 key, const void* data);

    qint32 _id;
    quint32 _pkey;

    static QHash<qint32, quint32> _keys;
    static QHash<quint32, int> _usersPerKey;
    static YMutex _mutex;
};

#endif // YOVOLIB_YTHREAD_STORAGE_H
