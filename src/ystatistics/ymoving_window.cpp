#include "ymoving_window.h"

#include "yassert.h"

#include <QDateTime>
#include <QDebug>

#include <iterator>

YMovingWindow::YMovingWindow(int size, long bucketSeconds)
    : _size(size)
    , _bucketSeconds(bucketSeconds)
    , _start(now())
{
}

unsigned int YMovingWindow::now()
{
    // Whole seconds of wall-clock time in 32 bits, as the stale test compares them.
    return static_cast<unsigned int>(QDateTime::currentSecsSinceEpoch());
}

YMovingWindow& YMovingWindow::operator<<(double value)
{
    const unsigned int time = now();
    Y_ASSERT_X(_bucketSeconds != 0, "a moving window needs buckets of at least one second");
    const qint64 idx = (qint64(time) - _start) / qint64(_bucketSeconds);
    if (_buckets.empty()) {
        _buckets.push_back(Bucket {idx, time, value});
    } else {
        Bucket& lastBucket = _buckets.back();
        Y_ASSERT(idx >= lastBucket._idx);
        if (lastBucket._idx == idx) {
            lastBucket._value += value;
            return *this;
        }
        _buckets.push_back(Bucket {idx, time, value});
    }
    while (_buckets.size() > static_cast<size_t>(qMax(_size, 0)))
        _buckets.pop_front();
    return *this;
}

void YMovingWindow::trimWindow()
{
    // 32-bit arithmetic on purpose: early in the epoch of the clock the limit wraps around.
    const unsigned int limit
        = now() - static_cast<unsigned int>(_size) * static_cast<unsigned int>(_bucketSeconds);
    auto it = _buckets.begin();
    while (it != _buckets.end()) {
        if (it->_time < limit) {
            it = _buckets.erase(it);
            // The walk steps on as after a bucket that stays, so the one behind the erased bucket
            // is skipped; stepping on from the end of the ring leads to its first bucket again.
            it = it == _buckets.end() ? _buckets.begin() : std::next(it);
        } else {
            ++it;
        }
    }
}

double YMovingWindow::total(long buckets)
{
    if (_buckets.empty())
        return 0.0;
    if (buckets == -1)
        buckets = _size;
    trimWindow();
    if (_buckets.empty())
        return 0.0;
    const qint64 last = _buckets.back()._idx;
    double sum = 0.0;
    for (auto it = _buckets.rbegin(); it != _buckets.rend(); ++it) {
        if (last - it->_idx + 1 > buckets)
            break;
        sum += it->_value;
    }
    return sum;
}

double YMovingWindow::average(long buckets)
{
    if (buckets == -1)
        buckets = _size;
    // kept: average-of-whole-window
    return total(-1) / static_cast<double>(buckets);
}

void YMovingWindow::printList()
{
    qDebug() << "printing list ... " << static_cast<int>(_buckets.size()) << "items";
    for (const Bucket& bucket : _buckets)
        qDebug() << bucket._idx << " => " << bucket._value;
}
