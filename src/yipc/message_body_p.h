#ifndef YOVOLIB_MESSAGE_BODY_P_H
#define YOVOLIB_MESSAGE_BODY_P_H

// Not part of the library's interface: the body of a YMessage frame written and read without a
// stream, for the message class itself.

#include <QByteArray>

class YMessage;

namespace framebody {

/// The body exactly as Qt 4.8's stream format writes the class name and the four properties.
QByteArray write(const YMessage& message);
/// The message of a body in the form write() gives (any texts, any number, trailing bytes
/// ignored), or null for any other body, which the caller reads the general way.
YMessage* read(const QByteArray& body);

} // namespace framebody

#endif // YOVOLIB_MESSAGE_BODY_P_H
