#!/usr/bin/env bash
# Runs yledgerd in a terminal ("-e") with its files in a temporary folder, and shows what yledger
# does with it and with the files around it. Usage: examples/ledger/demo.sh <folder holding both>
set -euo pipefail
bin="${1:?usage: demo.sh BUILD_FOLDER}"
work="$(mktemp -d)"
daemon_pid=""
cleanup() {
    [ -n "$daemon_pid" ] && kill "$daemon_pid" 2>/dev/null && wait "$daemon_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT

table="yledger_demo_$$"
cat > "$work/yledgerd.ini" <<INI
[network]
; 0 picks a free port
ledger.port = 0
[logging]
ledger.log_file = $work/yledgerd.log
[storage]
ledger.database = $work/ledger.db
ledger.shared_table = $table
INI

show() { echo "\$ yledger $*"; "$bin/yledger" "$@" || echo "(exit code $?)"; }

"$bin/yledgerd" -e --config "$work/yledgerd.ini" > "$work/daemon.out" 2>&1 &
daemon_pid=$!
for _ in $(seq 100); do
    grep -q "listening on port" "$work/daemon.out" && break
    sleep 0.05
done
cat "$work/daemon.out"
port="$(sed -n 's/.*listening on port \([0-9]*\).*/\1/p' "$work/daemon.out")"
[ -n "$port" ] || { echo "ledger: the daemon did not start"; exit 1; }

show send --port "$port" ping
show send --port "$port" store 1 'demo\tfirst message'
show send --port "$port" store 1 'demo\tfirst message'
show send --port "$port" store 2 'demo\tsecond message'
sleep 0.3
show status --table "$table"
show ini get "$work/yledgerd.ini" ledger.port
show ini set "$work/yledgerd.ini" ledger.port 7411
echo '{ "port": 7411, // a comment
  "masks": [ "127.0.0.1", ] }' > "$work/settings.json"
show json check "$work/settings.json"
echo '<types><type name="Order"><field name="id" type="FT_32"/></type></types>' > "$work/types.xml"
show digest "$work/types.xml" Order

kill -TERM "$daemon_pid"
wait "$daemon_pid"
daemon_pid=""
echo "ledger: the daemon stopped; its log:"
cat "$work/yledgerd.log"
show status --table "$table"
echo "ledger: demo passed"
