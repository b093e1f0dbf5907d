#ifndef YOVOLIB_MESSAGE_FRAMES_H
#define YOVOLIB_MESSAGE_FRAMES_H

#include "message.h"

#include <QByteArray>

#include <memory>

namespace yovotest {

/// The message as it goes over the wire.
QByteArray frameOf(const YMessage* message);

/// The message a frame holds; what decoding throws is passed on. With position, how far into
/// the frame decoding got, whether it ended or threw.
std::unique_ptr<YMessage> messageFrom(const QByteArray& frame, qint64* position = nullptr);

} // namespace yovotest

#endif // YOVOLIB_MESSAGE_FRAMES_H
