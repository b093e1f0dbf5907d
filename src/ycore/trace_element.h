#ifndef YOVOLIB_TRACE_ELEMENT_H
#define YOVOLIB_TRACE_ELEMENT_H

#include "yovolib_export.h"

#include <QString>

/// One entry of a thread's event backtrace: where a unit of work began, and a free text.
class YOVOLIB_EXPORT YTraceElement
{
public:
    /// Null pointers, line -1, a null text.
    YTraceElement();
    /// The two pointers are kept, not copied: they must outlive the element (string literals,
    /// typically __FUNCTION__ and __FILE__).
    YTraceElement(const char* function, const char* file, int line, const QString& info);
    YTraceElement(const YTraceElement& other);
    YTraceElement& operator=(const YTraceElement& other);
    ~YTraceElement();

    /// "function (file:line) [info]".
    QString toString() const;

private:
    const char* _function;
    const char* _file;
    int _line;
    QString _info;
};

#endif // YOVOLIB_TRACE_ELEMENT_H
