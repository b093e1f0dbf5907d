// Not part of the YovoLib API: the habits of system calls, kept in one place.
#ifndef YOVOLIB_YUNIX_P_H
#define YOVOLIB_YUNIX_P_H

#include <cerrno>

/// Repeats a system call for as long as a signal interrupts it.
#define Y_EINTR_LOOP(result, call)                                                                 \
    do {                                                                                           \
        (result) = (call);                                                                         \
    } while ((result) == -1 && errno == EINTR)

#endif // YOVOLIB_YUNIX_P_H
