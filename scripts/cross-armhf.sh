#!/usr/bin/env bash
# Cross-builds dsd, its tools and its tests for armhf and runs the tests
# under qemu-arm. The armhf libraries come from Debian packages unpacked into
# a private sysroot (apt-get download + dpkg -x), using an apt state of its
# own, so the host's package database and native libraries are never touched.
# Usage: scripts/cross-armhf.sh [build|test|size]
set -euo pipefail
cd "$(dirname "$0")/.."
ROOT=$PWD
OUT=$ROOT/build/armhf
SYSROOT=$ROOT/build/armhf-sysroot
APTDIR=$ROOT/build/armhf-apt
JOBS=${JOBS:-$(nproc)}
mode=${1:-test}

apt_opts() {
  echo -o "Dir::State=$APTDIR/state" -o "Dir::State::Status=$APTDIR/state/status" \
       -o "Dir::Cache=$APTDIR/cache" -o "APT::Architecture=armhf" \
       -o "APT::Architectures::=armhf" -o "Debug::NoLocking=1" \
       -o "Acquire::Retries=3"
}

make_sysroot() {
  [ -f "$SYSROOT/.complete" ] && return 0
  rm -rf "$SYSROOT" "$APTDIR"
  mkdir -p "$SYSROOT" "$APTDIR/state/lists/partial" "$APTDIR/cache/archives/partial" "$APTDIR/debs"
  touch "$APTDIR/state/status"
  # A mirror in mid-sync can fail one index; what apt did fetch is enough
  # when the packages below resolve, which the download step checks.
  apt-get $(apt_opts) update -qq || echo "warning: armhf index update reported errors"
  local roots=(libjson-c-dev libcurl4-openssl-dev libgtest-dev libc6 libstdc++6 libgcc-s1)
  local pkgs
  pkgs=$(apt-cache $(apt_opts) depends --recurse --no-recommends --no-suggests \
          --no-conflicts --no-breaks --no-replaces --no-enhances "${roots[@]}" \
          | grep -E '^[a-z0-9]' | grep -v -E '^(debconf|perl-base|dpkg|install-info)' | sort -u)
  (cd "$APTDIR/debs" && apt-get $(apt_opts) download $pkgs >/dev/null)
  for deb in "$APTDIR"/debs/*.deb; do dpkg -x "$deb" "$SYSROOT"; done
  # Absolute symlinks inside the sysroot must point into it.
  find "$SYSROOT" -type l -lname '/*' | while read -r l; do
    ln -sfn "$SYSROOT$(readlink "$l")" "$l"
  done
  touch "$SYSROOT/.complete"
}

build() {
  make_sysroot
  export PKG_CONFIG_SYSROOT_DIR=$SYSROOT
  export PKG_CONFIG_LIBDIR=$SYSROOT/usr/lib/arm-linux-gnueabihf/pkgconfig:$SYSROOT/usr/share/pkgconfig
  export PKG_CONFIG_PATH=
  mkdir -p "$OUT"
  cmake -S "$ROOT" -B "$OUT" -DCMAKE_TOOLCHAIN_FILE="$ROOT/cmake/armhf-toolchain.cmake" \
        -DDSD_ARMHF_SYSROOT="$SYSROOT" -DCMAKE_BUILD_TYPE=MinSizeRel -DDSD_BUILD_BENCH=OFF -DDSD_WERROR=ON \
        >"$OUT.configure.log" 2>&1 || { cat "$OUT.configure.log"; exit 1; }
  grep 'dsd: platform libraries' "$OUT.configure.log" || true
  cmake --build "$OUT" -j"$JOBS"
  file "$OUT/dsd"
}

case $mode in
  build) build ;;
  test)
    build
    # End-to-end tests start ARM programs (dsd, tools) through this wrapper.
    export DSD_EXEC_WRAPPER="qemu-arm -L $SYSROOT"
    export QEMU_LD_PREFIX=$SYSROOT
    (cd "$OUT" && ctest --output-on-failure -j"$JOBS" --timeout 900) ;;
  size)
    build
    "$ROOT/scripts/footprint.sh" "$OUT" "$SYSROOT" ;;
  *) echo "usage: $0 [build|test|size]"; exit 2 ;;
esac
