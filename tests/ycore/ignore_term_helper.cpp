// Ignores SIGTERM, writes its pid to the file named by its argument, and sleeps far longer than
// any test waits: only SIGKILL ends it.
#include <csignal>
#include <cstdio>
#include <unistd.h>

int main(int argc, char** argv)
{
    signal(SIGTERM, SIG_IGN);
    if (argc > 1) {
        FILE* file = fopen(argv[1], "w");
        if (!file)
            return 2;
        fprintf(file, "%d\n", int(getpid()));
        fclose(file);
    }
    for (int i = 0; i < 600; ++i)
        sleep(1);
    return 0;
}
