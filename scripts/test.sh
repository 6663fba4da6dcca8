#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test: the native suite, the same
# suite cross-built for armhf under qemu-arm, the Debian packages of both, the suite again under
# ASan and UBSan, and a short run of every fuzz target.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh native
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCFG_BUILD_TESTS=ON >/dev/null
cmake --build build -j"$(nproc)"
(cd build && ctest -j"$(nproc)" --output-on-failure)
bash scripts/arm-test.sh
bash scripts/package-test.sh
bash scripts/sanitize-test.sh
bash scripts/fuzz-smoke.sh
