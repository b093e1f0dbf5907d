#!/usr/bin/env bash
# Starts message_server on a free port, sends it a few requests with message_client and ends it
# with "quit". Usage: examples/messages/demo.sh <folder holding the two programs>
set -euo pipefail
bin="${1:?usage: demo.sh BUILD_FOLDER}"
exec 3< <("$bin/message_server" 0)
server_pid=$!
read -r port <&3
echo "messages: server listening on port $port"
"$bin/message_client" "$port" sum 5
"$bin/message_client" "$port" sum 37
"$bin/message_client" "$port" time
"$bin/message_client" "$port" quit
cat <&3
wait "$server_pid" 2>/dev/null || true
echo "messages: demo passed"
