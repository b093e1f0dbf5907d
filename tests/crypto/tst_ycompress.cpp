#include "ycompress.h"
#include "yexception.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <QByteArray>

#include <random>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

QByteArray text(int size)
{
    QByteArray data;
    int line = 0;
    while (data.size() < size)
        data += "line " + QByteArray::number(line++) + ": the moving window sums values\n";
    data.truncate(size);
    return data;
}

QByteArray randomBytes(int size, unsigned seed)
{
    std::mt19937 generator(seed);
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char(generator() & 0xff);
    return data;
}

// What zlib itself makes of the stream; a null array when it refuses it.
QByteArray zlibInflate(const QByteArray& stream, int expectedSize)
{
    QByteArray out(expectedSize + 1, '\0');
    uLongf length = uLongf(out.size());
    if (uncompress(reinterpret_cast<Bytef*>(out.data()), &length,
            reinterpret_cast<const Bytef*>(stream.constData()), uLong(stream.size()))
        != Z_OK)
        return QByteArray();
    out.resize(int(length));
    return out;
}

QByteArray zlibDeflate(const QByteArray& data, int level)
{
    QByteArray out(int(compressBound(uLong(data.size()))), '\0');
    uLongf length = uLongf(out.size());
    EXPECT_EQ(Z_OK,
        compress2(reinterpret_cast<Bytef*>(out.data()), &length,
            reinterpret_cast<const Bytef*>(data.constData()), uLong(data.size()), level));
    out.resize(int(length));
    return out;
}

std::string uncompressError(const QByteArray& stream)
{
    try {
        YCompress::zlibUncompress(stream);
    } catch (const YException& e) {
        return e.what();
    }
    return "no exception";
}

} // namespace

TEST(YCompress, RoundTripAtEveryLevel)
{
    const QByteArray samples[]
        = {text(10000), randomBytes(5000, 1), QByteArray("x"), QByteArray(70000, '\0')};
    for (int level = -1; level <= 9; ++level) {
        for (const QByteArray& data : samples)
            EXPECT_EQ(data, YCompress::zlibUncompress(YCompress::zlibCompress(data, level)))
                << level << " " << data.size();
    }
}

TEST(YCompress, ZlibReadsWhatZlibCompressWrites)
{
    const QByteArray data = text(20000);
    for (int level = -1; level <= 9; ++level)
        EXPECT_EQ(data, zlibInflate(YCompress::zlibCompress(data, level), data.size())) << level;
}

TEST(YCompress, ZlibUncompressReadsWhatZlibWrites)
{
    const QByteArray data = text(20000);
    for (int level = -1; level <= 9; ++level)
        EXPECT_EQ(data, YCompress::zlibUncompress(zlibDeflate(data, level))) << level;
}

// The same bytes as zlib's own compress2: the four-byte prefix is all that is removed.
TEST(YCompress, OutputIsExactlyZlibsStream)
{
    const QByteArray data = text(3000);
    for (int level = -1; level <= 9; ++level)
        EXPECT_EQ(zlibDeflate(data, level), YCompress::zlibCompress(data, level)) << level;
}

TEST(YCompress, OutputStartsWithZlibHeaderNotQtLength)
{
    const QByteArray data = text(1000);
    const QByteArray stream = YCompress::zlibCompress(data, 6);
    ASSERT_GE(stream.size(), 2);
    const unsigned cmf = static_cast<unsigned char>(stream.at(0));
    const unsigned flg = static_cast<unsigned char>(stream.at(1));
    EXPECT_EQ(0x78u, cmf);
    EXPECT_EQ(0u, (cmf * 256 + flg) % 31);
    // Qt's prefix for 1000 bytes would be 00 00 03 e8.
    EXPECT_FALSE(stream.startsWith(QByteArray::fromHex("000003e8")));
    EXPECT_EQ(qCompress(data, 6).mid(4), stream);
}

TEST(YCompress, LevelsOutsideZlibsRangeActAsDefault)
{
    const QByteArray data = text(5000);
    const QByteArray standard = YCompress::zlibCompress(data, -1);
    EXPECT_EQ(standard, YCompress::zlibCompress(data, 10));
    EXPECT_EQ(standard, YCompress::zlibCompress(data, -2));
}

TEST(YCompress, ThousandfoldExpansionComesBackWhole)
{
    const QByteArray data(8 * 1024 * 1024, 'z');
    const QByteArray stream = YCompress::zlibCompress(data, 9);
    ASSERT_GT(data.size() / stream.size(), 1000);
    const QByteArray back = YCompress::zlibUncompress(stream);
    EXPECT_EQ(data.size(), back.size());
    EXPECT_EQ(data, back);
}

TEST(YCompress, RandomBytesAreCorrupted)
{
    for (unsigned seed = 1; seed <= 20; ++seed)
        EXPECT_EQ("Compressed data is corrupted", uncompressError(randomBytes(1000, seed))) << seed;
}

TEST(YCompress, TruncatedStreamIsCorrupted)
{
    const QByteArray stream = YCompress::zlibCompress(text(50000), 6);
    EXPECT_EQ("Compressed data is corrupted", uncompressError(stream.left(stream.size() / 2)));
    EXPECT_EQ("Compressed data is corrupted", uncompressError(stream.left(stream.size() - 1)));
    EXPECT_EQ("Compressed data is corrupted", uncompressError(stream.left(2)));
}

TEST(YCompress, DamagedChecksumIsCorrupted)
{
    QByteArray stream = YCompress::zlibCompress(text(5000), 6);
    stream[stream.size() - 1] = char(stream.at(stream.size() - 1) ^ 0x01);
    EXPECT_EQ("Compressed data is corrupted", uncompressError(stream));
}

// Qt's compression writes nothing but its prefix for no input, so there is no stream to read.
TEST(YCompress, EmptyInputGivesNoStream)
{
    EXPECT_TRUE(YCompress::zlibCompress(QByteArray(), 6).isEmpty());
    EXPECT_EQ("Compressed data is corrupted", uncompressError(QByteArray()));
}

TEST(YCompress, StreamOfEmptyInputGivesEmptyArray)
{
    const QByteArray stream = zlibDeflate(QByteArray(), 6);
    EXPECT_TRUE(YCompress::zlibUncompress(stream).isEmpty());
}

TEST(YCompress, ResultHoldsNoMoreSlackThanData)
{
    const QByteArray incompressible = randomBytes(100000, 3);
    QByteArray back = YCompress::zlibUncompress(YCompress::zlibCompress(incompressible, 1));
    EXPECT_EQ(incompressible, back);
    EXPECT_LE(back.capacity() - back.size(), 4096);

    for (int size : {10, 5000, 100000, 3000000}) {
        const QByteArray data = text(size);
        back = YCompress::zlibUncompress(YCompress::zlibCompress(data, 6));
        EXPECT_EQ(data, back);
        EXPECT_LE(back.capacity() - back.size(), qMax(back.size(), 4096)) << size;
    }
}

// When the output can't grow, the caller hears of it instead of the process dying. Runs in a
// child whose address space is limited, so that nothing else of the test suffers.
TEST(YCompress, OutOfMemoryIsReported)
{
#if defined(YOVO_SANITIZE_ADDRESS) || defined(YOVO_SANITIZE_THREAD)
    GTEST_SKIP() << "sanitizers reserve more address space than the limit leaves";
#else
    const QByteArray stream = YCompress::zlibCompress(QByteArray(256 * 1024 * 1024, '\0'), 9);
    const pid_t child = fork();
    ASSERT_NE(-1, child);
    if (child == 0) {
        rlimit limit;
        getrlimit(RLIMIT_AS, &limit);
        // Room for what is mapped now and a little more, far from the 256 MiB the stream needs.
        long pages = 0;
        if (FILE* statm = fopen("/proc/self/statm", "r")) {
            if (fscanf(statm, "%ld", &pages) != 1)
                pages = 0;
            fclose(statm);
        }
        limit.rlim_cur = rlim_t(pages) * rlim_t(sysconf(_SC_PAGESIZE)) + 64 * 1024 * 1024;
        setrlimit(RLIMIT_AS, &limit);
        _exit(uncompressError(stream) == "Insuffucient memory" ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFEXITED(status)) << status;
    EXPECT_EQ(0, WEXITSTATUS(status));
#endif
}
