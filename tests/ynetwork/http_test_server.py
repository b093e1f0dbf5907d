#!/usr/bin/env python3
"""The HTTP peer of the tests, standard library only.

    http_test_server.py <ports file>

Listens on a free 127.0.0.1 port for the routes below, and on a second port that accepts
connections and never reads nor answers. Writes "python=<port>" and "silent=<port>" to the ports
file once both listen.

    /echo                 the request line, headers in arrival order, a blank line, the body
    /status?code=&reason= an empty reply with that status and reason phrase
    /slow?seconds=&interval=  one byte per interval, for that many seconds
    /partial?bytes=&hold= announces ten times the bytes, sends them, then holds the line
    /truncated            announces 100 bytes, sends 10 and closes
    /garbage              bytes that aren't HTTP, then closes
    /hugeheader?size=     a header value of that many bytes
    /redirect?to=         302 to the given target, as it stands
    /setcookie            an empty reply that sets a cookie for the whole server
    /auth                 401 with a Basic challenge unless the request has credentials, then echo
    .../YovoServer/<route> the web API; a prefix before /YovoServer picks a behaviour:
                          none = normal, /garbage = a body that isn't XML, /fail = status 500
"""

import hashlib
import hmac
import os
import select
import socket
import sys
import threading
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from urllib.parse import parse_qs, urlsplit
from xml.sax.saxutils import escape

USER_AGENT = "Yovo_Http_Client/1.10"
API_KEYS = {"test-key": "s3cret key of the tests"}
ROUTES = [
    "Api/applicationGetStatus", "Api/applicationSynchronize", "Api/monitorGetRules",
    "Api/monitorSetRule", "Api/monitorRemoveRules", "Api/sendNotification",
    "Api/pagecacheSaveRule", "Api/pagecacheSaveApplicationRule", "Api/pagecacheRulesList",
    "Api/pagecacheDeleteRulesByApplicationId", "Api/emailSend", "Api/configurationExport",
]


class Handler(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def log_message(self, fmt, *args):
        pass

    def reply(self, code, body=b"", reason=None, headers=()):
        self.send_response(code, reason)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.send_header("Connection", "close")
        self.end_headers()
        self.wfile.write(body)
        self.close_connection = True

    def read_body(self):
        length = int(self.headers.get("Content-Length", "0") or "0")
        return self.rfile.read(length) if length > 0 else b""

    def do_GET(self):
        self.dispatch(b"")

    def do_POST(self):
        self.dispatch(self.read_body())

    def dispatch(self, body):
        url = urlsplit(self.path)
        args = {k: v[0] for k, v in parse_qs(url.query, keep_blank_values=True).items()}
        if "/YovoServer/" in url.path:
            return self.web_api(url, body)
        route = {
            "/echo": self.echo, "/status": self.status, "/slow": self.slow,
            "/partial": self.partial, "/truncated": self.truncated, "/garbage": self.garbage,
            "/hugeheader": self.huge_header, "/redirect": self.redirect,
            "/setcookie": self.set_cookie, "/auth": self.auth,
        }.get(url.path)
        if route is None:
            return self.reply(404, b"no such path\n")
        try:
            route(args, body)
        except (BrokenPipeError, ConnectionResetError):
            self.close_connection = True

    def echo(self, args, body):
        text = "{} {}\n".format(self.command, self.path)
        for name, value in self.headers.raw_items():
            text += "{}: {}\n".format(name, value)
        self.reply(200, text.encode("latin-1") + b"\n" + body, headers=[("X-Echo", "yes")])

    def status(self, args, body):
        self.reply(int(args.get("code", "200")), body=b"status body", reason=args.get("reason"),
                   headers=[("X-First", "one"), ("X-Second", "two")])

    def slow(self, args, body):
        seconds = float(args.get("seconds", "40"))
        interval = float(args.get("interval", "0.5"))
        count = int(seconds / interval)
        self.send_response(200)
        self.send_header("Content-Length", str(count))
        self.send_header("Connection", "close")
        self.end_headers()
        self.wfile.flush()
        for _ in range(count):
            self.wfile.write(b"s")
            self.wfile.flush()
            time.sleep(interval)
        self.close_connection = True

    def partial(self, args, body):
        count = int(args.get("bytes", "10"))
        self.send_response(200)
        self.send_header("Content-Length", str(count * 10))
        self.end_headers()
        self.wfile.write(b"p" * count)
        self.wfile.flush()
        time.sleep(float(args.get("hold", "10")))
        self.close_connection = True

    def truncated(self, args, body):
        self.send_response(200)
        self.send_header("Content-Length", "100")
        self.end_headers()
        self.wfile.write(b"t" * 10)
        self.wfile.flush()
        self.close_connection = True

    def garbage(self, args, body):
        self.wfile.write(b"\x00\xffTHIS IS NOT HTTP\r\n\x01\x02\x03\r\n\r\n")
        self.wfile.flush()
        self.close_connection = True

    def huge_header(self, args, body):
        size = int(args.get("size", "1048576"))
        self.reply(200, b"huge", headers=[("X-Huge", "h" * size)])

    def redirect(self, args, body):
        self.reply(302, b"", headers=[("Location", args.get("to", "/echo"))])

    def set_cookie(self, args, body):
        self.reply(200, b"", headers=[("Set-Cookie", "yovo=crumb; Path=/")])

    def auth(self, args, body):
        if self.headers.get("Authorization") is None:
            return self.reply(401, b"", headers=[("WWW-Authenticate", 'Basic realm="yovo"')])
        self.echo(args, body)

    def web_api(self, url, body):
        prefix, route = url.path.split("/YovoServer/", 1)
        if route not in ROUTES:
            return self.xml(404, "<errorMessage>Unknown route {}</errorMessage>".format(
                escape(route)))
        date = self.headers.get("Date", "")
        signed = "none"
        header = self.headers.get_all("X-Yovo-Signature") or []
        if len(header) > 1:
            return self.xml(400, "<errorMessage>More than one signature</errorMessage>")
        if header:
            name, _, signature = header[0].partition(";")
            key = API_KEYS.get(name)
            host = self.headers.get("Host", "") + prefix
            text = "{}:/YovoServer/{}:{}:{}".format(host, route, USER_AGENT, date)
            expected = hmac.new(key.encode(), text.encode(), hashlib.sha256).hexdigest() \
                if key is not None else None
            if expected is None or not hmac.compare_digest(expected, signature):
                return self.xml(403, "<errorMessage>Bad signature</errorMessage>")
            signed = "valid"
        if prefix == "/garbage":
            return self.reply(200, b"this is not XML <<<", headers=[("Content-Type", "text/xml")])
        if prefix == "/fail":
            return self.xml(500, "<errorMessage>Internal failure</errorMessage>")
        fields = [("method", self.command), ("route", route), ("prefix", prefix),
                  ("target", self.path), ("query", url.query), ("body", body.decode("latin-1")),
                  ("signature", signed), ("date", date)]
        xml = "".join("<{0}>{1}</{0}>".format(k, escape(v)) for k, v in fields)
        xml += "<headers>" + "".join('<header name="{}">{}</header>'.format(escape(n), escape(v))
                                     for n, v in self.headers.raw_items()) + "</headers>"
        self.xml(200, xml)

    def xml(self, code, inner):
        self.reply(code, ("<response>" + inner + "</response>").encode("utf-8"),
                   headers=[("Content-Type", "application/vnd.yovo.serverapi+xml")])


def main():
    server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
    server.daemon_threads = True
    silent = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    silent.bind(("127.0.0.1", 0))
    silent.listen(128)
    ports_file = sys.argv[1]
    with open(ports_file + ".new", "w") as f:
        f.write("python={}\nsilent={}\n".format(server.server_address[1],
                                                silent.getsockname()[1]))
    os.replace(ports_file + ".new", ports_file)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    # The silent port accepts and never answers; what arrives is thrown away, and a connection is
    # closed only once its peer has gone, so the port serves any number of runs.
    peers = []
    while True:
        readable, _, _ = select.select([silent] + peers, [], [])
        for sock in readable:
            if sock is silent:
                peers.append(silent.accept()[0])
                continue
            try:
                data = sock.recv(65536)
            except OSError:
                data = b""
            if not data:
                peers.remove(sock)
                sock.close()


if __name__ == "__main__":
    main()
