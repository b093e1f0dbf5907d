// Not part of the YovoLib API.
#ifndef YOVOLIB_YNAMED_OBJECT_POSIX_P_H
#define YOVOLIB_YNAMED_OBJECT_POSIX_P_H

#include <QByteArray>

#include <cstddef>
#include <sys/types.h>

/// A named shared-memory object that vanishes with its last user and is made afresh when all its
/// users died. Semaphores and mappings both stand on it.
class YNamedObjectSys
{
public:
    enum OpenMode
    {
        CreateOrOpen, ///< open when someone holds it, otherwise make it afresh
        CreateExclusive, ///< make it afresh; fail with EEXIST when someone holds it
        OpenExisting ///< open it; fail with ENOENT when nobody holds it
    };
    /// Runs while the object is still private to the caller, on a fresh, zero-filled object.
    typedef void (*Initializer)(void* address, std::size_t size, void* context);

    YNamedObjectSys() = default;
    YNamedObjectSys(const YNamedObjectSys&) = delete;
    YNamedObjectSys& operator=(const YNamedObjectSys&) = delete;
    ~YNamedObjectSys();

    /// `name` is a shared-memory name ("/..."). `size` is the size of a new object; an opened one
    /// is mapped whole. False with `error()` set (an errno value) on failure.
    bool open(const QByteArray& name, std::size_t size, OpenMode mode, mode_t permissions,
        Initializer initializer = nullptr, void* context = nullptr);
    /// Unmaps and drops this user's hold; the last user removes the object.
    void close();

    bool isOpen() const { return _address != nullptr; }
    void* address() const { return _address; }
    std::size_t size() const { return _size; }
    bool created() const { return _created; }
    int error() const { return _error; }
    const QByteArray& name() const { return _name; }

    /// True when some process still holds the object of that name (for tests and diagnostics).
    static bool isHeld(const QByteArray& name);

    /// Removes, at the normal end of the process, the objects it was the last user of.
    static void removeAbandonedAtExit();

private:
    bool fail(int error);
    void track(bool open);

    QByteArray _name;
    int _fd = -1;
    void* _address = nullptr;
    std::size_t _size = 0;
    bool _created = false;
    int _error = 0;
};

#endif // YOVOLIB_YNAMED_OBJECT_POSIX_P_H
