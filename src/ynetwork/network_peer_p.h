#ifndef YOVOLIB_NETWORK_PEER_P_H
#define YOVOLIB_NETWORK_PEER_P_H

// Not part of the library's interface: the system calls behind YNetworkPeer::connect.

#include <QString>

namespace ynetworkpeer {

/// A connected stream socket to the host and port. Throws YException with the words of the step
/// that failed: creating the socket, resolving the host, connecting, waiting, reading the result.
int connectSys(const char* host, unsigned short port);
/// Closes a socket that was not handed on.
void closeSys(int descriptor);
/// The word in network order, and back.
unsigned int toNetworkOrderSys(unsigned int value);
unsigned int fromNetworkOrderSys(unsigned int value);

} // namespace ynetworkpeer

#endif // YOVOLIB_NETWORK_PEER_P_H
