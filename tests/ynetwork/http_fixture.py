#!/usr/bin/env python3
"""Starts and stops the servers that the HTTP tests talk to.

    http_fixture.py start <state folder>
    http_fixture.py stop <state folder>

A private nginx (plain and TLS, its own prefix, configuration, pid file and error log in the state
folder) and the Python test server next to this file, all on free 127.0.0.1 ports. The ports go to
<state folder>/ports.env as key=value lines. Certificates are made at start with the openssl
command: each TLS port presents a different fault. Each build has its own state folder, so two
builds can run their fixtures at once.
"""

import os
import shutil
import signal
import socket
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))

TLS_SERVERS = ["selfsigned", "chain", "expired", "wronghost", "unknownca"]


def run(args, cwd):
    subprocess.run(args, cwd=cwd, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def make_certificates(certs):
    os.makedirs(certs, exist_ok=True)
    host_ext = "subjectAltName=IP:127.0.0.1,DNS:localhost"
    with open(os.path.join(certs, "leaf.ext"), "w") as f:
        f.write("basicConstraints=CA:FALSE\n" + host_ext + "\n")
    with open(os.path.join(certs, "wrong.ext"), "w") as f:
        f.write("subjectAltName=DNS:wrong.example.invalid\n")
    # A certificate whose name is the peer's but that signed itself.
    run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "selfsigned.key",
         "-out", "selfsigned.crt", "-days", "3650", "-subj", "/CN=127.0.0.1", "-addext", host_ext],
        certs)
    # A private authority, and a server certificate that it signed.
    run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "ca.key", "-out",
         "ca.crt", "-days", "3650", "-subj", "/CN=Yovo Test Authority"], certs)
    run(["openssl", "req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", "leaf.key", "-out",
         "leaf.csr", "-subj", "/CN=127.0.0.1"], certs)
    run(["openssl", "x509", "-req", "-in", "leaf.csr", "-CA", "ca.crt", "-CAkey", "ca.key",
         "-CAcreateserial", "-days", "3650", "-extfile", "leaf.ext", "-out", "leaf.crt"], certs)
    with open(os.path.join(certs, "chain.crt"), "w") as out:
        for name in ("leaf.crt", "ca.crt"):
            with open(os.path.join(certs, name)) as f:
                out.write(f.read())
    # Self-signed with a name that isn't the peer's.
    run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", "wronghost.key",
         "-out", "wronghost.crt", "-days", "3650", "-subj", "/CN=wrong.example.invalid",
         "-addext", "subjectAltName=DNS:wrong.example.invalid"], certs)
    # Self-signed, with the right name, valid for one day in 2020. Only the ca command takes
    # explicit dates.
    os.makedirs(os.path.join(certs, "ca_db"), exist_ok=True)
    open(os.path.join(certs, "ca_db", "index.txt"), "w").close()
    with open(os.path.join(certs, "ca_db", "serial"), "w") as f:
        f.write("1000\n")
    with open(os.path.join(certs, "expired.cnf"), "w") as f:
        f.write("[ ca ]\ndefault_ca = expired\n"
                "[ expired ]\ndir = ca_db\ndatabase = ca_db/index.txt\nserial = ca_db/serial\n"
                "new_certs_dir = ca_db\ndefault_md = sha256\npolicy = any\n"
                "copy_extensions = copy\nunique_subject = no\n"
                "[ any ]\ncommonName = supplied\n"
                "[ ext ]\nbasicConstraints=CA:FALSE\n" + host_ext + "\n")
    run(["openssl", "req", "-new", "-newkey", "rsa:2048", "-nodes", "-keyout", "expired.key",
         "-out", "expired.csr", "-subj", "/CN=127.0.0.1"], certs)
    run(["openssl", "ca", "-batch", "-config", "expired.cnf", "-selfsign", "-keyfile",
         "expired.key", "-in", "expired.csr", "-out", "expired.crt", "-extensions", "ext",
         "-startdate", "20200101000000Z", "-enddate", "20200102000000Z", "-notext"], certs)
    return {
        "selfsigned": ("selfsigned.crt", "selfsigned.key"),
        "chain": ("chain.crt", "leaf.key"),
        "expired": ("expired.crt", "expired.key"),
        "wronghost": ("wronghost.crt", "wronghost.key"),
        "unknownca": ("leaf.crt", "leaf.key"),
    }


def make_docroot(www):
    os.makedirs(www, exist_ok=True)
    with open(os.path.join(www, "hello.txt"), "w") as f:
        f.write("Hello from the test server\n")
    with open(os.path.join(www, "small.bin"), "wb") as f:
        f.write(bytes(range(256)) * 4)


def nginx_config(state, ports, certs, cert_files):
    locations = """
        root {www};
        location = /r1 {{ return 302 /r2; }}
        location = /r2 {{ return 302 /hello.txt; }}
        location = /loop {{ return 302 /loop; }}
        location = /connection {{ return 200 "$connection"; }}
    """.format(www=os.path.join(state, "www"))
    servers = ["server {{ listen 127.0.0.1:{}; {} }}".format(ports["plain"], locations)]
    for name in TLS_SERVERS:
        crt, key = cert_files[name]
        servers.append(
            "server {{ listen 127.0.0.1:{} ssl; ssl_certificate {}; ssl_certificate_key {}; {} }}"
            .format(ports[name], os.path.join(certs, crt), os.path.join(certs, key), locations))
    tmp = os.path.join(state, "tmp")
    os.makedirs(tmp, exist_ok=True)
    user = "user root;\n" if os.geteuid() == 0 else ""
    return (user + "worker_processes 1;\npid {state}/nginx.pid;\nerror_log {state}/error.log;\n"
            "events {{ worker_connections 512; }}\n"
            "http {{\n access_log off;\n default_type application/octet-stream;\n"
            " keepalive_requests 100000;\n"
            " client_body_temp_path {tmp}/body; proxy_temp_path {tmp}/proxy;\n"
            " fastcgi_temp_path {tmp}/fastcgi; uwsgi_temp_path {tmp}/uwsgi;\n"
            " scgi_temp_path {tmp}/scgi;\n {servers}\n}}\n").format(
                state=state, tmp=tmp, servers="\n ".join(servers))


def read_pid(path):
    try:
        with open(path) as f:
            return int(f.read().strip())
    except (OSError, ValueError):
        return None


def alive(pid):
    # A process that ended but that nobody reaped yet (a container without an init) counts as gone.
    try:
        with open("/proc/{}/stat".format(pid)) as f:
            return f.read().rsplit(")", 1)[1].split()[0] != "Z"
    except (OSError, IndexError):
        return False


def kill_and_wait(pid, sig=signal.SIGTERM):
    if pid is None or not alive(pid):
        return
    os.kill(pid, sig)
    for _ in range(100):
        if not alive(pid):
            return
        time.sleep(0.05)
    try:
        os.kill(pid, signal.SIGKILL)
    except OSError:
        pass


def wait_connectable(port, deadline):
    while time.time() < deadline:
        try:
            with socket.create_connection(("127.0.0.1", port), timeout=0.5):
                return True
        except OSError:
            time.sleep(0.05)
    return False


def stop(state):
    kill_and_wait(read_pid(os.path.join(state, "nginx.pid")))
    kill_and_wait(read_pid(os.path.join(state, "python.pid")))
    for name in ("nginx.pid", "python.pid", "ports.env", "python.ports"):
        try:
            os.remove(os.path.join(state, name))
        except OSError:
            pass


def start_nginx(state, certs, cert_files):
    for attempt in range(5):
        ports = {"plain": free_port()}
        for name in TLS_SERVERS:
            ports[name] = free_port()
        conf = os.path.join(state, "nginx.conf")
        with open(conf, "w") as f:
            f.write(nginx_config(state, ports, certs, cert_files))
        result = subprocess.run(["nginx", "-p", state, "-c", conf, "-e",
                                 os.path.join(state, "error.log")],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if result.returncode == 0:
            deadline = time.time() + 10
            if all(wait_connectable(p, deadline) for p in ports.values()):
                return ports
        sys.stderr.write(result.stdout.decode(errors="replace"))
        kill_and_wait(read_pid(os.path.join(state, "nginx.pid")))
    raise SystemExit("nginx did not start")


def start_python(state):
    ports_file = os.path.join(state, "python.ports")
    log = open(os.path.join(state, "python_server.log"), "ab")
    proc = subprocess.Popen([sys.executable, os.path.join(HERE, "http_test_server.py"), ports_file],
                            stdout=log, stderr=log, stdin=subprocess.DEVNULL,
                            start_new_session=True)
    with open(os.path.join(state, "python.pid"), "w") as f:
        f.write(str(proc.pid))
    deadline = time.time() + 10
    while time.time() < deadline:
        if os.path.exists(ports_file):
            with open(ports_file) as f:
                text = f.read()
            if text.endswith("\n"):
                return dict(line.split("=", 1) for line in text.split())
        if proc.poll() is not None:
            break
        time.sleep(0.05)
    raise SystemExit("the Python test server did not start")


def start(state):
    os.makedirs(state, exist_ok=True)
    stop(state)
    certs = os.path.join(state, "certs")
    shutil.rmtree(certs, ignore_errors=True)
    cert_files = make_certificates(certs)
    make_docroot(os.path.join(state, "www"))
    ports = start_nginx(state, certs, cert_files)
    ports.update(start_python(state))
    with open(os.path.join(state, "ports.env.new"), "w") as f:
        for key, value in sorted(ports.items()):
            f.write("{}={}\n".format(key, value))
    os.replace(os.path.join(state, "ports.env.new"), os.path.join(state, "ports.env"))


def main():
    if len(sys.argv) != 3 or sys.argv[1] not in ("start", "stop"):
        raise SystemExit(__doc__)
    state = os.path.abspath(sys.argv[2])
    if sys.argv[1] == "start":
        start(state)
    else:
        stop(state)


if __name__ == "__main__":
    main()
