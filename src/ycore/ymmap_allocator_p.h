// Not part of the YovoLib API: the operating system's side of YMMapAllocator.
#ifndef YOVOLIB_YMMAP_ALLOCATOR_P_H
#define YOVOLIB_YMMAP_ALLOCATOR_P_H

#include <QByteArray>

#include <atomic>
#include <cstddef>

/// One open mapping, shared by an allocator and its copies and given up with the last of them.
struct YMMapHandle
{
    std::atomic<int> references {1};
    void* view = nullptr;
    std::size_t size = 0; ///< the bytes really mapped, whatever the segment's header claims
};

namespace YMMapSys {

enum OpenResult
{
    Opened,
    AlreadyExists, ///< create: someone has the name open
    NotFound, ///< attach: nobody has the name open
    Failed ///< the system refused; see the error
};

/// Makes ("create") or opens the mapping of that system name ("Global\<name>Mmap"). A new
/// mapping has `size` zero bytes; an opened one is mapped whole.
YMMapHandle* open(
    const QByteArray& systemName, std::size_t size, bool create, OpenResult* result, int* error);
/// Another user of the same mapping.
void reference(YMMapHandle* handle);
/// Drops one user; the last unmaps and closes, and the last in any process removes the segment.
void release(YMMapHandle* handle);
/// The shared-memory name behind a system name: "Global\<x>" becomes "/<x>".
QByteArray objectName(const QByteArray& systemName);

} // namespace YMMapSys

#endif // YOVOLIB_YMMAP_ALLOCATOR_P_H
