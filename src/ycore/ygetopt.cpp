#include "ygetopt.h"

#include <cstdio>
#include <cstring>

namespace yovo {

int optind = 1;
int opterr = 1;
char* optarg = nullptr;

namespace {
int optionCharacter = 0;
// Where in argv[optind] the next option character lies; 1 at the start of an argument.
int position = 1;
} // namespace

int getopt(int argc, char** argv, char* options)
{
    if (!argv || !options)
        return -1;
    if (position == 1) {
        if (optind >= argc || optind < 0 || !argv[optind] || argv[optind][0] != '-'
            || argv[optind][1] == '\0')
            return -1;
        if (strcmp(argv[optind], "--") == 0) {
            ++optind;
            return -1;
        }
    }
    const char* program = argv[0] ? argv[0] : "";
    const int c = static_cast<unsigned char>(argv[optind][position]);
    optionCharacter = c;
    const char* found = c == ':' ? nullptr : strchr(options, c);
    if (!found) {
        if (opterr)
            fprintf(stderr, "%s%s%c\n", program, ": illegal option -- ", c);
        if (argv[optind][++position] == '\0') {
            ++optind;
            position = 1;
        }
        return '?';
    }
    if (found[1] == ':') {
        if (argv[optind][position + 1] != '\0') {
            optarg = &argv[optind++][position + 1];
        } else if (++optind >= argc) {
            if (opterr)
                fprintf(stderr, "%s%s%c\n", program, ": option requires an argument -- ", c);
            position = 1;
            return '?';
        } else {
            optarg = argv[optind++];
        }
        position = 1;
    } else {
        if (argv[optind][++position] == '\0') {
            position = 1;
            ++optind;
        }
        optarg = nullptr;
    }
    return c;
}

} // namespace yovo
