#!/usr/bin/env bash
# Measures the throughput ceiling of the sandbox's upload target on loopback, so that upload
# benchmarks can tell whether the sink or the client limits them. It starts sorvel-sandbox, signs
# in with curl, asks for a one-time upload URL per run and posts a generated file with curl -F,
# exactly in the form the plug-in sends. It reports MB/s per run and the server's peak resident set
# size (VmHWM), then removes everything it made.
#
# Usage: bench/sandbox/upload-throughput.sh [path/to/sorvel-sandbox] [size in MiB] [runs]
#        defaults: build/default/bin/sorvel-sandbox, 1024 MiB, 3 runs
set -euo pipefail

program=${1:-build/default/bin/sorvel-sandbox}
size_mib=${2:-1024}
runs=${3:-3}
if [[ ! -x $program ]]; then
  echo "upload-throughput: no sorvel-sandbox at $program (build it, or pass its path)" >&2
  exit 2
fi
if ! [[ $size_mib =~ ^[1-9][0-9]*$ && $runs =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: $0 [path/to/sorvel-sandbox] [size in MiB] [runs]" >&2
  exit 2
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/sandbox-bench-XXXXXX")
server=""
cleanup() {
  if [[ -n $server ]]; then kill "$server" 2>/dev/null || true; wait "$server" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

file=$work/upload.wav
fallocate -l "${size_mib}MiB" "$file" 2>/dev/null || head -c "$((size_mib * 1048576))" /dev/zero > "$file"

"$program" --port 0 --quiet --data "$work/data" > "$work/server.out" 2>&1 &
server=$!
for _ in $(seq 100); do
  grep -q 'Press Ctrl+C' "$work/server.out" 2>/dev/null && break
  kill -0 "$server" 2>/dev/null || { cat "$work/server.out" >&2; exit 1; }
  sleep 0.1
done
field() { sed -n "s/^  $1: *//p" "$work/server.out"; }
api=$(field 'API base URL')
partner_id=$(field 'Partner id')
partner_key=$(field 'Partner key')
read -r username _ password _ <<< "$(field 'Demo login')"

timestamp=$(date -u +%Y-%m-%dT%H:%M:%S)
signature=$(printf '%s%s' "$partner_id" "$partner_key" | md5sum | cut -d' ' -f1)
digest=$(printf '%s%s%s' "$password" "$timestamp" "$partner_key" | sha1sum | cut -d' ' -f1)
reply=$(curl -sS -H 'Content-Type: application/json' \
  -d "{\"partner_id\":\"$partner_id\",\"username\":\"$username\",\"timestamp\":\"$timestamp\",\"password\":\"$digest\",\"signature\":\"$signature\"}" \
  "${api}users/auth/token")
json() { sed -n "s/.*\"$1\":\"\{0,1\}\([^\",}]*\).*/\1/p" <<< "$2"; }
token=$(json token "$reply")
server_timestamp=$(json timestamp "$reply")
account=$(json account_id "$reply")
[[ -n $token ]] || { echo "upload-throughput: sign-in failed: $reply" >&2; exit 1; }
auth=(--data-urlencode "token=$token" --data-urlencode "timestamp=$server_timestamp"
      --data-urlencode "account_id=$account" --data-urlencode "partner_id=$partner_id")

echo "sorvel-sandbox upload target on loopback, ${size_mib} MiB per run"
for run in $(seq "$runs"); do
  ticket=$(curl -sS -G "${auth[@]}" "${api}tracks/9001/upload_token")
  url=$(json url "$ticket")
  result=$(curl -sS -o /dev/null -w '%{http_code} %{time_total} %{size_upload}' \
    -F "key=$(json key "$ticket")" -F "track_id=$(json track_id "$ticket")" -F "expires=$(json expires "$ticket")" \
    -F 'Content-Type=audio/x-wav' \
    -F "file=@$file;type=application/octet-stream;headers=\"Content-Transfer-Encoding: binary\"" "$url")
  read -r status seconds bytes <<< "$result"
  [[ $status == 201 ]] || { echo "upload-throughput: run $run answered HTTP $status" >&2; exit 1; }
  awk -v r="$run" -v b="$bytes" -v s="$seconds" 'BEGIN { printf "run %d: %.0f MB/s (%d bytes in %.2f s)\n", r, b / s / 1e6, b, s }'
  rm -f "$work"/data/files/*.bin
done
echo "server peak RSS: $(sed -n 's/^VmHWM: *//p' "/proc/$server/status")"
