#!/usr/bin/env bash
# Builds dsd and starts it on this machine against a sample configuration
# root, beside the host bus with its simulated peer daemons, then shows one
# request answered. dsd and the bus keep running; stop them with
#   kill $(cat "$DSD_ROOT"/run.pids)
# Usage: scripts/run-host.sh [root-dir] [channels]
set -euo pipefail
cd "$(dirname "$0")/.."
SRC=$PWD
export DSD_ROOT=${1:-$SRC/build/host-root}
CHANNELS=${2:-16}
BUILD=$SRC/build/native

[ -n "${DSD_SKIP_INSTALL:-}" ] || scripts/install-deps.sh
cmake -S "$SRC" -B "$BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$BUILD" -j"$(nproc)"

if [ -f "$DSD_ROOT/run.pids" ]; then kill $(cat "$DSD_ROOT/run.pids") 2>/dev/null || true; fi
mkdir -p "$DSD_ROOT"/{etc/config,tmp,var/run,var/log,usr/bin}
touch "$DSD_ROOT/usr/bin/dsd"   # the shared-memory key is made from this file
if [ -x "$BUILD/tools/mkconfig" ]; then
  "$BUILD/tools/mkconfig" "$DSD_ROOT/etc/config" "$CHANNELS"
else
  printf "\nconfig system 'sys'\n\toption debug_mode '0'\n" >"$DSD_ROOT/etc/config/system"
  printf "\nconfig basic_info 'info'\n\toption chan_amount '%s'\n" "$CHANNELS" >"$DSD_ROOT/etc/config/basic_info"
fi

: >"$DSD_ROOT/run.pids"
if [ -x "$BUILD/tools/hostbus" ]; then
  "$BUILD/tools/hostbus" --root "$DSD_ROOT" --log "$DSD_ROOT/var/log/bus-calls.jsonl" \
    >"$DSD_ROOT/hostbus.log" 2>&1 &
  echo $! >>"$DSD_ROOT/run.pids"
fi
"$BUILD/dsd" -d >"$DSD_ROOT/dsd.log" 2>&1 &
echo $! >>"$DSD_ROOT/run.pids"

for _ in $(seq 100); do
  [ -S "$DSD_ROOT/tmp/dsd_server.sock" ] && break
  sleep 0.05
done
echo "dsd running with DSD_ROOT=$DSD_ROOT (log: $DSD_ROOT/dsd.log)"
echo '> {"method":"get","video":{"name":["chn1_main","chn2_minor"]}}'
"$BUILD/tools/dsdc" -s "$DSD_ROOT/tmp/dsd_server.sock" '{"method":"get","video":{"name":["chn1_main","chn2_minor"]}}'
