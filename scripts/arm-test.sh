#!/usr/bin/env bash
# Cross-builds the whole project for armhf and runs the complete test suite under qemu-arm.
# On a fresh Debian machine it first adds the armhf architecture and installs the cross compiler,
# qemu-user and the armhf development packages (scripts/deps.sh arm).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh arm
cmake -S . -B build-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCFG_BUILD_TESTS=ON >/dev/null
cmake --build build-armhf -j"$(nproc)"
cd build-armhf && ctest -j"$(nproc)" --output-on-failure --timeout 300
