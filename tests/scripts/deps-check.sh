#!/usr/bin/env bash
# scripts/deps.sh against a fake apt (first on PATH): a failing `apt-get update` does not stop
# the install, and a package that cannot be installed stops it with one line naming it.
set -euo pipefail
deps=$(cd "$(dirname "$0")/../.." && pwd)/scripts/deps.sh
fake=$(mktemp -d); trap 'rm -rf "$fake"' EXIT
cat >"$fake/apt-get" <<'FAKE'
#!/bin/sh
echo "$*" >>"$FAKE_DIR/calls"
case "$*" in *update*) exit 100 ;; *"$FAKE_BROKEN"*) exit 100 ;; esac
exit 0
FAKE
printf '#!/bin/sh\nexit 1\n' >"$fake/dpkg-query"          # every package is missing
printf '#!/bin/sh\necho armhf\n' >"$fake/dpkg"              # the architecture is there
printf '#!/bin/sh\necho 0\n' >"$fake/id"
printf '#!/bin/sh\nexit 0\n' >"$fake/sleep"
chmod +x "$fake"/*
export FAKE_DIR=$fake PATH="$fake:$PATH"
fail() { echo "FAIL: $*"; cat "$fake/calls" 2>/dev/null; exit 1; }

FAKE_BROKEN=none bash "$deps" native >"$fake/out" 2>&1 || fail "deps.sh stopped on a failing update: $(cat "$fake/out")"
[ "$(grep -c '^update' "$fake/calls")" -eq 2 ] || fail "update not retried exactly once"
grep -q '^install -y -qq cmake .*libbenchmark-dev$' "$fake/calls" || fail "install did not follow"

rm -f "$fake/calls"
if FAKE_BROKEN=libgtest-dev:armhf bash "$deps" arm >/dev/null 2>"$fake/err"; then fail "a broken package did not stop the run"; fi
[ "$(wc -l <"$fake/err")" -eq 1 ] || fail "more than one line: $(cat "$fake/err")"
grep -q 'libgtest-dev:armhf for the arm step' "$fake/err" || fail "the line does not name the package and step: $(cat "$fake/err")"
echo "deps.sh: update failures tolerated, broken package named"
