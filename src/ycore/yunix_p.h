// Not part of the YovoLib API: the habits of system calls, kept in one place.
#ifndef YOVOLIB_YUNIX_P_H
#define YOVOLIB_YUNIX_P_H

#include <cerrno>

/// Repeats a system call for as long as a signal interrupts it.
#define Y_EINTR_LOOP(result, call)                                                                 \
    do {                                                                                           \
        (result) = (call);                                                                         \
    } while ((result) == -1 && errno == EINTR)

/// Thread-local data of the library that the hot path reads: the initial-exec model spares the
/// lookup through __tls_get_addr that a shared library's thread-locals need otherwise.
#define Y_INITIAL_EXEC_TLS __attribute__((tls_model("initial-exec")))

#endif // YOVOLIB_YUNIX_P_H
