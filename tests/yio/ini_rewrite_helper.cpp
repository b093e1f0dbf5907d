// Rewrites one directive of a file for ever, switching its value between "A" and "B", until it is
// killed. The crash-safety test kills it at random moments.
#include "scan_dir.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() != 2) {
        std::fprintf(stderr, "usage: ini_rewrite_helper <file>\n");
        return 2;
    }
    YScanDir scanner;
    scanner.addFile(arguments.at(1));
    // The test times its kill from here, not from the start of a process whose start-up can take
    // longer than the whole window on a loaded machine or in a sanitizer build.
    std::fputs("ready\n", stdout);
    std::fflush(stdout);
    for (unsigned long round = 0;; ++round) {
        scanner.scan();
        scanner.setStringValue(
            QStringLiteral("k"), round % 2 ? QStringLiteral("A") : QStringLiteral("B"));
        scanner.flush();
    }
}
