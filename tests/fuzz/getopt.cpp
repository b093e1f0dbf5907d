// The option scanner on arbitrary command lines: the first line of the input is the option
// string, every further line one argument. Scanning must end, and every answer must be an
// option of the string or '?', with its argument inside the command line.
#include "ygetopt.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < size && lines.size() < 64; ++i) {
        if (data[i] == '\n')
            lines.emplace_back();
        else
            lines.back() += char(data[i]);
    }
    std::string options = lines[0];
    std::vector<std::string> storage(lines.begin() + 1, lines.end());
    storage.insert(storage.begin(), "prog");
    std::vector<char*> argv;
    size_t characters = 0;
    for (std::string& argument : storage) {
        argv.push_back(&argument[0]);
        characters += argument.size() + 1;
    }
    argv.push_back(nullptr);
    const int argc = int(storage.size());

    yovo::optind = 1;
    yovo::opterr = 0;
    yovo::optarg = nullptr;
    options.push_back('\0');
    size_t calls = 0;
    for (;;) {
        const int c = yovo::getopt(argc, argv.data(), &options[0]);
        if (c == -1)
            break;
        if (++calls > characters + 2)
            abort();
        if (c != '?' && (c == ':' || !memchr(options.data(), c, options.size() - 1)))
            abort();
        if (yovo::optind < 1 || yovo::optind > argc)
            abort();
        if (yovo::optarg) {
            bool inside = false;
            for (std::string& argument : storage)
                inside = inside
                    || (yovo::optarg >= &argument[0]
                        && yovo::optarg <= &argument[0] + argument.size());
            if (!inside)
                abort();
        }
    }
    return 0;
}
