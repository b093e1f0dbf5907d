#ifndef YOVOLIB_YPRINTABLE_H
#define YOVOLIB_YPRINTABLE_H

#include "yovolib_export.h"

#include <QString>

/// Anything a debug stream can print.
class YOVOLIB_EXPORT YPrintable
{
public:
    YPrintable() = default;
    YPrintable(const YPrintable&) = default;
    YPrintable& operator=(const YPrintable&) = default;

    virtual QString toString() const = 0;
    virtual ~YPrintable();
};

#endif // YOVOLIB_YPRINTABLE_H
