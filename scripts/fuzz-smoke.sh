#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, with ASan and UBSan) and runs each on its seed corpus for a
# short while (FUZZ_SECONDS, default 20). Any crash fails the run; the input is left in build-fuzz/.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh native fuzz
seconds=${FUZZ_SECONDS:-20}
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCFG_FUZZ=ON -DCFG_BUILD_TESTS=OFF >/dev/null
cmake --build build-fuzz -j"$(nproc)" >/dev/null
export ASAN_OPTIONS="detect_leaks=0"
failed=0
for dir in fuzz/corpus/*/; do
  target=$(basename "$dir")
  work=build-fuzz/corpus/$target
  mkdir -p "$work"
  cp -n "$dir"* "$work/" 2>/dev/null || true
  if build-fuzz/fuzz/"$target" -max_total_time="$seconds" -max_len=65536 -timeout=10 \
       -artifact_prefix=build-fuzz/"$target"- "$work" >/dev/null 2>build-fuzz/"$target".log; then
    echo "$target: $(grep -E '^#[0-9]+.*(DONE|pulse)' build-fuzz/"$target".log | tail -1)"
  else
    echo "$target: FAILED (see build-fuzz/$target.log)"; tail -30 build-fuzz/"$target".log; failed=1
  fi
done
exit $failed
