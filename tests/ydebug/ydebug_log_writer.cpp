// Appends <count> lines tagged <tag> to <file>, which rotates at 1 MiB, one statement per line.
#include "ydebug.h"

#include <cstdlib>

int main(int argc, char** argv)
{
    if (argc != 4)
        return 2;
    const YDebug::StreamId log = YDebug::registerStream(QByteArray(), argv[1]);
    if (log == YDebug::STDERR)
        return 3;
    YDebug::setRotationSize(log, 1);
    const int count = atoi(argv[3]);
    const QByteArray payload = "payload-" + QByteArray(40, 'x');
    for (int i = 0; i < count; ++i)
        YLOG_ERROR(log) << argv[2] << i << payload << yflush;
    return 0;
}
