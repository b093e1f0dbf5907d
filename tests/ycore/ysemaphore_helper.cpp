// A second process for the semaphore tests.
//   hold <name> <count> <n>     takes n tokens, says "held", then waits to be killed
//   try <name> <count> <n>      says "taken" or "not taken" after tryAcquire(n), keeps the tokens
//   acquire <name> <count> <n>  says "waiting", blocks in acquire(n), then says "acquired"
//   spin <name> <count> <n>     says "spinning", then calls tryAcquire(n) in four threads for
//                               ever, giving back what it got, until it is killed
#include "ysemaphore.h"

#include <thread>
#include <vector>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

int main(int argc, char** argv)
{
    if (argc != 5)
        return 2;
    const char* mode = argv[1];
    YSemaphore semaphore(unsigned(atoi(argv[3])), argv[2]);
    const unsigned n = unsigned(atoi(argv[4]));
    if (!semaphore.isOk())
        return 3;
    if (strcmp(mode, "hold") == 0) {
        if (!semaphore.acquire(n))
            return 4;
        printf("held\n");
        fflush(stdout);
        for (;;)
            pause();
    }
    if (strcmp(mode, "try") == 0) {
        printf(semaphore.tryAcquire(n) ? "taken\n" : "not taken\n");
        return 0;
    }
    if (strcmp(mode, "spin") == 0) {
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i) {
            threads.emplace_back([&semaphore, n] {
                for (;;) {
                    if (semaphore.tryAcquire(n))
                        semaphore.release(n);
                }
            });
        }
        printf("spinning\n");
        fflush(stdout);
        for (;;)
            pause();
    }
    if (strcmp(mode, "acquire") == 0) {
        printf("waiting\n");
        fflush(stdout);
        if (!semaphore.acquire(n))
            return 4;
        printf("acquired\n");
        return 0;
    }
    return 2;
}
