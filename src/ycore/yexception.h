#ifndef YOVOLIB_YEXCEPTION_H
#define YOVOLIB_YEXCEPTION_H

#include "yovolib_export.h"

#include <QByteArray>
#include <QString>

#include <exception>

/// The library's one exception type: a message and, optionally, the source position of the throw.
class YOVOLIB_EXPORT YException : public std::exception
{
public:
    YException(const char* message);
    YException(const QString& message);
    YException(const char* message, const char* file, unsigned int line);
    YException(const QString& message, const char* file, unsigned int line);
    YException(const YException& cause, const char* message);
    YException(const YException& cause, const QString& message);
    YException(const YException& cause, const char* message, const char* file, unsigned int line);
    YException(const YException& cause, const QString& message, const char* file,
               unsigned int line);
    YException(const YException& other);
    YException& operator=(const YException& other);
    ~YException() override;

    /// The message, behind "file:line " when the exception has a position. The text is computed
    /// once and the pointer stays valid for the life of the exception.
    const char* what() const noexcept override;

    /// The file as given to the constructor (not copied), null when none was given.
    const char* getFile() const { return _file; }
    /// The line as given; 0 means the exception has no position.
    unsigned int getLine() const { return _line; }

private:
    static QString chain(const YException& cause, const QString& message);

    // what() completes the message in place once; both fields belong to that cache.
    mutable QString _message;
    mutable QByteArray _what;
    const char* _file;
    unsigned int _line;
};

/// Throws a YException that carries the position of the throw.
#define Y_THROW(message) throw YException((message), __FILE__, __LINE__)

#endif // YOVOLIB_YEXCEPTION_H
