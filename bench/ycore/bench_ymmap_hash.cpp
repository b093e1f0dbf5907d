// YMMapHash lookups and inserts against Boost.Interprocess (an unordered map of shared-memory
// strings in a managed segment), without a lock and under a lock: Boost's own sharable mutex,
// and the same semaphore pair that guards YMMapHash. Also what the lockers cost by themselves.
// At the end a table gives each pair's times and the ratio Boost / YovoLib (above 1: YovoLib is
// faster).
#include "ymmap_hash.h"
#include "yreader_writer_locker.h"
#include "ysemaphore.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>

#include <boost/functional/hash.hpp>
#include <boost/interprocess/allocators/allocator.hpp>
#include <boost/interprocess/containers/string.hpp>
#include <boost/interprocess/managed_shared_memory.hpp>
#include <boost/interprocess/sync/interprocess_sharable_mutex.hpp>
#include <boost/interprocess/sync/scoped_lock.hpp>
#include <boost/interprocess/sync/sharable_lock.hpp>
#include <boost/unordered_map.hpp>

#include <QByteArray>

#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <unistd.h>
#include <vector>

namespace bip = boost::interprocess;

namespace {

const int VALUE_SIZE = 16;

std::string uniqueName(const char* prefix)
{
    static int counter = 0;
    return std::string(prefix) + "_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
}

// What YMMapHash::value does with its output array, so that both sides copy alike.
void assignBytes(QByteArray& out, const char* data, int length)
{
    if (out.isDetached() && out.capacity() >= length) {
        out.resize(length);
        memcpy(out.data(), data, size_t(length));
    } else {
        out = QByteArray(data, length);
    }
}

QByteArray keyOf(int i)
{
    return "key-" + QByteArray::number(i);
}

QByteArray valueOf(int i)
{
    return QByteArray::number(i).rightJustified(VALUE_SIZE, 'v');
}

// The lockers' semaphores, as a daemon would hold them: 8 readers at most.
struct Lockers
{
    Lockers()
        : tokens(8, uniqueName("bench_tokens").c_str())
        , gate(uniqueName("bench_gate").c_str())
    {
    }
    ~Lockers()
    {
        tokens.remove();
        gate.remove();
    }
    YSemaphore tokens;
    YOneLockSemaphore gate;
};

Lockers& lockers()
{
    static Lockers instance;
    return instance;
}

// ---------------------------------------------------------------------------------------------
// YMMapHash

struct YovoTable
{
    explicit YovoTable(int n)
    {
        hash.create(uniqueName("bench_y").c_str(), 16u << 20);
        for (int i = 0; i < n; ++i) {
            keys.push_back(keyOf(i));
            hash.insert(keys.back(), valueOf(i));
        }
    }
    YMMapHash hash;
    std::vector<QByteArray> keys;
};

YovoTable& yovoTable(int n)
{
    static std::map<int, std::unique_ptr<YovoTable>> tables;
    std::unique_ptr<YovoTable>& table = tables[n];
    if (!table)
        table.reset(new YovoTable(n));
    return *table;
}

enum Locking
{
    NoLock,
    OwnLock,
    Semaphores
};

template<Locking locking> void yovoValueCopy(benchmark::State& state)
{
    YovoTable& table = yovoTable(int(state.range(0)));
    const size_t n = table.keys.size();
    size_t i = 0;
    QByteArray out;
    for (auto _ : state) {
        if (locking == Semaphores) {
            YReaderLocker locker(&lockers().tokens, &lockers().gate);
            table.hash.value(table.keys[i], out);
        } else {
            table.hash.value(table.keys[i], out);
        }
        benchmark::DoNotOptimize(out.constData());
        i = i + 1 == n ? 0 : i + 1;
    }
}

template<Locking locking> void yovoValuePointer(benchmark::State& state)
{
    YovoTable& table = yovoTable(int(state.range(0)));
    const size_t n = table.keys.size();
    size_t i = 0;
    void* data = nullptr;
    int length = 0;
    for (auto _ : state) {
        if (locking == Semaphores) {
            YReaderLocker locker(&lockers().tokens, &lockers().gate);
            table.hash.value(table.keys[i], &data, length);
        } else {
            table.hash.value(table.keys[i], &data, length);
        }
        benchmark::DoNotOptimize(data);
        i = i + 1 == n ? 0 : i + 1;
    }
}

// Replaces the value of an existing key with one of the same length: in place, so that the
// table doesn't grow with the number of iterations.
template<Locking locking> void yovoInsert(benchmark::State& state)
{
    YovoTable& table = yovoTable(int(state.range(0)));
    const size_t n = table.keys.size();
    std::vector<QByteArray> values;
    for (size_t k = 0; k < n; ++k)
        values.push_back(valueOf(int(k + 7)));
    size_t i = 0;
    for (auto _ : state) {
        if (locking == Semaphores) {
            YWriterLocker locker(&lockers().tokens, &lockers().gate);
            benchmark::DoNotOptimize(table.hash.insert(table.keys[i], values[i]));
        } else {
            benchmark::DoNotOptimize(table.hash.insert(table.keys[i], values[i]));
        }
        i = i + 1 == n ? 0 : i + 1;
    }
}

// ---------------------------------------------------------------------------------------------
// Boost.Interprocess

typedef bip::managed_shared_memory::segment_manager SegmentManager;
typedef bip::allocator<char, SegmentManager> CharAllocator;
typedef bip::basic_string<char, std::char_traits<char>, CharAllocator> ShmString;

struct BytesView
{
    const char* data;
    size_t size;
};

struct ShmHash
{
    size_t operator()(const ShmString& s) const
    {
        return boost::hash_range(s.data(), s.data() + s.size());
    }
    size_t operator()(const BytesView& s) const
    {
        return boost::hash_range(s.data, s.data + s.size);
    }
};

struct ShmEqual
{
    bool operator()(const ShmString& a, const ShmString& b) const { return a == b; }
    bool operator()(const BytesView& a, const ShmString& b) const
    {
        return a.size == b.size() && memcmp(a.data, b.data(), a.size) == 0;
    }
};

typedef std::pair<const ShmString, ShmString> ShmPair;
typedef bip::allocator<ShmPair, SegmentManager> PairAllocator;
typedef boost::unordered_map<ShmString, ShmString, ShmHash, ShmEqual, PairAllocator> ShmMap;

struct BoostTable
{
    explicit BoostTable(int n)
        : name(uniqueName("bench_b"))
    {
        bip::shared_memory_object::remove(name.c_str());
        segment.reset(new bip::managed_shared_memory(bip::create_only, name.c_str(), 16u << 20));
        mutex = segment->construct<bip::interprocess_sharable_mutex>("mutex")();
        map = segment->construct<ShmMap>("map")(
            0, ShmHash(), ShmEqual(), PairAllocator(segment->get_segment_manager()));
        const CharAllocator chars(segment->get_segment_manager());
        for (int i = 0; i < n; ++i) {
            keys.push_back(keyOf(i));
            const QByteArray value = valueOf(i);
            map->emplace(ShmString(keys.back().constData(), size_t(keys.back().size()), chars),
                ShmString(value.constData(), size_t(value.size()), chars));
        }
    }
    ~BoostTable() { bip::shared_memory_object::remove(name.c_str()); }

    ShmMap::iterator find(const QByteArray& key)
    {
        return map->find(BytesView {key.constData(), size_t(key.size())}, ShmHash(), ShmEqual());
    }

    std::string name;
    std::unique_ptr<bip::managed_shared_memory> segment;
    bip::interprocess_sharable_mutex* mutex;
    ShmMap* map;
    std::vector<QByteArray> keys;
};

BoostTable& boostTable(int n)
{
    static std::map<int, std::unique_ptr<BoostTable>> tables;
    std::unique_ptr<BoostTable>& table = tables[n];
    if (!table)
        table.reset(new BoostTable(n));
    return *table;
}

template<Locking locking> void boostValueCopy(benchmark::State& state)
{
    BoostTable& table = boostTable(int(state.range(0)));
    const size_t n = table.keys.size();
    size_t i = 0;
    QByteArray out;
    for (auto _ : state) {
        if (locking == OwnLock) {
            bip::sharable_lock<bip::interprocess_sharable_mutex> lock(*table.mutex);
            auto it = table.find(table.keys[i]);
            if (it != table.map->end())
                assignBytes(out, it->second.data(), int(it->second.size()));
        } else if (locking == Semaphores) {
            YReaderLocker locker(&lockers().tokens, &lockers().gate);
            auto it = table.find(table.keys[i]);
            if (it != table.map->end())
                assignBytes(out, it->second.data(), int(it->second.size()));
        } else {
            auto it = table.find(table.keys[i]);
            if (it != table.map->end())
                assignBytes(out, it->second.data(), int(it->second.size()));
        }
        benchmark::DoNotOptimize(out.constData());
        i = i + 1 == n ? 0 : i + 1;
    }
}

template<Locking locking> void boostValuePointer(benchmark::State& state)
{
    BoostTable& table = boostTable(int(state.range(0)));
    const size_t n = table.keys.size();
    size_t i = 0;
    const char* data = nullptr;
    size_t length = 0;
    for (auto _ : state) {
        if (locking == OwnLock) {
            bip::sharable_lock<bip::interprocess_sharable_mutex> lock(*table.mutex);
            auto it = table.find(table.keys[i]);
            if (it != table.map->end()) {
                data = it->second.data();
                length = it->second.size();
            }
        } else if (locking == Semaphores) {
            YReaderLocker locker(&lockers().tokens, &lockers().gate);
            auto it = table.find(table.keys[i]);
            if (it != table.map->end()) {
                data = it->second.data();
                length = it->second.size();
            }
        } else {
            auto it = table.find(table.keys[i]);
            if (it != table.map->end()) {
                data = it->second.data();
                length = it->second.size();
            }
        }
        benchmark::DoNotOptimize(data);
        benchmark::DoNotOptimize(length);
        i = i + 1 == n ? 0 : i + 1;
    }
}

template<Locking locking> void boostInsert(benchmark::State& state)
{
    BoostTable& table = boostTable(int(state.range(0)));
    const size_t n = table.keys.size();
    std::vector<QByteArray> values;
    for (size_t k = 0; k < n; ++k)
        values.push_back(valueOf(int(k + 7)));
    size_t i = 0;
    auto insert = [&] {
        auto it = table.find(table.keys[i]);
        if (it != table.map->end()) {
            it->second.assign(values[i].constData(), size_t(values[i].size()));
        } else {
            const CharAllocator chars(table.segment->get_segment_manager());
            table.map->emplace(
                ShmString(table.keys[i].constData(), size_t(table.keys[i].size()), chars),
                ShmString(values[i].constData(), size_t(values[i].size()), chars));
        }
    };
    for (auto _ : state) {
        if (locking == OwnLock) {
            bip::scoped_lock<bip::interprocess_sharable_mutex> lock(*table.mutex);
            insert();
        } else if (locking == Semaphores) {
            YWriterLocker locker(&lockers().tokens, &lockers().gate);
            insert();
        } else {
            insert();
        }
        i = i + 1 == n ? 0 : i + 1;
    }
}

// ---------------------------------------------------------------------------------------------
// The lockers alone

void semaphorePair(benchmark::State& state)
{
    for (auto _ : state) {
        lockers().tokens.acquire(1);
        lockers().tokens.release(1);
    }
}

void readerLocker(benchmark::State& state)
{
    for (auto _ : state) {
        YReaderLocker locker(&lockers().tokens, &lockers().gate);
        benchmark::DoNotOptimize(locker.isLocked());
    }
}

void writerLocker(benchmark::State& state)
{
    for (auto _ : state) {
        YWriterLocker locker(&lockers().tokens, &lockers().gate);
        benchmark::DoNotOptimize(locker.isLocked());
    }
}

void registerAll()
{
    const std::vector<int64_t> sizes = {100, 503, 5000};
    auto add = [&](const char* name, void (*function)(benchmark::State&)) {
        benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark(name, function);
        for (int64_t size : sizes)
            b->Arg(size);
    };
    add("value_copy/nolock/yovo", yovoValueCopy<NoLock>);
    add("value_copy/nolock/boost", boostValueCopy<NoLock>);
    add("value_pointer/nolock/yovo", yovoValuePointer<NoLock>);
    add("value_pointer/nolock/boost", boostValuePointer<NoLock>);
    add("insert/nolock/yovo", yovoInsert<NoLock>);
    add("insert/nolock/boost", boostInsert<NoLock>);
    add("value_copy/semaphores/yovo", yovoValueCopy<Semaphores>);
    add("value_copy/semaphores/boost", boostValueCopy<Semaphores>);
    add("value_copy/ownlock/boost", boostValueCopy<OwnLock>);
    add("value_pointer/semaphores/yovo", yovoValuePointer<Semaphores>);
    add("value_pointer/semaphores/boost", boostValuePointer<Semaphores>);
    add("value_pointer/ownlock/boost", boostValuePointer<OwnLock>);
    add("insert/semaphores/yovo", yovoInsert<Semaphores>);
    add("insert/semaphores/boost", boostInsert<Semaphores>);
    add("insert/ownlock/boost", boostInsert<OwnLock>);
    benchmark::RegisterBenchmark("lockers/semaphore_pair", semaphorePair);
    benchmark::RegisterBenchmark("lockers/reader", readerLocker);
    benchmark::RegisterBenchmark("lockers/writer", writerLocker);
}

void printComparison(const yovo::bench::RecordingReporter& reporter)
{
    auto get = [&](const std::string& name) {
        const yovo::bench::Result* result = reporter.find(name);
        return result == nullptr ? -1.0 : result->figure;
    };
    printf("\n%-32s %6s %10s %10s %10s %8s %8s\n", "operation", "keys", "yovo ns", "boost ns",
        "boost+own", "ratio", "ratio own");
    for (const char* op : {"value_copy", "value_pointer", "insert"}) {
        for (const char* locking : {"nolock", "semaphores"}) {
            for (int size : {100, 503, 5000}) {
                const std::string suffix = "/" + std::to_string(size);
                const double yovo = get(std::string(op) + "/" + locking + "/yovo" + suffix);
                const double boost = get(std::string(op) + "/" + locking + "/boost" + suffix);
                const double own = std::string(locking) == "semaphores"
                    ? get(std::string(op) + "/ownlock/boost" + suffix)
                    : -1.0;
                if (yovo <= 0 || boost <= 0)
                    continue;
                char ownText[32] = "-", ownRatio[32] = "-";
                if (own > 0) {
                    snprintf(ownText, sizeof(ownText), "%.1f", own);
                    snprintf(ownRatio, sizeof(ownRatio), "%.2fx", own / yovo);
                }
                printf("%-32s %6d %10.1f %10.1f %10s %7.2fx %8s\n",
                    (std::string(op) + "/" + locking).c_str(), size, yovo, boost, ownText,
                    boost / yovo, ownRatio);
            }
        }
    }
    const double pair = get("lockers/semaphore_pair");
    printf("\nsemaphore acquire(1)+release(1): %.1f ns; reader locker: %.1f ns; writer locker: "
           "%.1f ns\n",
        pair, get("lockers/reader"), get("lockers/writer"));
    for (const char* op : {"value_copy", "value_pointer"}) {
        for (int size : {100, 503, 5000}) {
            const std::string suffix = "/" + std::to_string(size);
            const double locked = get(std::string(op) + "/semaphores/yovo" + suffix);
            const double free = get(std::string(op) + "/nolock/yovo" + suffix);
            if (locked > 0 && free > 0)
                printf("%s/%d under the reader locker costs %.1f ns over the lookup (semaphore "
                       "pair %.1f ns)\n",
                    op, size, locked - free, pair);
        }
    }
}

} // namespace

int main(int argc, char** argv)
{
    registerAll();
    // With repetitions the median stands for the benchmark; without, its one run.
    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::RealTime, yovo::bench::Reduction::Median);
    if (!yovo::bench::run(argc, argv, reporter))
        return 1;
    printComparison(reporter);
    benchmark::Shutdown();
    return 0;
}
