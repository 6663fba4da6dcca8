#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCFG_BUILD_TESTS=ON >/dev/null
cmake --build build -j"$(nproc)"
cd build && ctest -j"$(nproc)" --output-on-failure
