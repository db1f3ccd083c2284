#!/usr/bin/env bash
# Builds dsd and starts it on this machine against a sample configuration
# root, beside the host bus with its simulated peer daemons, then shows one
# request answered and how to go on. dsd and the bus keep running until
# `scripts/run-host.sh stop [root-dir]`.
# Usage: scripts/run-host.sh [root-dir] [channels]
#        scripts/run-host.sh stop [root-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
SRC=$PWD
BUILD=$SRC/build/native

# Stops what an earlier start recorded in <root>/run.pids; quiet when nothing runs.
stop_all() {
  local pids=$1/run.pids
  [ -f "$pids" ] || return 0
  kill $(cat "$pids") 2>/dev/null || true
  rm -f "$pids"
}

if [ "${1:-}" = stop ]; then
  root=${2:-$SRC/build/host-root}
  stop_all "$root"
  echo "stopped dsd and the host bus of $root"
  exit 0
fi

export DSD_ROOT=${1:-$SRC/build/host-root}
CHANNELS=${2:-16}

[ -n "${DSD_SKIP_INSTALL:-}" ] || scripts/install-deps.sh
cmake -S "$SRC" -B "$BUILD" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDSD_WERROR=ON >/dev/null
cmake --build "$BUILD" -j"$(nproc)"

stop_all "$DSD_ROOT"
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
DSDC="DSD_ROOT=$DSD_ROOT $BUILD/tools/dsdc"
echo "dsd running with DSD_ROOT=$DSD_ROOT (log: $DSD_ROOT/dsd.log)"
echo "\$ $DSDC get video chn1_main chn2_minor"
"$BUILD/tools/dsdc" get video chn1_main chn2_minor || true
cat <<MSG

Talk to it (dsdc finds the socket through DSD_ROOT; '$BUILD/tools/dsdc --help' lists all):
  $DSDC get video chn1_main
  $DSDC set motion_detection.chn1_motion_det.enabled=on
  $DSDC do motion_detection chn_get_md_regions '{"channel":1}'
  $DSDC '{"method":"get","video":{"name":"chn1_main"}}'
Stop dsd and the host bus:
  scripts/run-host.sh stop${1:+ $DSD_ROOT}
MSG
