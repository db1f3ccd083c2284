#!/usr/bin/env bash
# Size and memory of dsd on the target: the stripped armhf binary, and the
# resident memory of the emulated process after start-up and after 10,000
# requests. Under qemu-arm the guest lives in a 4 GiB window at a fixed
# guest base (-B); only mappings inside that window are the daemon's own,
# the rest is the emulator.
# Usage: scripts/footprint.sh <armhf-build-dir> <sysroot> [requests]
set -euo pipefail
BUILD=$1
SYSROOT=$2
REQUESTS=${3:-10000}
SRC=$(cd "$(dirname "$0")/.." && pwd)
GUEST_BASE=0x7e0000000000

stripped=$(mktemp)
arm-linux-gnueabihf-strip -o "$stripped" "$BUILD/dsd"
size=$(stat -c %s "$stripped")
rm -f "$stripped"

root=$(mktemp -d)
trap 'kill $pid 2>/dev/null || true; rm -rf "$root"' EXIT
mkdir -p "$root"/{etc/config,tmp,var/run,usr/bin}
touch "$root/usr/bin/dsd"
if [ -x "$SRC/build/native/tools/mkconfig" ]; then
  "$SRC/build/native/tools/mkconfig" "$root/etc/config" 128 >/dev/null
fi
DSD_ROOT=$root qemu-arm -L "$SYSROOT" -B $GUEST_BASE "$BUILD/dsd" >/dev/null 2>&1 &
pid=$!
for _ in $(seq 200); do [ -S "$root/tmp/dsd_server.sock" ] && break; sleep 0.05; done

guest_rss_kb() {
  python3 - "$1" "$GUEST_BASE" <<'PY'
import sys
pid, base = sys.argv[1], int(sys.argv[2], 16)
top = base + (1 << 32)
total = 0; inside = False
for line in open(f"/proc/{pid}/smaps"):
    head = line.split()[0]
    if "-" in head and ":" not in head:
        lo = int(head.split("-")[0], 16)
        inside = base <= lo < top
    elif head == "Rss:" and inside:
        total += int(line.split()[1])
print(total)
PY
}

sleep 0.5
rss_start=$(guest_rss_kb $pid)
python3 "$SRC/scripts/request_loop.py" "$root/tmp/dsd_server.sock" "$REQUESTS"
rss_after=$(guest_rss_kb $pid)

printf '| stripped dsd (armhf) | %d bytes (%.2f MB) |\n' "$size" "$(awk -v s="$size" 'BEGIN{print s/1048576}')"
printf '| resident after start-up (guest) | %d KiB |\n' "$rss_start"
printf '| resident after %d requests (guest) | %d KiB |\n' "$REQUESTS" "$rss_after"
