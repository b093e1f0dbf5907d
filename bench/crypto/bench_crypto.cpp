// Digests, keyed hash, cipher and compression of YovoLib side by side with OpenSSL's EVP and raw
// zlib in one binary. At the end a table gives each pair's ratio (peer time / YovoLib time, so
// above 1 means YovoLib is faster). OpenSSL picks its SHA-256 code by CPU features when it loads;
// to show the figures without the SHA instructions as well, the binary runs its OpenSSL SHA-256
// and HMAC cases once more in a child process with OPENSSL_ia32cap masking them.

#include "ycompress.h"
#include "ymd5.h"
#include "yrc4.h"
#include "ysha256.h"
#include "ysha256_p.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/params.h>
#include <openssl/provider.h>
#include <zlib.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cpuid.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

const char* const maskVariable = "OPENSSL_ia32cap";
const char* const shaMask = ":~0x20000000";

QByteArray randomBytes(int size, unsigned seed)
{
    std::mt19937 generator(seed);
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char(generator() & 0xff);
    return data;
}

// Log-like text: what a daemon typically compresses. zlib brings it to about a quarter.
QByteArray logText(int size)
{
    static const char* const words[] = {"NOTICE", "WARNING", "DBG1", "worker", "request", "handled",
        "session", "timeout", "cache", "query"};
    std::mt19937 generator(7);
    auto next = [&generator](unsigned int n) { return static_cast<unsigned int>(generator() % n); };
    QByteArray text;
    text.reserve(size + 128);
    while (text.size() < size) {
        const unsigned int day = 1 + next(28), month = 1 + next(12), hour = next(24);
        const unsigned int minute = next(60), second = next(60);
        const char* level = words[next(3)];
        const char* subject = words[3 + next(7)];
        const unsigned int worker = next(64);
        const char* verb = words[3 + next(7)];
        const char* route = words[3 + next(7)];
        const unsigned int item = next(100000), ms = next(500);
        char line[160];
        std::snprintf(line, sizeof(line),
            "[ysd %02u.%02u.2024 %02u:%02u:%02u %s] %s %u %s /api/%s/%u in %u ms\n", day, month,
            hour, minute, second, level, subject, worker, verb, route, item, ms);
        text.append(line);
    }
    text.truncate(size);
    return text;
}

void setBytes(benchmark::State& state, int size)
{
    state.SetBytesProcessed(int64_t(state.iterations()) * size);
}

// ---- MD5 ----

void md5Yovo(benchmark::State& state)
{
    const QByteArray data = randomBytes(int(state.range(0)), 1);
    for (auto _ : state)
        benchmark::DoNotOptimize(YMD5::hash(data));
    setBytes(state, data.size());
}

void digestOpenSsl(benchmark::State& state, const char* name)
{
    const QByteArray data = randomBytes(int(state.range(0)), 1);
    EVP_MD* md = EVP_MD_fetch(nullptr, name, nullptr);
    EVP_MD_CTX* ctx = EVP_MD_CTX_new();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    for (auto _ : state) {
        EVP_DigestInit_ex(ctx, md, nullptr);
        EVP_DigestUpdate(ctx, data.constData(), size_t(data.size()));
        EVP_DigestFinal_ex(ctx, digest, &length);
        benchmark::DoNotOptimize(digest);
    }
    EVP_MD_CTX_free(ctx);
    EVP_MD_free(md);
    setBytes(state, data.size());
}

void md5OpenSsl(benchmark::State& state)
{
    digestOpenSsl(state, "MD5");
}

// ---- SHA-256: the raw digest from a reused object, as EVP gives it ----

void sha256Yovo(benchmark::State& state)
{
    const QByteArray data = randomBytes(int(state.range(0)), 2);
    YSHA256 sha;
    for (auto _ : state) {
        sha.appendBlock(data);
        benchmark::DoNotOptimize(sha.rowCompletedHash());
    }
    setBytes(state, data.size());
}

void sha256OpenSsl(benchmark::State& state)
{
    digestOpenSsl(state, "SHA256");
}

// ---- HMAC-SHA256 with a 32-byte key ----

void hmacYovo(benchmark::State& state)
{
    const QByteArray data = randomBytes(int(state.range(0)), 3);
    const QByteArray key = randomBytes(32, 4);
    YSHA256 sha;
    for (auto _ : state) {
        sha.init();
        benchmark::DoNotOptimize(sha.hmac(data, key));
    }
    setBytes(state, data.size());
}

void hmacOpenSsl(benchmark::State& state)
{
    const QByteArray data = randomBytes(int(state.range(0)), 3);
    const QByteArray key = randomBytes(32, 4);
    EVP_MAC* mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    EVP_MAC_CTX* ctx = EVP_MAC_CTX_new(mac);
    char digestName[] = "SHA256";
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digestName, 0),
        OSSL_PARAM_construct_end()};
    EVP_MAC_CTX_set_params(ctx, params);
    unsigned char out[EVP_MAX_MD_SIZE];
    size_t length = 0;
    for (auto _ : state) {
        EVP_MAC_init(ctx, reinterpret_cast<const unsigned char*>(key.constData()),
            size_t(key.size()), nullptr);
        EVP_MAC_update(
            ctx, reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()));
        EVP_MAC_final(ctx, out, &length, sizeof(out));
        benchmark::DoNotOptimize(out);
    }
    EVP_MAC_CTX_free(ctx);
    EVP_MAC_free(mac);
    setBytes(state, data.size());
}

// The one-call form a signing client would use: key, message, result.
void hmacOneShotOpenSsl(benchmark::State& state)
{
    const QByteArray data = randomBytes(int(state.range(0)), 3);
    const QByteArray key = randomBytes(32, 4);
    unsigned char out[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    for (auto _ : state) {
        HMAC(EVP_sha256(), key.constData(), key.size(),
            reinterpret_cast<const unsigned char*>(data.constData()), size_t(data.size()), out,
            &length);
        benchmark::DoNotOptimize(out);
    }
    setBytes(state, data.size());
}

// ---- RC4: one running key stream over the buffer, in place ----

void rc4Yovo(benchmark::State& state)
{
    QByteArray data = randomBytes(int(state.range(0)), 5);
    YRc4 cipher(randomBytes(16, 6));
    for (auto _ : state) {
        cipher.rc4(reinterpret_cast<unsigned char*>(data.data()), data.size());
        benchmark::ClobberMemory();
    }
    setBytes(state, data.size());
}

void rc4OpenSsl(benchmark::State& state)
{
    QByteArray data = randomBytes(int(state.range(0)), 5);
    const QByteArray key = randomBytes(16, 6);
    // RC4 lives in OpenSSL 3's legacy provider; the default one must stay loaded beside it.
    static OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    static OSSL_PROVIDER* defaults = OSSL_PROVIDER_load(nullptr, "default");
    EVP_CIPHER* rc4 = EVP_CIPHER_fetch(nullptr, "RC4", nullptr);
    if (legacy == nullptr || defaults == nullptr || rc4 == nullptr) {
        state.SkipWithError("OpenSSL's legacy provider with RC4 is not available");
        return;
    }
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex2(
        ctx, rc4, reinterpret_cast<const unsigned char*>(key.constData()), nullptr, nullptr);
    unsigned char* bytes = reinterpret_cast<unsigned char*>(data.data());
    int length = 0;
    for (auto _ : state) {
        EVP_EncryptUpdate(ctx, bytes, &length, bytes, data.size());
        benchmark::ClobberMemory();
    }
    EVP_CIPHER_CTX_free(ctx);
    EVP_CIPHER_free(rc4);
    setBytes(state, data.size());
}

// ---- Compression at zlib's default level. The raw side gets a fresh output buffer per call,
// as the library must return a fresh array. ----

void compressYovo(benchmark::State& state)
{
    const QByteArray data = logText(int(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(YCompress::zlibCompress(data, Z_DEFAULT_COMPRESSION));
    setBytes(state, data.size());
}

void compressZlib(benchmark::State& state)
{
    const QByteArray data = logText(int(state.range(0)));
    const uLong bound = compressBound(uLong(data.size()));
    for (auto _ : state) {
        std::unique_ptr<Bytef[]> out(new Bytef[bound]);
        uLongf length = bound;
        compress2(out.get(), &length, reinterpret_cast<const Bytef*>(data.constData()),
            uLong(data.size()), Z_DEFAULT_COMPRESSION);
        benchmark::DoNotOptimize(out.get());
    }
    setBytes(state, data.size());
}

void uncompressYovo(benchmark::State& state)
{
    const QByteArray data = logText(int(state.range(0)));
    const QByteArray compressed = YCompress::zlibCompress(data, Z_DEFAULT_COMPRESSION);
    for (auto _ : state)
        benchmark::DoNotOptimize(YCompress::zlibUncompress(compressed));
    setBytes(state, data.size());
}

void uncompressZlib(benchmark::State& state)
{
    const QByteArray data = logText(int(state.range(0)));
    const QByteArray compressed = YCompress::zlibCompress(data, Z_DEFAULT_COMPRESSION);
    for (auto _ : state) {
        // The raw caller knows the size; the library has to guess it.
        std::unique_ptr<Bytef[]> out(new Bytef[size_t(data.size())]);
        uLongf length = uLongf(data.size());
        uncompress(out.get(), &length, reinterpret_cast<const Bytef*>(compressed.constData()),
            uLong(compressed.size()));
        benchmark::DoNotOptimize(out.get());
    }
    setBytes(state, data.size());
}

struct Case
{
    const char* family;
    void (*yovo)(benchmark::State&);
    void (*peer)(benchmark::State&);
    const char* peerName;
    std::vector<int64_t> sizes;
};

const std::vector<Case>& cases()
{
    static const std::vector<Case> all = {
        {"md5", md5Yovo, md5OpenSsl, "openssl", {64, 16384}},
        {"sha256", sha256Yovo, sha256OpenSsl, "openssl", {64, 16384}},
        {"hmac_sha256", hmacYovo, hmacOpenSsl, "openssl", {64, 16384}},
        {"hmac_sha256_oneshot", hmacYovo, hmacOneShotOpenSsl, "openssl", {64}},
        {"rc4", rc4Yovo, rc4OpenSsl, "openssl", {16384}},
        {"compress", compressYovo, compressZlib, "zlib", {4096, 65536, 1048576}},
        {"uncompress", uncompressYovo, uncompressZlib, "zlib", {4096, 65536, 1048576}},
    };
    return all;
}

std::string caseName(const char* family, const char* side, int64_t size)
{
    return std::string(family) + "/" + side + "/" + std::to_string(size);
}

using yovo::bench::Result;

bool cpuHasShaExtensions()
{
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx))
        return false;
    return (ebx & (1u << 29)) != 0;
}

// Runs this program again with OpenSSL's SHA instructions masked and only its OpenSSL SHA-256
// and HMAC cases, and reads their figures from the child's JSON output.
std::map<std::string, Result> runMasked(const std::vector<std::string>& arguments)
{
    std::map<std::string, Result> results;
    std::string command = std::string(maskVariable) + "='" + shaMask + "' '" + arguments.front()
        + "' --benchmark_filter='^(sha256|hmac_sha256)/openssl/' --benchmark_format=json";
    // The child measures as the parent did: same repetitions and minimum time.
    for (size_t i = 1; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        if (argument.rfind("--benchmark_repetitions", 0) == 0
            || argument.rfind("--benchmark_min_time", 0) == 0
            || argument.rfind("--benchmark_enable_random_interleaving", 0) == 0)
            command += " '" + argument + "'";
    }
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr)
        return results;
    QByteArray output;
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof(buffer), pipe)) > 0)
        output.append(buffer, int(n));
    pclose(pipe);
    const QJsonArray runs = QJsonDocument::fromJson(output).object().value("benchmarks").toArray();
    for (const QJsonValue& value : runs) {
        const QJsonObject run = value.toObject();
        if (run.value("run_type").toString() != "iteration")
            continue;
        Result result;
        result.cpuNs = run.value("cpu_time").toDouble();
        result.bytesPerSecond = run.value("bytes_per_second").toDouble();
        result.figure = result.cpuNs;
        const std::string name = run.value("name").toString().toStdString();
        auto known = results.find(name);
        if (known == results.end() || known->second.figure > result.figure)
            results[name] = result;
    }
    return results;
}

void printRatio(const char* label, const std::string& name, const Result& yovo, const Result& peer)
{
    if (yovo.cpuNs <= 0 || peer.cpuNs <= 0)
        return;
    std::printf("%-40s %12.1f ns %10.1f MB/s | peer %12.1f ns %10.1f MB/s | ratio %.2f%s\n",
        name.c_str(), yovo.cpuNs, yovo.bytesPerSecond / 1e6, peer.cpuNs, peer.bytesPerSecond / 1e6,
        peer.cpuNs / yovo.cpuNs, label);
}

} // namespace

// The processor's name as the kernel reports it, for the figures to be read against.
std::string cpuModel()
{
    FILE* info = std::fopen("/proc/cpuinfo", "r");
    if (!info)
        return "unknown";
    char line[512];
    std::string model = "unknown";
    while (std::fgets(line, sizeof line, info)) {
        if (std::strncmp(line, "model name", 10) == 0) {
            const char* colon = std::strchr(line, ':');
            if (colon) {
                model = colon + 2;
                while (!model.empty() && (model.back() == '\n' || model.back() == ' '))
                    model.pop_back();
            }
            break;
        }
    }
    std::fclose(info);
    return model;
}

int main(int argc, char** argv)
{
    for (const Case& c : cases()) {
        for (int64_t size : c.sizes) {
            const std::string family(c.family);
            benchmark::RegisterBenchmark((family + "/yovolib").c_str(), c.yovo)->Arg(size);
            benchmark::RegisterBenchmark((family + "/" + c.peerName).c_str(), c.peer)->Arg(size);
        }
    }
    // On a shared machine other load only ever slows a run down, so by default each case runs
    // several times in shuffled order and the table keeps the fastest run of each.
    if (!yovo::bench::initialize(argc, argv, 5))
        return 1;

    // A child of runMasked, or a run where the caller chose the mask: plain output only.
    if (std::getenv(maskVariable) != nullptr) {
        benchmark::RunSpecifiedBenchmarks();
        benchmark::Shutdown();
        return 0;
    }

    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::CpuTime, yovo::bench::Reduction::Fastest);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    bool shaRan = false;
    for (const auto& entry : reporter.results())
        shaRan = shaRan || entry.first.find("sha256/openssl/") != std::string::npos;
    const std::map<std::string, Result> masked
        = shaRan ? runMasked(yovo::bench::arguments()) : std::map<std::string, Result>();

    yovo::bench::printRatioHeading("call");
    std::printf("CPU: %s\n", cpuModel().c_str());
    std::printf("CPU SHA extensions: %s\n", cpuHasShaExtensions() ? "present" : "absent");
    std::printf("SHA-256 block function chosen: %s\n", ysha256::chosenBlockVariant().name);
    for (const Case& c : cases()) {
        for (int64_t size : c.sizes) {
            const std::string yovoName = caseName(c.family, "yovolib", size);
            const std::string peerName = caseName(c.family, c.peerName, size);
            const Result* yovo = reporter.find(yovoName);
            const Result* peer = reporter.find(peerName);
            if (yovo == nullptr)
                continue;
            if (peer != nullptr)
                printRatio("", yovoName, *yovo, *peer);
            auto maskedPeer = masked.find(peerName);
            if (maskedPeer != masked.end())
                printRatio(
                    "  (OpenSSL without SHA instructions)", yovoName, *yovo, maskedPeer->second);
        }
    }
    benchmark::Shutdown();
    return 0;
}
