// Operating-system independent: one element of a thread's event backtrace.
#include "trace_element.h"

YTraceElement::YTraceElement()
    : _function(nullptr)
    , _file(nullptr)
    , _line(-1)
{
}

YTraceElement::YTraceElement(const char* function, const char* file, int line, const QString& info)
    : _function(function)
    , _file(file)
    , _line(line)
    , _info(info)
{
}

YTraceElement::YTraceElement(const YTraceElement& other) = default;

YTraceElement& YTraceElement::operator=(const YTraceElement& other) = default;

YTraceElement::~YTraceElement() = default;

QString YTraceElement::toString() const
{
    // The multi-argument arg() substitutes all four at once, so a '%' inside a function name or
    // an info text is never taken for a place holder.
    return QStringLiteral("%1 (%2:%3) [%4]")
        .arg(QString::fromLatin1(_function), QString::fromLatin1(_file), QString::number(_line),
            _info);
}
