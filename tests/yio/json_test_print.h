#ifndef YOVOLIB_JSON_TEST_PRINT_H
#define YOVOLIB_JSON_TEST_PRINT_H

#include <QString>
#include <QStringList>

#include <ostream>

// Failed comparisons of texts print the texts, not their bytes. Found by argument-dependent
// lookup, so these stay in the global namespace of QString.
inline void PrintTo(const QString& text, std::ostream* os)
{
    *os << '"' << text.toUtf8().replace('\n', "\\n").constData() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* os)
{
    *os << '{';
    for (int i = 0; i < list.size(); ++i) {
        if (i)
            *os << ", ";
        PrintTo(list.at(i), os);
    }
    *os << '}';
}

#endif // YOVOLIB_JSON_TEST_PRINT_H
