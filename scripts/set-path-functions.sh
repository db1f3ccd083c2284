#!/usr/bin/env bash
# Lists the distinct functions of the daemon's own code (core, model,
# modules, store, platform, crypto; not compat/ or system libraries) that
# one set of one option runs through, from accept to answer: callgrind on a
# daemon of BUILD_DIR (tools mkconfig, hostbus, dsdc built too) serving
# motion_detection.chn3_motion_notif_list.light_alarm_enabled after a warm-up.
# Usage: scripts/set-path-functions.sh BUILD_DIR   (needs valgrind)
set -euo pipefail
B=$(cd "$1" && pwd)
R=$(mktemp -d "${TMPDIR:-/tmp}/setpath.XXXXXX")
mkdir -p "$R"/{etc/config,tmp,var/run,var/log,usr/bin}
touch "$R/usr/bin/dsd"
"$B/tools/mkconfig" "$R/etc/config" 128 >/dev/null
export DSD_ROOT=$R
"$B/tools/hostbus" --root "$R" --log "$R/bus.jsonl" >"$R/hostbus.log" 2>&1 &
HB=$!
valgrind --tool=callgrind --callgrind-out-file="$R/cg.out" \
  --toggle-collect='ds_signal_handle*' "$B/dsd" >"$R/dsd.log" 2>&1 &
VG=$!
stop() { kill "$VG" "$HB" 2>/dev/null || true; wait "$VG" "$HB" 2>/dev/null || true; }
trap stop EXIT
for _ in $(seq 300); do [ -S "$R/tmp/dsd_server.sock" ] && break; sleep 0.1; done
D="$B/tools/dsdc"
opt=motion_detection.chn3_motion_notif_list.light_alarm_enabled
"$D" set "$opt=off" >/dev/null
"$D" get motion_detection chn3_motion_notif_list >/dev/null
callgrind_control -z "$VG" >/dev/null 2>&1
"$D" set "$opt=on" >/dev/null
callgrind_control -d "$VG" >/dev/null 2>&1
stop # the dump is complete once the daemon has exited
# Only functions that ran (a thread's entry idle on its stack costs "."),
# and a recursive call ("name'2") is the same function.
callgrind_annotate --inclusive=yes --threshold=100 "$R/cg.out.1" 2>/dev/null |
  grep -E '^ *[0-9][0-9,]* .*\]$' | sed -E 's/^ *[0-9,]+ \([^)]*\) +//; s/ \[[^]]*\]$//; s/'"'"'[0-9]+$//' |
  grep -E '^([^:]*/)?(core|model|modules/[a-z]+|store|platform|crypto)/[^/:]+:' | grep -v '/compat/' |
  sed -E 's#^([^:]*/)?((core|model|modules/[a-z]+|store|platform|crypto)/[^/:]+:)#\2#' |
  sort -u >"$R/functions.txt"
echo "functions: $(wc -l <"$R/functions.txt") in $(sed 's/:.*//' "$R/functions.txt" | sort -u | wc -l) files"
sed 's#/.*##' "$R/functions.txt" | sort | uniq -c
echo "list: $R/functions.txt"
