#!/usr/bin/env bash
# Builds dsd and runs the whole test suite: the native build, then the same
# suite linked against the device's own libubox, libuci and libubus with a
# real ubusd, under AddressSanitizer+UndefinedBehaviorSanitizer, the threaded
# tests under ThreadSanitizer, each fuzz target for a bounded time, and the
# armhf cross build under qemu-arm.
# Usage: scripts/test.sh [stage...]   stages: native real asan tsan fuzz armhf (default: all)
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
JOBS=${JOBS:-$(nproc)}
FUZZ_SECONDS=${FUZZ_SECONDS:-60}
stages=("$@")
# A fresh machine gets what it lacks first (no-op when all is installed).
[ "${DSD_SKIP_INSTALL:-0}" = 1 ] || "$ROOT/scripts/install-deps.sh" --cross
[ ${#stages[@]} -gt 0 ] || stages=(native real asan tsan fuzz armhf)

banner() { printf '\n==== %s ====\n' "$*"; }

configure_build() {  # dir, extra cmake args...
  local dir=$1; shift
  mkdir -p "$(dirname "$dir")"
  cmake -S "$ROOT" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DDSD_WERROR=ON "$@" >"$dir.configure.log" 2>&1 \
    || { cat "$dir.configure.log"; return 1; }
  grep 'dsd: platform libraries' "$dir.configure.log" || true
  cmake --build "$dir" -j"$JOBS"
}

stage_native() {
  banner "native build and tests"
  configure_build "$ROOT/build/native"
  (cd "$ROOT/build/native" && ctest --output-on-failure -j"$JOBS" --timeout 600)
}

stage_real() {
  banner "the device's libraries and ubusd"
  # Built from the source archives beside the shared tree, without network;
  # components already built at the same commit are kept.
  local prefix="$ROOT/build/openwrt" builder="$ROOT/../shared/openwrt/build.sh"
  [ -f "$builder" ] || { echo "real: $builder (and its source archives) missing" >&2; return 1; }
  JOBS=$JOBS sh "$builder" "$prefix"
  # -U: found libraries are cached; a build tree configured against another
  # prefix must look again here.
  configure_build "$ROOT/build/real" -DDSD_PLATFORM_LIBS=REAL -DDSD_BUILD_BENCH=OFF \
    -U'UCI_*' -U'UBUS_*' -U'UBOX_*' -UBLOBMSG_JSON_LIB -U'DSD_UBUS*' \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_LIBRARY_PATH="$prefix/lib" \
    -DCMAKE_INCLUDE_PATH="$prefix/include" -DCMAKE_BUILD_RPATH="$prefix/lib"
  (cd "$ROOT/build/real" && ctest --output-on-failure -j"$JOBS" --timeout 600)
}

stage_asan() {
  banner "AddressSanitizer + UndefinedBehaviorSanitizer"
  configure_build "$ROOT/build/asan" -DDSD_SANITIZE="address;undefined" -DDSD_BUILD_BENCH=OFF
  (cd "$ROOT/build/asan" && \
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    ctest --output-on-failure -j"$JOBS" --timeout 900)
}

stage_tsan() {
  banner "ThreadSanitizer (threaded tests)"
  configure_build "$ROOT/build/tsan" -DDSD_SANITIZE=thread -DDSD_BUILD_BENCH=OFF
  (cd "$ROOT/build/tsan" && TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 \
    ctest --output-on-failure -j"$JOBS" --timeout 900 -L threads)
}

stage_fuzz() {
  banner "fuzz targets, ${FUZZ_SECONDS}s each"
  CC=clang-14 CXX=clang++-14 configure_build "$ROOT/build/fuzz" -DDSD_BUILD_FUZZ=ON \
    -DDSD_BUILD_TESTS=ON -DDSD_BUILD_BENCH=OFF
  "$ROOT/scripts/fuzz.sh" "$ROOT/build/fuzz" "$FUZZ_SECONDS"
}

stage_armhf() {
  banner "armhf cross build and tests under qemu-arm"
  "$ROOT/scripts/cross-armhf.sh" test
}

for s in "${stages[@]}"; do
  "stage_$s"
done
banner "all stages passed: ${stages[*]}"
