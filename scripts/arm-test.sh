#!/usr/bin/env bash
# Cross-builds the whole project for armhf and runs the complete test suite under qemu-arm.
# On a fresh Debian machine as root it first adds the armhf architecture and installs the cross
# compiler, qemu-user and the armhf development packages.
set -euo pipefail
cd "$(dirname "$0")/.."
SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
pkgs=(crossbuild-essential-armhf qemu-user libpugixml-dev:armhf libgtest-dev:armhf libgmock-dev:armhf
      libasio-dev libsimpleini-dev cmake)
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  dpkg --print-foreign-architectures | grep -qx armhf || $SUDO dpkg --add-architecture armhf
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" >/dev/null
fi
cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCFG_BUILD_TESTS=ON >/dev/null
cmake --build build-armhf -j"$(nproc)"
cd build-armhf && ctest -j"$(nproc)" --output-on-failure --timeout 300
