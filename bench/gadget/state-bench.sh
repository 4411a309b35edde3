#!/usr/bin/env bash
# What the browser gadget pays for each change it shows: every event sends the page the whole
# state, the track table drawn again. Times GET /state of `sorvel gadget` holding TRACKS rows
# against a request for the page's static style sheet on the same connection (the peer: a request
# that costs the server nothing), and reports the state's size.
#
# Usage: bench/gadget/state-bench.sh [TRACKS] [REQUESTS]
set -euo pipefail
cd "$(dirname "$0")/../.."
tracks=${1:-200}
requests=${2:-100}
source bench/lib.sh
mkdir -p "$work/batch"

"$bin/sorvel-demo-tracks" "$work/demo" 1 >/dev/null
demo=("$work"/demo/*.flac)
for i in $(seq -w 1 "$tracks"); do
  cp "${demo[$(( (10#$i - 1) % ${#demo[@]} ))]}" "$work/batch/track-$i.flac"
done

with_embedded_sandbox "$bin/sorvel" gadget --no-browser "$work"/batch/*.flac >"$work/gadget.out" 2>"$work/gadget.err" &
gadget=$!
# $gadget is the subshell that runs the function; the program is its child.
trap 'kill -INT $(pgrep -P $gadget) $gadget 2>/dev/null; wait $gadget 2>/dev/null; rm -rf "$work"' EXIT
for _ in $(seq 600); do
  grep -q "^Sorvel gadget: " "$work/gadget.out" 2>/dev/null && break
  kill -0 $gadget 2>/dev/null || { cat "$work/gadget.err"; exit 1; }
  sleep 0.1
done
address=$(sed -n 's/^Sorvel gadget: //p' "$work/gadget.out")

python3 - "$address" "$requests" "$tracks" <<'PY'
import http.client, json, statistics, sys, time, urllib.parse
address, requests, tracks = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
url = urllib.parse.urlsplit(address)
connection = http.client.HTTPConnection(url.hostname, url.port)

def timed(path):
    times, size = [], 0
    for _ in range(requests):
        start = time.perf_counter()
        connection.request("GET", url.path + path)
        body = connection.getresponse().read()
        times.append(time.perf_counter() - start)
        size = len(body)
    return statistics.median(times), size, body

peer, peer_size, _ = timed("page.css")
state, state_size, body = timed("state")
rows = json.loads(body)["lists"][":trackList"]["rows"]
assert rows == tracks, f"{rows} rows listed, {tracks} published"
print(f"{tracks} rows, median of {requests} requests")
print(f"  state     {state * 1000:8.2f} ms  {state_size / 1024:8.1f} KiB")
print(f"  page.css  {peer * 1000:8.2f} ms  {peer_size / 1024:8.1f} KiB (peer)")
print(f"  ratio     {state / peer:8.1f} x   {state_size / tracks:8.0f} bytes per row")
PY
