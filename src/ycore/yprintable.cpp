#include "yprintable.h"

// Anchors the vtable in the library.
YPrintable::~YPrintable() = default;
