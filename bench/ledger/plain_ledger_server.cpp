// What yledgerd does for a "store" message, with nothing but the system's sockets and SQLite:
// read the frame, insert the row in a transaction of its own with the same durability, answer
// with the same acknowledgement frame, close. Kept in C style on purpose: it is the cost floor
// that the daemon is measured against.
#include "plain_ledger_server.h"

#include <sqlite3.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

namespace {

// The same limits as the daemon's frame reader: a frame of more than 64 MiB is refused, and each
// part of one may take 30 s to arrive.
const uint32_t MAX_FRAME = 64u * 1024u * 1024u;
const int READ_WAIT_S = 30;
const uint32_t TYPE_STRING = 10;
const uint32_t TYPE_INT = 2;
const uint32_t NULL_TEXT = 0xFFFFFFFFu;
const char CLASS_NAME[] = "YMessage";

const char* const SCHEMA = "create table if not exists messages ("
                           "id integer primary key, client text not null, seq integer not null, "
                           "type text not null, payload text not null, received text not null, "
                           "unique (client, seq))";
const char* const INSERT = "insert or ignore into messages (client, seq, type, payload, received) "
                           "values (?1, ?2, ?3, ?4, ?5)";

uint32_t getWord(const unsigned char* at)
{
    return (uint32_t(at[0]) << 24) | (uint32_t(at[1]) << 16) | (uint32_t(at[2]) << 8)
        | uint32_t(at[3]);
}

unsigned char* putWord(unsigned char* out, uint32_t value)
{
    out[0] = (unsigned char)(value >> 24);
    out[1] = (unsigned char)(value >> 16);
    out[2] = (unsigned char)(value >> 8);
    out[3] = (unsigned char)value;
    return out + 4;
}

// A text of the frame: UTF-16 big-endian, `bytes` long; `data` is null for a null text.
struct Text
{
    const unsigned char* data;
    uint32_t bytes;
};

struct Body
{
    const unsigned char* at;
    const unsigned char* end;
};

int takeHead(Body* body, uint32_t type)
{
    if (body->end - body->at < 5 || getWord(body->at) != type || body->at[4] != 0)
        return -1;
    body->at += 5;
    return 0;
}

int takeText(Body* body, Text* text)
{
    if (takeHead(body, TYPE_STRING) != 0 || body->end - body->at < 4)
        return -1;
    const uint32_t bytes = getWord(body->at);
    body->at += 4;
    if (bytes == NULL_TEXT) {
        text->data = NULL;
        text->bytes = 0;
        return 0;
    }
    if ((bytes & 1) != 0 || uint64_t(body->end - body->at) < bytes)
        return -1;
    text->data = body->at;
    text->bytes = bytes;
    body->at += bytes;
    return 0;
}

struct Request
{
    Text type;
    int32_t number;
    Text data;
};

// The class name, then the properties in order: objectName, stringType, intData, stringData.
int parseBody(const unsigned char* bytes, uint32_t size, Request* request)
{
    Body body = {bytes, bytes + size};
    Text objectName;
    if (size < 4 + sizeof(CLASS_NAME) || getWord(bytes) != sizeof(CLASS_NAME)
        || memcmp(bytes + 4, CLASS_NAME, sizeof(CLASS_NAME)) != 0)
        return -1;
    body.at += 4 + sizeof(CLASS_NAME);
    if (takeText(&body, &objectName) != 0 || takeText(&body, &request->type) != 0
        || takeHead(&body, TYPE_INT) != 0 || body.end - body.at < 4)
        return -1;
    request->number = int32_t(getWord(body.at));
    body.at += 4;
    return takeText(&body, &request->data);
}

int textIs(const Text* text, const char* latin1)
{
    const size_t length = strlen(latin1);
    if (text->data == NULL || text->bytes != 2 * length)
        return 0;
    for (size_t i = 0; i < length; ++i) {
        if (text->data[2 * i] != 0 || text->data[2 * i + 1] != (unsigned char)latin1[i])
            return 0;
    }
    return 1;
}

int readFull(int fd, unsigned char* buffer, size_t count)
{
    while (count > 0) {
        const ssize_t got = read(fd, buffer, count);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return -1;
        buffer += got;
        count -= size_t(got);
    }
    return 0;
}

int writeFull(int fd, const unsigned char* buffer, size_t count)
{
    while (count > 0) {
        const ssize_t put = send(fd, buffer, count, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            return -1;
        buffer += put;
        count -= size_t(put);
    }
    return 0;
}

// The answer frame as YMessage writes it: a null objectName, then the Latin-1 texts widened.
int sendAnswer(int fd, const char* type, int32_t number, const char* text)
{
    const size_t typeLength = strlen(type);
    const size_t textLength = strlen(text);
    const size_t bodySize
        = 4 + sizeof(CLASS_NAME) + 9 + (9 + 2 * typeLength) + 9 + (9 + 2 * textLength);
    unsigned char* frame = (unsigned char*)malloc(8 + bodySize);
    if (frame == NULL)
        return -1;
    unsigned char* out = putWord(frame, uint32_t(bodySize));
    out = putWord(out, uint32_t(bodySize));
    out = putWord(out, sizeof(CLASS_NAME));
    memcpy(out, CLASS_NAME, sizeof(CLASS_NAME));
    out += sizeof(CLASS_NAME);
    out = putWord(out, TYPE_STRING);
    *out++ = 0;
    out = putWord(out, NULL_TEXT);
    out = putWord(out, TYPE_STRING);
    *out++ = 0;
    out = putWord(out, uint32_t(2 * typeLength));
    for (size_t i = 0; i < typeLength; ++i) {
        *out++ = 0;
        *out++ = (unsigned char)type[i];
    }
    out = putWord(out, TYPE_INT);
    *out++ = 0;
    out = putWord(out, uint32_t(number));
    out = putWord(out, TYPE_STRING);
    *out++ = 0;
    out = putWord(out, uint32_t(2 * textLength));
    for (size_t i = 0; i < textLength; ++i) {
        *out++ = 0;
        *out++ = (unsigned char)text[i];
    }
    const int result = writeFull(fd, frame, 8 + bodySize);
    free(frame);
    return result;
}

// The reception time as the daemon writes it: UTC, ISO 8601 with milliseconds.
void receivedNow(char* out, size_t size)
{
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    struct tm utc;
    gmtime_r(&now.tv_sec, &utc);
    char seconds[32];
    strftime(seconds, sizeof(seconds), "%Y-%m-%dT%H:%M:%S", &utc);
    snprintf(out, size, "%s.%03ldZ", seconds, now.tv_nsec / 1000000);
}

// Stores one request and answers it; the connection is the caller's to close.
void serveRequest(int fd, sqlite3* db, sqlite3_stmt* insert, const Request* request)
{
    if (!textIs(&request->type, "store")) {
        sendAnswer(fd, "error", 0, "unknown request type");
        return;
    }
    // "<client>\t<payload>", as the daemon takes it apart.
    const unsigned char* data = request->data.data;
    const uint32_t bytes = request->data.bytes;
    uint32_t tab = 0;
    while (tab < bytes && !(data[tab] == 0 && data[tab + 1] == '\t'))
        tab += 2;
    if (tab == 0) {
        sendAnswer(fd, "error", request->number, "a stored message needs a client name");
        return;
    }
    const unsigned char* payload = tab < bytes ? data + tab + 2 : (const unsigned char*)"";
    const uint32_t payloadBytes = tab < bytes ? bytes - tab - 2 : 0;
    char received[64];
    receivedNow(received, sizeof(received));
    sqlite3_bind_text64(insert, 1, (const char*)data, tab, SQLITE_STATIC, SQLITE_UTF16BE);
    sqlite3_bind_int(insert, 2, request->number);
    sqlite3_bind_text(insert, 3, "store", -1, SQLITE_STATIC);
    sqlite3_bind_text64(
        insert, 4, (const char*)payload, payloadBytes, SQLITE_STATIC, SQLITE_UTF16BE);
    sqlite3_bind_text(insert, 5, received, -1, SQLITE_STATIC);
    const int step = sqlite3_step(insert);
    const int inserted = sqlite3_changes(db) == 1;
    sqlite3_reset(insert);
    sqlite3_clear_bindings(insert);
    if (step != SQLITE_DONE) {
        char text[512];
        snprintf(text, sizeof(text), "not stored: %s", sqlite3_errmsg(db));
        sendAnswer(fd, "error", request->number, text);
        return;
    }
    sendAnswer(fd, "ack", request->number, inserted ? "stored" : "duplicate");
}

void serveConnection(int fd, sqlite3* db, sqlite3_stmt* insert)
{
    struct timeval wait = {READ_WAIT_S, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof(wait));
    // The length word, then the body as a byte array with a length word of its own.
    unsigned char head[8];
    if (readFull(fd, head, sizeof(head)) != 0)
        return;
    const uint32_t size = getWord(head + 4);
    if (getWord(head) > MAX_FRAME || size > MAX_FRAME || size == NULL_TEXT)
        return;
    unsigned char* body = (unsigned char*)malloc(size > 0 ? size : 1);
    if (body == NULL)
        return;
    Request request;
    if (readFull(fd, body, size) == 0 && parseBody(body, size, &request) == 0)
        serveRequest(fd, db, insert, &request);
    free(body);
}

int execute(sqlite3* db, const char* sql)
{
    char* error = NULL;
    if (sqlite3_exec(db, sql, NULL, NULL, &error) == SQLITE_OK)
        return 0;
    fprintf(stderr, "plain ledger server: %s: %s\n", sql, error ? error : "?");
    sqlite3_free(error);
    return -1;
}

} // namespace

int plainLedgerListen(unsigned short* port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    struct sockaddr_in address;
    memset(&address, 0, sizeof(address));
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    // The backlog Qt's server asks for.
    if (bind(fd, (struct sockaddr*)&address, sizeof(address)) != 0 || listen(fd, 50) != 0
        || getsockname(fd, (struct sockaddr*)&address, &length) != 0) {
        close(fd);
        return -1;
    }
    *port = ntohs(address.sin_port);
    return fd;
}

int plainLedgerServe(int listening, const char* database)
{
    sqlite3* db = NULL;
    if (sqlite3_open(database, &db) != SQLITE_OK) {
        fprintf(stderr, "plain ledger server: can't open %s: %s\n", database,
            db ? sqlite3_errmsg(db) : "out of memory");
        sqlite3_close(db);
        return -1;
    }
    sqlite3_busy_timeout(db, 5000);
    sqlite3_stmt* insert = NULL;
    if (execute(db, "pragma journal_mode = wal") != 0
        || execute(db, "pragma synchronous = full") != 0 || execute(db, SCHEMA) != 0
        || sqlite3_prepare_v2(db, INSERT, -1, &insert, NULL) != SQLITE_OK) {
        fprintf(stderr, "plain ledger server: can't set up %s: %s\n", database, sqlite3_errmsg(db));
        sqlite3_close(db);
        return -1;
    }
    for (;;) {
        const int fd = accept4(listening, NULL, NULL, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR || errno == ECONNABORTED)
                continue;
            perror("plain ledger server: accept");
            break;
        }
        serveConnection(fd, db, insert);
        // As the daemon does: whatever the client sent beyond its frame is read away first, so
        // that the close is an orderly one.
        char sink[4096];
        while (recv(fd, sink, sizeof(sink), MSG_DONTWAIT) > 0) { }
        close(fd);
    }
    sqlite3_finalize(insert);
    sqlite3_close(db);
    return -1;
}
