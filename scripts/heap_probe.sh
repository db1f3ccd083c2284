#!/bin/sh
# heap_probe.sh PID [WHEN]: where a running glibc process's memory is, for
# the bench's BENCH_PROBE: RssAnon, the allocator's figures (mallinfo2,
# called through gdb: bytes in the arena, in use, free inside it), and with
# PROBE_TRIM=1 RssAnon again after a malloc_trim(0) called the same way.
# Needs gdb and ptrace rights over PID.
pid=$1
grep RssAnon "/proc/$pid/status"
gdb -p "$pid" -batch -nx \
  -ex 'set $m = (unsigned long *) malloc(128)' \
  -ex 'call ((void (*)(void *)) mallinfo2)($m)' \
  -ex 'printf "arena %lu in use %lu free %lu\n", $m[0], $m[7], $m[8]' \
  -ex 'call (void) free($m)' 2>/dev/null | grep '^arena'
if [ "$PROBE_TRIM" = 1 ]; then
  gdb -p "$pid" -batch -nx -ex 'call (int) malloc_trim(0)' >/dev/null 2>&1
  echo "after malloc_trim(0): $(grep RssAnon "/proc/$pid/status")"
fi
