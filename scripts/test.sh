#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test: the native suite, then the
# same suite cross-built for armhf and run under qemu-arm.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCFG_BUILD_TESTS=ON >/dev/null
cmake --build build -j"$(nproc)"
(cd build && ctest -j"$(nproc)" --output-on-failure)
bash scripts/arm-test.sh
