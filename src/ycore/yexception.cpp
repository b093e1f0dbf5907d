#include "yexception.h"

YException::YException(const char* message)
    : _message(QString(message))
    , _file(nullptr)
    , _line(0)
{
}

YException::YException(const QString& message)
    : _message(message)
    , _file(nullptr)
    , _line(0)
{
}

YException::YException(const char* message, const char* file, unsigned int line)
    : _message(QString(message))
    , _file(file)
    , _line(line)
{
}

YException::YException(const QString& message, const char* file, unsigned int line)
    : _message(message)
    , _file(file)
    , _line(line)
{
}

YException::YException(const YException& cause, const char* message)
    : _message(chain(cause, QString(message)))
    , _file(nullptr)
    , _line(0)
{
}

YException::YException(const YException& cause, const QString& message)
    : _message(chain(cause, message))
    , _file(nullptr)
    , _line(0)
{
}

YException::YException(
    const YException& cause, const char* message, const char* file, unsigned int line)
    : _message(chain(cause, QString(message)))
    , _file(file)
    , _line(line)
{
}

YException::YException(
    const YException& cause, const QString& message, const char* file, unsigned int line)
    : _message(chain(cause, message))
    , _file(file)
    , _line(line)
{
}

YException::YException(const YException& other)
    : std::exception(other)
    , _message(other._message)
    , _what(other._what)
    , _file(other._file)
    , _line(other._line)
{
}

YException& YException::operator=(const YException& other)
{
    std::exception::operator=(other);
    _message = other._message;
    _what = other._what;
    _file = other._file;
    _line = other._line;
    return *this;
}

YException::~YException() = default;

QString YException::chain(const YException& cause, const QString& message)
{
    // The cause survives only as text: its position is part of what(), not of the new exception.
    // The two-argument arg() substitutes both at once, so a "%2" inside the message stays text.
    return QStringLiteral("chained exception: %1, caused by: %2")
        .arg(message, QString::fromLatin1(cause.what()));
}

const char* YException::what() const noexcept
{
    if (!_what.isEmpty())
        return _what.constData();
    if (_line != 0)
        _message.prepend(QStringLiteral("%1:%2 ").arg(QString(_file), QString::number(_line)));
    _what = _message.toLatin1();
    return _what.constData();
}
