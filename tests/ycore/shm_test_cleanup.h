// Tests only: removes, when the test process ends, what named semaphores of this process's tests
// leave in the system. A semaphore deliberately stays open until its process ends and nobody
// unlinks it then, so without this every run would leave its unique names behind.
#ifndef YOVOLIB_TESTS_SHM_TEST_CLEANUP_H
#define YOVOLIB_TESTS_SHM_TEST_CLEANUP_H

#include "test_support.h"

#include <QStringList>

#include <gtest/gtest.h>
#include <sys/mman.h>

namespace shmtest {

class SemaphoreCleanup : public ::testing::Environment
{
public:
    static QStringList& names()
    {
        static QStringList list;
        return list;
    }
    void TearDown() override
    {
        for (const QString& name : names()) {
            const QByteArray object = "/ysem.Global." + name.toLatin1();
            shm_unlink(object.constData());
            shm_unlink((object + ".guard").constData());
        }
    }
};

[[maybe_unused]] static ::testing::Environment* const semaphoreCleanup
    = ::testing::AddGlobalTestEnvironment(new SemaphoreCleanup);

/// A unique semaphore name, cleaned up when the test process ends.
inline QString semaphoreName(const char* prefix)
{
    const QString name = yovotest::uniqueName(prefix);
    SemaphoreCleanup::names().append(name);
    return name;
}

} // namespace shmtest

#endif // YOVOLIB_TESTS_SHM_TEST_CLEANUP_H
