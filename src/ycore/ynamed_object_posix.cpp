// Named shared-memory objects that live exactly as long as their users, as the library promises.
//
// A POSIX shared-memory object outlives every process that used it, while the system this library
// models removes a named object with its last handle and frees the handles of a crashed process.
// flock(2) gives us exactly that bookkeeping for free: every user holds a shared lock on the
// object's descriptor and the kernel drops it when the descriptor closes, also in a process that
// was killed. Whoever can take the lock exclusively is therefore alone: at close it is the last
// user and removes the object; at open it found an object whose users are gone and makes it afresh.
//
// Opening and closing one name are serialised by a second, tiny object, the guard, locked
// exclusively around both. Without it a closer could take the exclusive lock in the moment in
// which a creator turns its exclusive lock into a shared one (flock conversions are not atomic).
// The guard is removed together with the object, so a waiter re-checks after it got the lock that
// the guard it holds is still the one under the name.
#include "ynamed_object_posix_p.h"

#include "yunix_p.h"

#include <cstdlib>
#include <mutex>
#include <set>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class NameGuard
{
public:
    explicit NameGuard(const QByteArray& objectName)
        : _name(objectName + ".guard")
    {
    }
    NameGuard(const NameGuard&) = delete;
    NameGuard& operator=(const NameGuard&) = delete;
    ~NameGuard() { release(false); }

    bool acquire()
    {
        for (;;) {
            int fd = shm_open(_name.constData(), O_RDONLY | O_CREAT | O_CLOEXEC, 0666);
            if (fd < 0)
                return false;
            fchmod(fd, 0666); // every account may use the name; fails harmlessly if not ours
            int rc;
            Y_EINTR_LOOP(rc, flock(fd, LOCK_EX));
            if (rc != 0) {
                ::close(fd);
                return false;
            }
            if (isStillNamed(fd)) {
                _fd = fd;
                return true;
            }
            ::close(fd); // its last holder removed it while we waited: take the new one
        }
    }

    /// With `removeName`, the guard goes with the object it guarded.
    void release(bool removeName)
    {
        if (_fd < 0)
            return;
        if (removeName)
            shm_unlink(_name.constData());
        ::close(_fd);
        _fd = -1;
    }

private:
    bool isStillNamed(int fd) const
    {
        struct stat held, named;
        if (fstat(fd, &held) != 0)
            return false;
        int check = shm_open(_name.constData(), O_RDONLY | O_CLOEXEC, 0);
        if (check < 0)
            return false;
        bool same = fstat(check, &named) == 0 && named.st_ino == held.st_ino
            && named.st_dev == held.st_dev;
        ::close(check);
        return same;
    }

    QByteArray _name;
    int _fd = -1;
};

// Semaphores deliberately stay open until the process ends. At a normal exit the objects of which
// this process is the last user are removed, as the system would remove them with its last handle;
// nothing is unmapped, since other threads may still be running. Killed processes leave their
// objects behind, and the next creator takes them over as stale.
struct OpenObjects
{
    std::mutex mutex;
    std::set<YNamedObjectSys*> objects;
};

OpenObjects& openObjects()
{
    static OpenObjects* registry = [] {
        OpenObjects* r = new OpenObjects; // never destroyed: the exit hook runs after statics die
        atexit(YNamedObjectSys::removeAbandonedAtExit);
        return r;
    }();
    return *registry;
}

} // namespace

void YNamedObjectSys::removeAbandonedAtExit()
{
    OpenObjects& registry = openObjects();
    std::lock_guard<std::mutex> lock(registry.mutex);
    for (YNamedObjectSys* object : registry.objects) {
        NameGuard guard(object->_name);
        bool guarded = guard.acquire();
        bool last = guarded && flock(object->_fd, LOCK_EX | LOCK_NB) == 0;
        if (last) {
            shm_unlink(object->_name.constData());
            flock(object->_fd, LOCK_SH); // keep holding it for threads that still run
        }
        guard.release(last);
    }
}

void YNamedObjectSys::track(bool open)
{
    OpenObjects& registry = openObjects();
    std::lock_guard<std::mutex> lock(registry.mutex);
    if (open)
        registry.objects.insert(this);
    else
        registry.objects.erase(this);
}

YNamedObjectSys::~YNamedObjectSys()
{
    close();
}

bool YNamedObjectSys::fail(int error)
{
    _error = error;
    return false;
}

bool YNamedObjectSys::open(const QByteArray& name, std::size_t size, OpenMode mode,
    mode_t permissions, Initializer initializer, void* context)
{
    close();
    _name = name;
    _created = false;
    NameGuard guard(name);
    if (!guard.acquire())
        return fail(errno);

    int flags = O_RDWR | O_CLOEXEC | (mode == OpenExisting ? 0 : O_CREAT);
    int fd = shm_open(name.constData(), flags, permissions);
    if (fd < 0) {
        int error = errno;
        guard.release(error == ENOENT);
        return fail(error);
    }

    if (flock(fd, LOCK_EX | LOCK_NB) == 0) {
        // Nobody holds it: it is new, or its users all died and left it behind.
        if (mode == OpenExisting) {
            shm_unlink(name.constData());
            ::close(fd);
            guard.release(true);
            return fail(ENOENT);
        }
        fchmod(fd, permissions);
        // Truncating first gives zero-filled content also where a stale object is reused.
        if (size == 0 || ftruncate(fd, 0) != 0 || ftruncate(fd, off_t(size)) != 0) {
            int error = size == 0 ? EINVAL : errno;
            shm_unlink(name.constData());
            ::close(fd);
            guard.release(true);
            return fail(error);
        }
        void* address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (address == MAP_FAILED) {
            int error = errno;
            shm_unlink(name.constData());
            ::close(fd);
            guard.release(true);
            return fail(error);
        }
        if (initializer)
            initializer(address, size, context);
        int rc;
        Y_EINTR_LOOP(rc, flock(fd, LOCK_SH));
        _fd = fd;
        _address = address;
        _size = size;
        _created = true;
        track(true);
        return true;
    }

    if (errno != EWOULDBLOCK) {
        int error = errno;
        ::close(fd);
        return fail(error);
    }
    if (mode == CreateExclusive) {
        ::close(fd);
        return fail(EEXIST);
    }
    int rc;
    Y_EINTR_LOOP(rc, flock(fd, LOCK_SH));
    struct stat st;
    if (rc != 0 || fstat(fd, &st) != 0 || st.st_size <= 0) {
        int error = rc != 0 ? errno : EINVAL;
        ::close(fd);
        return fail(error);
    }
    void* address
        = mmap(nullptr, std::size_t(st.st_size), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (address == MAP_FAILED) {
        int error = errno;
        ::close(fd);
        return fail(error);
    }
    _fd = fd;
    _address = address;
    _size = std::size_t(st.st_size);
    track(true);
    return true;
}

void YNamedObjectSys::close()
{
    if (_fd < 0)
        return;
    track(false);
    NameGuard guard(_name);
    bool guarded = guard.acquire();
    munmap(_address, _size);
    bool last = guarded && flock(_fd, LOCK_EX | LOCK_NB) == 0;
    if (last)
        shm_unlink(_name.constData());
    ::close(_fd);
    guard.release(last);
    _fd = -1;
    _address = nullptr;
    _size = 0;
}

bool YNamedObjectSys::isHeld(const QByteArray& name)
{
    int fd = shm_open(name.constData(), O_RDONLY | O_CLOEXEC, 0);
    if (fd < 0)
        return false;
    bool held = flock(fd, LOCK_EX | LOCK_NB) != 0;
    ::close(fd);
    return held;
}
