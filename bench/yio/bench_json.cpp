// JSON parse and pretty-print throughput of YovoLib side by side with QJsonDocument, nlohmann/json,
// cJSON and RapidJSON in one binary, on the three benchmark documents of the shared corpora and on
// a small configuration-like document. Throughput is counted in bytes of the source document for
// both directions. YovoLib's reader takes its input as a QString (Latin-1), so its parse figures
// include turning the bytes into one. At the end a table gives each peer's ratio (peer time /
// YovoLib time, above 1: YovoLib faster). Runs are repeated in shuffled order and the fastest kept.

#include "json_reader.h"
#include "json_value.h"
#include "json_writer.h"

#include "bench_support.h"

#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/stringbuffer.h>

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

struct Document
{
    const char* name;
    QByteArray bytes;
};

QString sharedDir()
{
    const char* fromEnvironment = std::getenv("YOVO_SHARED_DIR");
    return QString::fromLocal8Bit(fromEnvironment ? fromEnvironment : YOVO_SHARED_DIR);
}

// What a daemon's settings file looks like: a few sections of short strings, numbers and flags.
QByteArray configDocument()
{
    QByteArray text = "{\n  \"service\": {\"name\": \"yovo-agent\", \"port\": 8080, \"workers\": 4,"
                      " \"debug\": false, \"log\": \"/var/log/yovo/agent.log\"},\n";
    for (int i = 0; text.size() < 900; ++i) {
        text += "  \"pool" + QByteArray::number(i) + "\": {\"host\": \"db" + QByteArray::number(i)
            + ".local\", \"timeout\": 2.5, \"retries\": 3, \"tags\": [\"a\", \"b\", null]},\n";
    }
    text += "  \"enabled\": true\n}\n";
    return text;
}

std::vector<Document>& documents()
{
    static std::vector<Document> all;
    if (all.empty()) {
        for (const char* name : {"canada.json", "citm_catalog.json", "twitter.json"}) {
            QFile file(sharedDir() + QStringLiteral("/corpora/json/") + QLatin1String(name));
            if (!file.open(QIODevice::ReadOnly)) {
                std::fprintf(stderr, "bench_json: cannot read %s\n", qPrintable(file.fileName()));
                std::exit(1);
            }
            all.push_back({name, file.readAll()});
        }
        all.push_back({"config_1k", configDocument()});
    }
    return all;
}

void setBytes(benchmark::State& state, const QByteArray& bytes)
{
    state.SetBytesProcessed(int64_t(state.iterations()) * bytes.size());
}

// ------------------------------------------------------------------------------------------------
// Parsing

void parseYovo(benchmark::State& state, const QByteArray* bytes)
{
    for (auto _ : state) {
        YJsonReader reader(YJSONREADER_STRICT);
        YJsonValue root;
        const int errors = reader.parse(QString::fromLatin1(*bytes), &root);
        benchmark::DoNotOptimize(errors);
    }
    setBytes(state, *bytes);
}

void parseQt(benchmark::State& state, const QByteArray* bytes)
{
    for (auto _ : state) {
        QJsonDocument document = QJsonDocument::fromJson(*bytes);
        benchmark::DoNotOptimize(document);
    }
    setBytes(state, *bytes);
}

void parseNlohmann(benchmark::State& state, const QByteArray* bytes)
{
    for (auto _ : state) {
        nlohmann::json document
            = nlohmann::json::parse(bytes->constData(), bytes->constData() + bytes->size());
        benchmark::DoNotOptimize(document);
    }
    setBytes(state, *bytes);
}

void parseCJson(benchmark::State& state, const QByteArray* bytes)
{
    for (auto _ : state) {
        cJSON* root = cJSON_Parse(bytes->constData());
        benchmark::DoNotOptimize(root);
        cJSON_Delete(root);
    }
    setBytes(state, *bytes);
}

void parseRapid(benchmark::State& state, const QByteArray* bytes)
{
    for (auto _ : state) {
        rapidjson::Document document;
        document.Parse(bytes->constData(), size_t(bytes->size()));
        benchmark::DoNotOptimize(document.HasParseError());
    }
    setBytes(state, *bytes);
}

// ------------------------------------------------------------------------------------------------
// Pretty-printing a tree parsed beforehand

void printYovo(benchmark::State& state, const QByteArray* bytes)
{
    YJsonValue root;
    YJsonReader(YJSONREADER_STRICT).parse(QString::fromLatin1(*bytes), &root);
    YJsonWriter writer;
    for (auto _ : state) {
        QString text;
        writer.write(root, text);
        benchmark::DoNotOptimize(text.size());
    }
    setBytes(state, *bytes);
}

void printQt(benchmark::State& state, const QByteArray* bytes)
{
    const QJsonDocument document = QJsonDocument::fromJson(*bytes);
    for (auto _ : state) {
        QByteArray text = document.toJson(QJsonDocument::Indented);
        benchmark::DoNotOptimize(text.size());
    }
    setBytes(state, *bytes);
}

void printNlohmann(benchmark::State& state, const QByteArray* bytes)
{
    const nlohmann::json document
        = nlohmann::json::parse(bytes->constData(), bytes->constData() + bytes->size());
    for (auto _ : state) {
        std::string text = document.dump(3);
        benchmark::DoNotOptimize(text.size());
    }
    setBytes(state, *bytes);
}

void printCJson(benchmark::State& state, const QByteArray* bytes)
{
    cJSON* root = cJSON_Parse(bytes->constData());
    for (auto _ : state) {
        char* text = cJSON_Print(root);
        benchmark::DoNotOptimize(text);
        free(text);
    }
    cJSON_Delete(root);
    setBytes(state, *bytes);
}

void printRapid(benchmark::State& state, const QByteArray* bytes)
{
    rapidjson::Document document;
    document.Parse(bytes->constData(), size_t(bytes->size()));
    for (auto _ : state) {
        rapidjson::StringBuffer buffer;
        rapidjson::PrettyWriter<rapidjson::StringBuffer> writer(buffer);
        document.Accept(writer);
        benchmark::DoNotOptimize(buffer.GetSize());
    }
    setBytes(state, *bytes);
}

using Function = void (*)(benchmark::State&, const QByteArray*);

struct Side
{
    const char* name;
    Function parse;
    Function print;
};

const std::vector<Side>& sides()
{
    static const std::vector<Side> all = {{"yovolib", parseYovo, printYovo},
        {"qt", parseQt, printQt}, {"nlohmann", parseNlohmann, printNlohmann},
        {"cjson", parseCJson, printCJson}, {"rapidjson", parseRapid, printRapid}};
    return all;
}

} // namespace

int main(int argc, char** argv)
{
    for (const Document& document : documents()) {
        for (const Side& side : sides()) {
            for (const char* what : {"parse", "print"}) {
                const std::string name = std::string(what) + "/" + document.name + "/" + side.name;
                const Function f = std::string(what) == "parse" ? side.parse : side.print;
                benchmark::RegisterBenchmark(name.c_str(), f, &document.bytes);
            }
        }
    }
    yovo::bench::RecordingReporter reporter(
        yovo::bench::Figure::CpuTime, yovo::bench::Reduction::Fastest);
    if (!yovo::bench::run(argc, argv, reporter, 3))
        return 1;

    yovo::bench::printRatioHeading("call");
    for (const char* what : {"parse", "print"}) {
        for (const Document& document : documents()) {
            const std::string base = std::string(what) + "/" + document.name + "/";
            const yovo::bench::Result* yovo = reporter.find(base + "yovolib");
            if (yovo == nullptr)
                continue;
            std::printf("%-32s %8.1f MB/s", (base + "yovolib").c_str(), yovo->bytesPerSecond / 1e6);
            for (const Side& side : sides()) {
                const yovo::bench::Result* peer = reporter.find(base + side.name);
                if (side.parse == parseYovo || peer == nullptr)
                    continue;
                std::printf(" | %s %.1f MB/s x%.2f", side.name, peer->bytesPerSecond / 1e6,
                    peer->cpuNs / yovo->cpuNs);
            }
            std::printf("\n");
        }
    }
    benchmark::Shutdown();
    return 0;
}
