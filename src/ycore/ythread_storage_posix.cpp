// Thread storage on POSIX thread keys. No destructor is registered with a key: like the slots of
// the system this library models, a value is a plain word that the owner frees.
#include "ythread_storage.h"

#include <pthread.h>

bool YThreadStoragePrivate::allocSys(quint32* key)
{
    pthread_key_t created;
    if (pthread_key_create(&created, nullptr) != 0)
        return false;
    *key = quint32(created);
    return true;
}

void YThreadStoragePrivate::freeSys(quint32 key)
{
    // Its result is not looked at: a key that can't be freed is nothing the caller can act on.
    pthread_key_delete(pthread_key_t(key));
}

void* YThreadStoragePrivate::getSys(quint32 key)
{
    return pthread_getspecific(pthread_key_t(key));
}

bool YThreadStoragePrivate::setSys(quint32 key, const void* data)
{
    return pthread_setspecific(pthread_key_t(key), data) == 0;
}
