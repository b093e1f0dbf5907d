#ifndef YOVOLIB_IP_VERIFIER_P_H
#define YOVOLIB_IP_VERIFIER_P_H

// Not part of the library's interface: the address conversions the verifier needs of the system.

#include <QByteArray>

namespace yipverifier {

/// The dotted text as a 32-bit address in network byte order; 0xFFFFFFFF when it can't be read,
/// and for 255.255.255.255 itself.
unsigned long parseAddressSys(const QByteArray& text);
/// The word in network byte order.
unsigned long toNetworkOrderSys(unsigned long hostWord);

} // namespace yipverifier

#endif // YOVOLIB_IP_VERIFIER_P_H
