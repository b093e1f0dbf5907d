// A served connection is closed by the server, so that a daemon that runs for months doesn't keep
// one descriptor per client it ever had. Closing a TCP socket with unread bytes in its receive
// queue makes the kernel answer with a reset instead of an orderly end, and a reset can overtake
// the response in the client's queue; so the server first drains what is already there, without
// waiting for more, and the close then ends the stream in order.
#include "message_simple_server_p.h"

#include <sys/socket.h>

namespace ymessageserver {

void finishConnectionSys(int descriptor)
{
    if (descriptor < 0)
        return;
    char sink[4096];
    while (::recv(descriptor, sink, sizeof(sink), MSG_DONTWAIT) > 0) { }
}

} // namespace ymessageserver
