// The verifier takes addresses as inet_addr gives them, so the classic call is used as it is:
// it accepts the same shorthand forms ("10.1", octal and hexadecimal parts) that the masks were
// always read with, and its failure value is the one the matching rule tests for.
#include "ip_verifier_p.h"

#include <arpa/inet.h>

namespace yipverifier {

unsigned long parseAddressSys(const QByteArray& text)
{
    return static_cast<unsigned long>(inet_addr(text.constData()));
}

unsigned long toNetworkOrderSys(unsigned long hostWord)
{
    return static_cast<unsigned long>(htonl(static_cast<uint32_t>(hostWord)));
}

} // namespace yipverifier
