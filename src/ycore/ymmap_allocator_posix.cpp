// Shared-memory segments on Linux.
//
// The segment is a POSIX shared-memory object, "/<name>Mmap" for the system name
// "Global\<name>Mmap", sized with ftruncate (which zero-fills it, as a fresh paging-file mapping
// is) and mapped MAP_SHARED. Its lifetime is that of YNamedObjectSys: gone with its last user,
// also when users were killed, and made afresh by a creator that finds only a stale object. The
// object is made with mode 0666 whatever the umask, since a segment is meant for every account
// on the machine. An opened segment is mapped whole, at the size the object really has; the
// portable code bounds every access by that size, never by the header alone.
#include "ymmap_allocator_p.h"

#include "ynamed_object_posix_p.h"

#include <cerrno>

namespace {

const mode_t SEGMENT_PERMISSIONS = 0666;
const std::size_t HEADER_SIZE = 8;

struct PosixMapping : YMMapHandle
{
    YNamedObjectSys object;
};

} // namespace

QByteArray YMMapSys::objectName(const QByteArray& systemName)
{
    QByteArray name = systemName;
    if (name.startsWith("Global\\"))
        name = name.mid(7);
    return '/' + name;
}

YMMapHandle* YMMapSys::open(
    const QByteArray& systemName, std::size_t size, bool create, OpenResult* result, int* error)
{
    PosixMapping* mapping = new PosixMapping;
    const YNamedObjectSys::OpenMode mode
        = create ? YNamedObjectSys::CreateExclusive : YNamedObjectSys::OpenExisting;
    if (!mapping->object.open(objectName(systemName), size, mode, SEGMENT_PERMISSIONS)) {
        *error = mapping->object.error();
        if (create && *error == EEXIST)
            *result = AlreadyExists;
        else if (!create && *error == ENOENT)
            *result = NotFound;
        else
            *result = Failed;
        delete mapping;
        return nullptr;
    }
    // Something of that name too small to hold even the header isn't a segment of ours.
    if (mapping->object.size() < HEADER_SIZE) {
        *error = EINVAL;
        *result = Failed;
        delete mapping;
        return nullptr;
    }
    mapping->view = mapping->object.address();
    mapping->size = mapping->object.size();
    *result = Opened;
    *error = 0;
    return mapping;
}

void YMMapSys::reference(YMMapHandle* handle)
{
    handle->references.fetch_add(1, std::memory_order_relaxed);
}

void YMMapSys::release(YMMapHandle* handle)
{
    if (handle->references.fetch_sub(1, std::memory_order_acq_rel) == 1)
        delete static_cast<PosixMapping*>(handle);
}
