#ifndef YOVOLIB_MESSAGE_SIMPLE_SERVER_P_H
#define YOVOLIB_MESSAGE_SIMPLE_SERVER_P_H

// Not part of the library's interface: how the server lets go of a served connection.

namespace ymessageserver {

/// Sends the end of the stream and discards what the client sent beyond its message, so that the
/// close that follows doesn't reset the connection under a response still on its way.
void finishConnectionSys(int descriptor);

} // namespace ymessageserver

#endif // YOVOLIB_MESSAGE_SIMPLE_SERVER_P_H
