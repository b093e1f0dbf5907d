#include <yovolib/yovolib.h>

#include <cstdio>

int main()
{
    try {
        throw YException("installed", "main.cpp", 7);
    } catch (const YException& e) {
        YLOG_WARNING(YDebug::STDOUT) << "caught" << e.what() << yflush;
    }
    YMutex mutex;
    mutex.lock();
    mutex.unlock();
    printf("consumer: ok\n");
    return 0;
}
