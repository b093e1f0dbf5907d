#include "yexception.h"
#include "ythread_storage.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <thread>
#include <vector>

namespace {

// Takes every key the system has left, and gives them back on destruction.
class AllKeys
{
public:
    AllKeys()
    {
        pthread_key_t key;
        while (pthread_key_create(&key, nullptr) == 0)
            _keys.push_back(key);
    }
    ~AllKeys()
    {
        for (pthread_key_t key : _keys)
            pthread_key_delete(key);
    }
    std::size_t count() const { return _keys.size(); }
    // Gives one key back and returns it.
    pthread_key_t releaseOne()
    {
        const pthread_key_t key = _keys.back();
        _keys.pop_back();
        pthread_key_delete(key);
        return key;
    }

private:
    std::vector<pthread_key_t> _keys;
};

std::size_t freeKeys()
{
    return AllKeys().count();
}

} // namespace

TEST(YThreadStoragePrivate, ObjectsOfOneIdShareOneKeyFreedWithTheLast)
{
    const std::size_t before = freeKeys();
    int value = 42;
    YThreadStoragePrivate* first = new YThreadStoragePrivate(5);
    EXPECT_EQ(before - 1, freeKeys());
    first->setData(&value);
    YThreadStoragePrivate* second = new YThreadStoragePrivate(5);
    EXPECT_EQ(before - 1, freeKeys());
    EXPECT_EQ(&value, second->data());

    delete first;
    EXPECT_EQ(before - 1, freeKeys());
    EXPECT_EQ(&value, second->data());
    delete second;
    EXPECT_EQ(before, freeKeys());

    // A new user of the id gets a fresh key, with nothing set.
    YThreadStoragePrivate third(5);
    EXPECT_EQ(nullptr, third.data());
}

TEST(YThreadStoragePrivate, DifferentIdsHaveDifferentSlots)
{
    const std::size_t before = freeKeys();
    YThreadStoragePrivate a(1), b(2);
    EXPECT_EQ(before - 2, freeKeys());
    int x = 0, y = 0;
    a.setData(&x);
    b.setData(&y);
    EXPECT_EQ(&x, a.data());
    EXPECT_EQ(&y, b.data());
}

TEST(YThreadStoragePrivate, ValuesBelongToTheirThread)
{
    YThreadStoragePrivate slot(7);
    int mine = 0;
    slot.setData(&mine);
    void* seenElsewhere = &mine;
    std::thread other([&] {
        seenElsewhere = slot.data();
        int theirs = 0;
        slot.setData(&theirs);
    });
    other.join();
    EXPECT_EQ(nullptr, seenElsewhere);
    EXPECT_EQ(&mine, slot.data());
    slot.setData(nullptr);
    EXPECT_EQ(nullptr, slot.data());
}

TEST(YThreadStoragePrivate, NoKeyLeftThrows)
{
    AllKeys exhausted;
    try {
        YThreadStoragePrivate slot(11);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).endsWith(QStringLiteral(" TlsAlloc failed")))
            << e.what();
    }
    // A known id still works: it takes no new key.
    exhausted.releaseOne();
    YThreadStoragePrivate first(11);
    YThreadStoragePrivate second(11);
    int value = 1;
    first.setData(&value);
    EXPECT_EQ(&value, second.data());
}

TEST(YThreadStoragePrivate, FailedSetThrows)
{
    AllKeys all;
    // The only free key is the one the storage will get.
    const pthread_key_t key = all.releaseOne();
    YThreadStoragePrivate slot(12);
    int value = 3;
    slot.setData(&value);
    ASSERT_EQ(&value, pthread_getspecific(key));
    // Freed behind the storage's back, the key refuses values.
    pthread_key_delete(key);
    try {
        slot.setData(&value);
        FAIL() << "no exception";
    } catch (const YException& e) {
        EXPECT_TRUE(QString::fromLatin1(e.what()).endsWith(QStringLiteral(" TlsSetValue failed")))
            << e.what();
    }
}
