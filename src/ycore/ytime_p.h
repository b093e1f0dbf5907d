// Not part of the YovoLib API: the performance counter of the platform.
#ifndef YOVOLIB_YTIME_P_H
#define YOVOLIB_YTIME_P_H

#include <QtGlobal>

namespace YTimeSys {

/// Ticks per second of counter().
qint64 frequency();
/// A monotonic tick count.
qint64 counter();

} // namespace YTimeSys

#endif // YOVOLIB_YTIME_P_H
