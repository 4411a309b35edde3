#!/usr/bin/env bash
# A publish end to end through the reference host: three demo tracks (48 kHz 24-bit FLAC, five
# minutes each by default) rendered, signed in and uploaded to the embedded sandbox, with the
# share of each step. Uses the programs of the default build.
#
# Usage: bench/publish/publish-bench.sh [SECONDS_PER_TRACK] [RUNS] [JOBS]
#        JOBS: files rendered at once (sorvel publish --jobs); default one per core
set -euo pipefail
cd "$(dirname "$0")/../.."
seconds=${1:-300}
runs=${2:-3}
jobs=()
[ -n "${3:-}" ] && jobs=(--jobs "$3")
source bench/lib.sh
mkdir -p "$work/tracks"
"$bin/sorvel-demo-tracks" "$work/tracks" "$seconds" >/dev/null
audio=$(du -cb "$work"/tracks/*.flac | tail -1 | cut -f1)
echo "3 tracks of ${seconds} s, 48 kHz 24-bit stereo FLAC ($((audio / 1048576)) MiB); median of $runs runs; ${3:-all} jobs"

for run in $(seq "$runs"); do
  with_embedded_sandbox /usr/bin/time -f "%e %M" -o "$work/time.$run" \
    "$bin/sorvel" publish --json --no-progress "${jobs[@]}" "$work"/tracks/*.flac >"$work/result.$run" 2>/dev/null
done

python3 - "$work" "$runs" "$seconds" <<'PY'
import json, statistics, sys
work, runs, seconds = sys.argv[1], int(sys.argv[2]), float(sys.argv[3])
rows = []
for run in range(1, runs + 1):
    result = json.load(open(f"{work}/result.{run}"))
    assert result["result"] == "uploaded", result
    wall, peak = open(f"{work}/time.{run}").read().split()
    rows.append((float(wall), int(peak), result["seconds"]))
wall = statistics.median(r[0] for r in rows)
peak = max(r[1] for r in rows)
steps = {k: statistics.median(r[2][k] for r in rows) for k in ("sign_in", "render", "upload")}
print(f"  total (process)   {wall:7.2f} s")
for name, label in (("sign_in", "start, sign-in"), ("render", "render"), ("upload", "upload")):
    print(f"  {label:<17} {steps[name]:7.2f} s  {100 * steps[name] / wall:5.1f} %")
print(f"  render speed      {3 * seconds / steps['render']:7.0f} x real time")
print(f"  peak memory       {peak / 1024:7.1f} MiB")
PY
