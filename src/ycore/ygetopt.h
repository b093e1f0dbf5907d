#ifndef YOVOLIB_YGETOPT_H
#define YOVOLIB_YGETOPT_H

#include "yovolib_export.h"

/// The classic command-line scanner. It lives in a namespace of its own so that its state
/// never mixes with the C library's scanner of the same names. Not re-entrant.
namespace yovo {

/// The index of the next argument to scan; starts at 1.
extern YOVOLIB_EXPORT int optind;
/// Non-zero: complaints about bad options go to the standard error stream. Starts at 1.
extern YOVOLIB_EXPORT int opterr;
/// The argument of the option just returned, or null.
extern YOVOLIB_EXPORT char* optarg;

/// The next option character; '?' for an unknown option or a missing argument; -1 at the end
/// of the options (a non-option, "-" alone, or "--", which is consumed).
YOVOLIB_EXPORT int getopt(int argc, char** argv, char* options);

} // namespace yovo

#endif // YOVOLIB_YGETOPT_H
