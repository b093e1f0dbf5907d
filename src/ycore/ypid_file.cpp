#include "ypid_file.h"

#include <QFile>

#include <atomic>

class YPidFileBody
{
public:
    YPidFileBody(const QString& path, YDebug::StreamId stream)
        : _count(1)
        , _path(path)
        , _stream(stream)
    {
    }
    ~YPidFileBody() { remove(); }

    void remove()
    {
        if (_path.isEmpty())
            return;
        YLOG_DBG2(_stream) << "Removing pid file" << _path << yflush;
        QFile file(_path);
        if (file.exists() && !file.remove()) {
            YLOG_WARNING(_stream) << "Cannot remove pid file" << _path << "." << qt_error_string()
                                  << yflush;
        }
    }

    std::atomic<int> _count;
    QString _path;
    YDebug::StreamId _stream;
};

YPidFile::YPidFile()
    : _body(new YPidFileBody(QString(), YDebug::STDERR))
{
}

YPidFile::YPidFile(const QString& path, YDebug::StreamId stream)
    : _body(new YPidFileBody(path, stream))
{
}

YPidFile::YPidFile(const YPidFile& other)
    : _body(other._body)
{
    ++_body->_count;
}

YPidFile& YPidFile::operator=(const YPidFile& other)
{
    if (_body != other._body) {
        ++other._body->_count;
        release();
        _body = other._body;
    }
    return *this;
}

YPidFile::~YPidFile()
{
    release();
}

void YPidFile::release()
{
    if (--_body->_count == 0)
        delete _body;
}

bool YPidFile::isValid()
{
    return !_body->_path.isEmpty();
}

void YPidFile::remove()
{
    _body->remove();
}
