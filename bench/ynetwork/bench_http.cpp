// Blocking GET round trips through YSimpleURL::fetch and YHttpRequest::get side by side with
// libcurl on the same URL, plain and TLS, against a private nginx on loopback. The benchmark
// starts the servers itself (the tests' fixture script, in a temporary folder) and stops them at
// the end. Times are wall-clock: the work of a round trip is spread over threads and processes.
// At the end a table gives each pair's ratio (libcurl time / YovoLib time per request, so above 1
// means YovoLib is faster).
//
// The pairs: fetch shares one network manager among the calls of a thread, so the connection
// outlives each call; it is matched with one curl handle reused, and, as a caller that makes a
// handle per call would see it, with a fresh curl handle per request. YHttpRequest keeps its
// manager, which keeps the connection alive; it is matched with one curl handle reused. The floor
// that Qt itself sets is measured as well: one bare QNetworkAccessManager whose replies are waited
// for on a local event loop, with nothing of the library around it.

#include "http_request.h"
#include "ysimple_url.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QHash>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <string>

namespace {

QHash<QByteArray, int> g_ports;

QString url(bool tls)
{
    return QStringLiteral("%1://127.0.0.1:%2/small.bin")
        .arg(QLatin1String(tls ? "https" : "http"))
        .arg(g_ports.value(tls ? "selfsigned" : "plain"));
}

size_t collect(char* data, size_t size, size_t count, void* target)
{
    static_cast<std::string*>(target)->append(data, size * count);
    return size * count;
}

void setUpCurl(CURL* curl, const std::string& address, std::string* body)
{
    curl_easy_setopt(curl, CURLOPT_URL, address.c_str());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, collect);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, body);
    // The library accepts a self-signed certificate; curl is told to do the same.
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    curl_easy_setopt(curl, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);
}

void fetchYovo(benchmark::State& state, bool tls)
{
    const QString address = url(tls);
    YSimpleURL client;
    for (auto _ : state) {
        const QByteArray body = client.fetch(address, 5000);
        if (client.getStatus() != 200 || body.size() != 1024) {
            state.SkipWithError("fetch failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void fetchCurlFresh(benchmark::State& state, bool tls)
{
    const std::string address = url(tls).toStdString();
    for (auto _ : state) {
        std::string body;
        CURL* curl = curl_easy_init();
        setUpCurl(curl, address, &body);
        const CURLcode code = curl_easy_perform(curl);
        curl_easy_cleanup(curl);
        if (code != CURLE_OK || body.size() != 1024) {
            state.SkipWithError("curl failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void getYovo(benchmark::State& state, bool tls)
{
    YHttpRequest http;
    const QUrl address(url(tls));
    for (auto _ : state) {
        QNetworkRequest request(address);
        QNetworkReply* reply = http.get(request, YDebug::STDERR);
        const QByteArray body = reply->readAll();
        const int status = YHttpReply(reply).getHttpStatus();
        // Replies stay with the manager until its end; a long run would pile them up.
        reply->deleteLater();
        if (status != 200 || body.size() != 1024) {
            state.SkipWithError("get failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void getQtBare(benchmark::State& state, bool tls)
{
    QNetworkAccessManager manager;
    const QUrl address(url(tls));
    for (auto _ : state) {
        QNetworkReply* reply = manager.get(QNetworkRequest(address));
        QObject::connect(
            reply, &QNetworkReply::sslErrors, reply, [reply] { reply->ignoreSslErrors(); });
        QEventLoop loop;
        QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
        loop.exec();
        const QByteArray body = reply->readAll();
        const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        delete reply;
        if (status != 200 || body.size() != 1024) {
            state.SkipWithError("Qt get failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}

void getCurlReused(benchmark::State& state, bool tls)
{
    const std::string address = url(tls).toStdString();
    std::string body;
    CURL* curl = curl_easy_init();
    setUpCurl(curl, address, &body);
    for (auto _ : state) {
        body.clear();
        if (curl_easy_perform(curl) != CURLE_OK || body.size() != 1024) {
            state.SkipWithError("curl failed");
            break;
        }
    }
    curl_easy_cleanup(curl);
    state.SetItemsProcessed(state.iterations());
}

bool startServers(const QString& folder)
{
    const int code = QProcess::execute(QStringLiteral(YOVO_PYTHON3),
        {QStringLiteral(YOVO_HTTP_FIXTURE_SCRIPT), QStringLiteral("start"), folder});
    QFile file(folder + QStringLiteral("/ports.env"));
    if (code != 0 || !file.open(QIODevice::ReadOnly))
        return false;
    for (const QByteArray& line : file.readAll().split('\n')) {
        const int equals = line.indexOf('=');
        if (equals > 0)
            g_ports.insert(line.left(equals), line.mid(equals + 1).toInt());
    }
    return g_ports.contains("plain") && g_ports.contains("selfsigned");
}

void stopServers(const QString& folder)
{
    QProcess::execute(QStringLiteral(YOVO_PYTHON3),
        {QStringLiteral(YOVO_HTTP_FIXTURE_SCRIPT), QStringLiteral("stop"), folder});
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    struct Case
    {
        const char* name;
        void (*run)(benchmark::State&, bool);
    };
    const Case cases[] = {{"fetch/yovolib", fetchYovo}, {"fetch/curl_fresh_handle", fetchCurlFresh},
        {"get/yovolib", getYovo}, {"get/curl_reused_handle", getCurlReused},
        {"get/qt_bare_manager", getQtBare}};
    for (const Case& benchmarkCase : cases) {
        for (bool tls : {false, true}) {
            const std::string suffix = tls ? "/tls" : "/plain";
            benchmark::RegisterBenchmark(
                (benchmarkCase.name + suffix).c_str(), benchmarkCase.run, tls)
                ->UseRealTime();
        }
    }
    struct Pair
    {
        const char* yovo;
        const char* other;
    };
    const Pair pairs[] = {{"fetch/yovolib", "get/curl_reused_handle"},
        {"fetch/yovolib", "fetch/curl_fresh_handle"}, {"get/yovolib", "get/curl_reused_handle"},
        {"get/yovolib", "get/qt_bare_manager"}};
    // The flags first: --help, or a mistyped flag, must not leave servers behind.
    if (!yovo::bench::initialize(argc, argv, 3))
        return 1;
    QTemporaryDir folder;
    if (!folder.isValid() || !startServers(folder.path())) {
        std::fprintf(stderr, "the benchmark's servers did not start\n");
        stopServers(folder.path());
        return 1;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);

    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::RealTime, yovo::bench::Reduction::Fastest);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    yovo::bench::printRatioHeading("request");
    for (const Pair& pair : pairs) {
        for (const char* suffix : {"/plain", "/tls"}) {
            const double yovo = reporter.figure(std::string(pair.yovo) + suffix);
            const double other = reporter.figure(std::string(pair.other) + suffix);
            if (yovo <= 0 || other <= 0)
                continue;
            std::printf("%-20s %8.1f us %6.0f req/s | %-28s %8.1f us %6.0f req/s | ratio %.2f\n",
                (std::string(pair.yovo) + suffix).c_str(), yovo / 1e3, 1e9 / yovo,
                (std::string(pair.other) + suffix).c_str(), other / 1e3, 1e9 / other, other / yovo);
        }
    }
    curl_global_cleanup();
    stopServers(folder.path());
    return 0;
}
