// Operating-system independent part of the thread storage: sharing one system key among all
// objects of a logical key. The system calls are in ythread_storage_posix.cpp.
#include "ythread_storage.h"

#include "yexception.h"

QHash<qint32, quint32> YThreadStoragePrivate::_keys;
QHash<quint32, int> YThreadStoragePrivate::_usersPerKey;
YMutex YThreadStoragePrivate::_mutex;

YThreadStoragePrivate::YThreadStoragePrivate(int id)
    : _id(id)
    , _pkey(0)
{
    YMutexLocker locker(_mutex);
    QHash<qint32, quint32>::const_iterator known = _keys.constFind(_id);
    if (known != _keys.constEnd()) {
        _pkey = known.value();
        // The toolkit's assertions, compiled into release builds as well.
        if (!(_usersPerKey.value(_pkey) > 0))
            qt_assert("_usersPerKey.value(_pkey) > 0", __FILE__, __LINE__);
        _usersPerKey[_pkey] += 1;
        return;
    }
    if (!allocSys(&_pkey))
        Y_THROW("TlsAlloc failed");
    _keys.insert(_id, _pkey);
    if (!(_usersPerKey.value(_pkey) == 0))
        qt_assert("_usersPerKey.value(_pkey) == 0", __FILE__, __LINE__);
    _usersPerKey.insert(_pkey, 1);
}

YThreadStoragePrivate::~YThreadStoragePrivate()
{
    YMutexLocker locker(_mutex);
    const int users = _usersPerKey.value(_pkey);
    if (!(users > 0))
        qt_assert("users > 0", __FILE__, __LINE__);
    if (users - 1 > 0) {
        _usersPerKey.insert(_pkey, users - 1);
        return;
    }
    _keys.remove(_id);
    _usersPerKey.remove(_pkey);
    freeSys(_pkey);
}

void* YThreadStoragePrivate::data() const
{
    return getSys(_pkey);
}

void YThreadStoragePrivate::setData(const void* data)
{
    if (!setSys(_pkey, data))
        Y_THROW("TlsSetValue failed");
}
