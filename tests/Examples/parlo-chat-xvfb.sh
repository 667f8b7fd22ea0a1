#!/usr/bin/env bash
# parlo-chat in a real X server (Xvfb): it starts, signs in against the reference server, a click on
# its chat button opens the room list, a picture of the real window is kept, and it quits cleanly.
#   parlo-chat-xvfb.sh PARLO_CHAT_BINARY SOURCE_DIR OUTPUT_DIR
set -euo pipefail
chat=$1 root=$2 out=$3
mkdir -p "$out"
work=$(mktemp -d)
server_pid=""
cleanup() {
  [[ -n "$server_pid" ]] && kill "$server_pid" 2>/dev/null && wait "$server_pid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT
: >"$work/server.log" # made before the server starts, so that the wait below can read it at once
node "$root/server/index.js" --port 0 --data "$work/server" >"$work/server.log" 2>&1 &
server_pid=$!
url=""
for _ in $(seq 150); do
  url=$(sed -n 's/^parlo-server listening on \(http[^ ]*\)$/\1/p' "$work/server.log")
  [[ -n "$url" ]] && break
  sleep 0.1
done
[[ -n "$url" ]] || { echo "the server did not start"; cat "$work/server.log"; exit 1; }
unset QT_QPA_PLATFORM
xvfb-run -a -s "-screen 0 1024x800x24" "$chat" --url "$url" --client-id alice --name Alice \
  --profile "$work/alice" --self-test "$out"
test -s "$out/parlo-chat.png"
echo "window picture: $out/parlo-chat.png"
