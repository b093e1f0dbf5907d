#ifndef YOVOLIB_YCYCLIC_BUFFER_H
#define YOVOLIB_YCYCLIC_BUFFER_H

#include "yexception.h"
#include "ymutex.h"

#include <QByteArray>

#include <deque>

/// A bounded first-in first-out store of lines: the in-memory cache of a debug stream.
template<class Lock> class YCyclicBuffer
{
public:
    typedef typename std::deque<QByteArray>::const_iterator const_iterator;

    /// A capacity of 0 means 100 lines.
    explicit YCyclicBuffer(unsigned int capacity)
        : _capacity(capacity == 0 ? 100 : capacity)
    {
    }
    ~YCyclicBuffer() { _queue.clear(); }
    YCyclicBuffer(const YCyclicBuffer&) = delete;
    YCyclicBuffer& operator=(const YCyclicBuffer&) = delete;

    /// Under the lock: the queue may be growing on another thread, and reading its size then
    /// without the lock would be a data race.
    bool isEmpty() const
    {
        _lock.lock();
        const bool empty = _queue.empty();
        _lock.unlock();
        return empty;
    }

    /// Appends the line and drops the oldest once the capacity is exceeded.
    void insertItem(const QByteArray& item)
    {
        _lock.lock();
        _queue.push_back(item);
        if (_queue.size() > _capacity)
            _queue.pop_front();
        _lock.unlock();
    }

    /// Takes the oldest line out; an empty array when there is none.
    QByteArray extractItem()
    {
        try {
            _lock.lock();
            QByteArray item;
            if (!_queue.empty()) {
                item = _queue.front();
                _queue.pop_front();
            }
            _lock.unlock();
            return item;
        } catch (const YException& e) {
            throw YException(QStringLiteral("Failed to extract the item from the buffer: %1")
                                 .arg(QString::fromLatin1(e.what())));
        }
    }

    unsigned int capacity() const { return _capacity; }
    std::size_t size() const { return _queue.size(); }
    const_iterator begin() const { return _queue.begin(); }
    const_iterator end() const { return _queue.end(); }

private:
    std::deque<QByteArray> _queue;
    mutable Lock _lock;
    unsigned int _capacity;
};

#endif // YOVOLIB_YCYCLIC_BUFFER_H
