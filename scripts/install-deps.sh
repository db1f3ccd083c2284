#!/usr/bin/env bash
# Installs what building and testing dsd needs on a fresh Debian machine.
# Usage: scripts/install-deps.sh [--cross]   (--cross adds the armhf toolchain and qemu)
set -euo pipefail
export DEBIAN_FRONTEND=noninteractive
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

pkgs=(build-essential cmake pkg-config libjson-c-dev libcurl4-openssl-dev
      libgtest-dev libgmock-dev libbenchmark-dev clang-14 libclang-rt-14-dev
      openssl python3 procps)
if [ "${1:-}" = "--cross" ]; then
  pkgs+=(gcc-arm-linux-gnueabihf g++-arm-linux-gnueabihf qemu-user binutils-arm-linux-gnueabihf)
fi

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
