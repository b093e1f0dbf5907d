#!/usr/bin/env bash
# A private MariaDB server for the database tests: its own data folder, a free loopback port and
# its own socket, so that several build folders can run their fixtures at the same time.
#
#   mariadb_fixture.sh start|stop|restart <folder>
#
# "start" writes <folder>/server.env (host, port, socket, user, password, database), which the
# tests read. The test user has a password: the wrong-password test needs real authentication.
set -euo pipefail

action=${1:?start|stop|restart}
dir=${2:?folder}
data="$dir/data"
sock="$dir/mysqld.sock"
pidfile="$dir/mysqld.pid"
env="$dir/server.env"
# Private temporary files too: servers that bootstrap at the same time would otherwise meet in /tmp
# under the same temporary table names.
tmp="$dir/tmp"
user=yovo
password='yovo-Pw1'
database=yovotest

as_root=()
[ "$(id -u)" -ne 0 ] || as_root=(--user=root)

free_port() {
    python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

server_pid() {
    [ -f "$pidfile" ] && cat "$pidfile" 2>/dev/null || true
}

stop_server() {
    local pid
    pid=$(server_pid)
    if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
        kill "$pid"
        for _ in $(seq 1 300); do
            kill -0 "$pid" 2>/dev/null || break
            sleep 0.1
        done
        kill -9 "$pid" 2>/dev/null || true
    fi
    rm -f "$pidfile"
}

run_server() {
    local port=$1
    mariadbd --no-defaults "${as_root[@]}" --datadir="$data" --tmpdir="$tmp" --socket="$sock" \
        --pid-file="$pidfile" \
        --port="$port" --bind-address=127.0.0.1 --skip-name-resolve --skip-log-bin \
        --innodb-buffer-pool-size=16M --innodb-log-file-size=8M --max-connections=500 \
        --log-error="$dir/mysqld.err" >/dev/null 2>&1 &
    for _ in $(seq 1 300); do
        if mariadb-admin --no-defaults --socket="$sock" -uroot ping >/dev/null 2>&1; then
            return 0
        fi
        kill -0 $! 2>/dev/null || return 1
        sleep 0.1
    done
    return 1
}

start_on_free_port() {
    local port
    for _ in 1 2 3 4 5; do
        port=$(free_port)
        if run_server "$port"; then
            echo "$port"
            return 0
        fi
        stop_server
    done
    echo "mariadb fixture: the server did not start:" >&2
    tail -n 20 "$dir/mysqld.err" >&2 || true
    return 1
}

case "$action" in
start)
    stop_server
    rm -rf "$data" "$env" "$tmp"
    mkdir -p "$dir" "$tmp"
    # The server resolves no names (it runs with --skip-name-resolve, on 127.0.0.1), so neither
    # need its set-up: a fresh container may have no /etc/hosts at all.
    if ! mariadb-install-db --no-defaults "${as_root[@]}" --datadir="$data" --tmpdir="$tmp" \
        --auth-root-authentication-method=socket --skip-test-db --skip-name-resolve \
        >"$dir/install.log" 2>&1; then
        echo "mariadb fixture: mariadb-install-db failed:" >&2
        tail -n 20 "$dir/install.log" >&2
        exit 1
    fi
    port=$(start_on_free_port)
    mariadb --no-defaults --socket="$sock" -uroot <<SQL
CREATE DATABASE $database;
CREATE USER '$user'@'127.0.0.1' IDENTIFIED BY '$password';
CREATE USER '$user'@'localhost' IDENTIFIED BY '$password';
GRANT ALL ON $database.* TO '$user'@'127.0.0.1';
GRANT ALL ON $database.* TO '$user'@'localhost';
SQL
    printf 'host=127.0.0.1\nport=%s\nsocket=%s\nuser=%s\npassword=%s\ndatabase=%s\n' \
        "$port" "$sock" "$user" "$password" "$database" >"$env.tmp"
    mv "$env.tmp" "$env"
    ;;
restart)
    # Same port: a client that reconnects finds the server where it was.
    port=$(sed -n 's/^port=//p' "$env")
    stop_server
    run_server "$port" || { echo "mariadb fixture: restart failed" >&2; exit 1; }
    ;;
stop)
    stop_server
    rm -rf "$data" "$env" "$sock" "$tmp"
    ;;
*)
    echo "usage: $0 start|stop|restart <folder>" >&2
    exit 2
    ;;
esac
