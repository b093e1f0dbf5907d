#ifndef YOVOLIB_MESSAGE_SIMPLE_SERVER_P_H
#define YOVOLIB_MESSAGE_SIMPLE_SERVER_P_H

// Not part of the library's interface: how the server lets go of a served connection.

namespace ymessageserver {

/// Discards what the client sent beyond its message, so that the close that follows ends the
/// stream in order instead of resetting it under a response still on its way.
void finishConnectionSys(int descriptor);

} // namespace ymessageserver

#endif // YOVOLIB_MESSAGE_SIMPLE_SERVER_P_H
