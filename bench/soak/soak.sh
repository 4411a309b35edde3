#!/usr/bin/env bash
# Soak through the reference host, against the embedded sandbox: one batch of 200 short tracks,
# then one WAV of 4 GiB less 1 MiB (silence, 44.1 kHz 16-bit stereo, about 6 hours 45 minutes; a WAV
# file holds no more). Prints the
# time and the peak resident memory of each publish: memory must not grow with the batch or the
# file. Needs about 13 GB of free disk (the file, its rendered copy, the sandbox's stored copy).
#
# Usage: bench/soak/soak.sh [TRACKS] [GIB]   (GIB 0: the batch only)
set -euo pipefail
cd "$(dirname "$0")/../.."
tracks=${1:-200}
gib=${2:-4}
source bench/lib.sh
mkdir -p "$work/batch"
run() {
  with_embedded_sandbox /usr/bin/time -f "%e s, peak memory %M KiB" -o "$work/time" "$bin/sorvel" publish --json --no-progress "$@" \
    >"$work/result.json" 2>"$work/errors" || { cat "$work/errors"; exit 1; }
  python3 - "$work/result.json" <<'PY'
import json, sys
result = json.load(open(sys.argv[1]))
uploaded = sum(track["state"] == "uploaded" for track in result["tracks"])
print(f"  {result['result']}: {uploaded} of {len(result['tracks'])} tracks uploaded")
PY
  echo "  $(cat "$work/time")"
}

# 200 short tracks: the three demo tracks of 2 s, copied under new names.
"$bin/sorvel-demo-tracks" "$work/demo" 2 >/dev/null
demo=("$work"/demo/*.flac)
for i in $(seq -w 1 "$tracks"); do
  cp "${demo[$(( (10#$i - 1) % ${#demo[@]} ))]}" "$work/batch/track-$i.flac"
done
echo "a batch of $tracks tracks of 2 s:"
run --product "Soak batch" "$work"/batch/*.flac

[ "$gib" -gt 0 ] || exit 0

# One WAV of GIB GiB (a sparse file of silence behind a WAV header).
python3 - "$work/long.wav" "$gib" <<'PY'
import struct, sys
path, gib = sys.argv[1], int(sys.argv[2])
data = gib * 1024**3 - 1024**2  # a WAV file holds a little less than 4 GiB
data -= data % 4
with open(path, "wb") as f:
    f.write(b"RIFF" + struct.pack("<I", min(data + 36, 0xFFFFFFFF)) + b"WAVE")
    f.write(b"fmt " + struct.pack("<IHHIIHH", 16, 1, 2, 44100, 44100 * 4, 4, 16))
    f.write(b"data" + struct.pack("<I", data))
    f.truncate(44 + data)
PY
echo "one WAV of $gib GiB:"
run --product "Soak long" --title "Long" "$work/long.wav"
