#!/usr/bin/env bash
# Builds the service and runs it on a fresh copy of the demo system root in examples/root.
# Stop it with Ctrl-C (SIGINT) or `ETL_ROOT=build/demo-root build/tools/etlmsg/etlmsg quit configServer`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh native
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build build -j"$(nproc)" --target configServer etlmsg
rm -rf build/demo-root
cp -a examples/root build/demo-root
export ETL_ROOT="$PWD/build/demo-root"
echo "system root: $ETL_ROOT"
cd "$ETL_ROOT"
exec "$OLDPWD/build/app/configServer/configServer"
