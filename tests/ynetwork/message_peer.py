#!/usr/bin/env python3
"""A message peer written without the library, from the documented frame layout only.

A frame is two big-endian 32-bit words holding the body's length L, then L bytes of body: the
class name as a length word (strlen + 1) and the name with its NUL, then four values in the order
objectName, stringType, intData, stringData, each a type word (10 text, 2 integer), a null flag
byte and the value. A text is a byte count (0xFFFFFFFF for a null text) and UTF-16BE; an integer
is four bytes, signed.

Modes:
  client PORT TYPE INT DATA [--twice]   send one message (twice on one connection with --twice),
                                        print each response as "TYPE:INT:DATA", then "eof"
  server                                print the port, take one connection, print the message
                                        received, answer with TYPE "python", INT + 1, DATA
                                        reversed, and close
  half PORT                             send half a frame and go silent; print the seconds until
                                        the server closes the connection
  huge PORT                             send a length word of 4 GiB and go silent; print the
                                        seconds until the server closes the connection
"""
import socket
import struct
import sys
import time

NULL = object()


def text_value(text):
    if text is NULL:
        return struct.pack(">IBI", 10, 0, 0xFFFFFFFF)
    raw = text.encode("utf-16-be")
    return struct.pack(">IBI", 10, 0, len(raw)) + raw


def int_value(number):
    return struct.pack(">IBi", 2, 0, number)


def frame(kind, number, data, class_name=b"YMessage"):
    body = struct.pack(">I", len(class_name) + 1) + class_name + b"\0"
    body += text_value(NULL) + text_value(kind) + int_value(number) + text_value(data)
    return struct.pack(">II", len(body), len(body)) + body


def read_exactly(sock, count):
    data = b""
    while len(data) < count:
        chunk = sock.recv(count - len(data))
        if not chunk:
            return None
        data += chunk
    return data


class Body:
    def __init__(self, data):
        self.data = data
        self.pos = 0

    def take(self, count):
        piece = self.data[self.pos:self.pos + count]
        if len(piece) != count:
            raise ValueError("short body")
        self.pos += count
        return piece

    def word(self):
        return struct.unpack(">I", self.take(4))[0]

    def value(self):
        kind = self.word()
        self.take(1)
        if kind == 10:
            length = self.word()
            if length == 0xFFFFFFFF:
                return NULL
            return self.take(length).decode("utf-16-be")
        if kind == 2:
            return struct.unpack(">i", self.take(4))[0]
        raise ValueError("unexpected value type %d" % kind)


def read_frame(sock):
    head = read_exactly(sock, 8)
    if head is None:
        return None
    first, second = struct.unpack(">II", head)
    if first != second:
        raise ValueError("length words differ: %d %d" % (first, second))
    body = Body(read_exactly(sock, first))
    name_length = body.word()
    name = body.take(name_length)
    if name != b"YMessage\0":
        raise ValueError("class %r" % name)
    values = [body.value() for _ in range(4)]
    if body.pos != len(body.data):
        raise ValueError("trailing bytes")
    return values


def show(value):
    return "<null>" if value is NULL else str(value)


def run_client(port, kind, number, data, twice):
    with socket.create_connection(("127.0.0.1", port), timeout=90) as sock:
        message = frame(kind, number, data)
        sock.sendall(message + message if twice else message)
        while True:
            values = read_frame(sock)
            if values is None:
                print("eof")
                return 0
            print("%s:%s:%s" % (show(values[1]), show(values[2]), show(values[3])))


def run_server():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as listener:
        listener.bind(("127.0.0.1", 0))
        listener.listen(1)
        listener.settimeout(60)
        print(listener.getsockname()[1], flush=True)
        connection, _ = listener.accept()
        with connection:
            connection.settimeout(60)
            values = read_frame(connection)
            print("received %s|%s:%s:%s" % tuple(show(v) for v in values), flush=True)
            kind, number, data = values[1], values[2], values[3]
            connection.sendall(frame("python", number + 1, data[::-1]))
    return 0


def run_silent(port, payload):
    with socket.create_connection(("127.0.0.1", port), timeout=120) as sock:
        sock.sendall(payload)
        start = time.monotonic()
        try:
            while sock.recv(4096):
                pass
        except ConnectionResetError:
            pass
        print("%.1f" % (time.monotonic() - start), flush=True)
    return 0


def main(argv):
    mode = argv[1]
    if mode == "client":
        return run_client(int(argv[2]), argv[3], int(argv[4]), argv[5], "--twice" in argv)
    if mode == "server":
        return run_server()
    if mode == "half":
        whole = frame("half", 1, "never complete")
        return run_silent(int(argv[2]), whole[: len(whole) // 2])
    if mode == "huge":
        return run_silent(int(argv[2]), struct.pack(">II", 0xFFFFFFF0, 0xFFFFFFF0))
    print(__doc__)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv))
