#!/usr/bin/env bash
# Builds everything with clang's AddressSanitizer and UndefinedBehaviorSanitizer and runs the
# whole suite, process-level tests included: the programs the tests start are the sanitized
# builds, and the leak checker runs at the end of every process (a full service life included).
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh native sanitize
CC=clang CXX=clang++ cmake -S . -B build-sanitize -DCMAKE_BUILD_TYPE=Debug -DCFG_SANITIZE=ON -DCFG_BUILD_TESTS=ON >/dev/null
cmake --build build-sanitize -j"$(nproc)"
export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:strict_string_checks=1:detect_stack_use_after_return=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export LSAN_OPTIONS="suppressions=$PWD/tests/sanitize/lsan.supp:print_suppressions=0"
cd build-sanitize && ctest -j"$(nproc)" --output-on-failure --timeout 300
