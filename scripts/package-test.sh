#!/usr/bin/env bash
# Builds the Debian packages for amd64 and armhf (the cross build) and checks them: file lists,
# declared dependencies, one version everywhere, the unit (systemd-analyze verify), the manual
# pages, the bash completion, and the init script starting and stopping the packaged service.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh package

fail() { echo "package-test: $*" >&2; exit 1; }
build() { # build dir, extra cmake arguments
  local dir=$1; shift
  cmake -S . -B "$dir" --no-warn-unused-cli -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCFG_BUILD_TESTS=OFF \
        -DCMAKE_INSTALL_PREFIX=/usr "$@" >/dev/null
  cmake --build "$dir" -j"$(nproc)" >/dev/null
  rm -f "$dir"/*.deb
  (cd "$dir" && cpack >/dev/null)
  ls "$dir"/configserver_*.deb
}
DEB_AMD64=$(build build-pkg)
DEB_ARMHF=$(build build-pkg-armhf -DCMAKE_TOOLCHAIN_FILE=cmake/arm-linux-gnueabihf.cmake)
VERSION=$(sed -n 's/.*project(configServer VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT

expected="-rwxr-xr-x ./etc/init.d/configServer
-rw-r--r-- ./lib/systemd/system/configServer.service
-rwxr-xr-x ./usr/bin/configServer
-rwxr-xr-x ./usr/bin/etlmsg
-rw-r--r-- ./usr/share/bash-completion/completions/etlmsg
-rw-r--r-- ./usr/share/man/man1/etlmsg.1
-rw-r--r-- ./usr/share/man/man8/configServer.8"
for arch in amd64 armhf; do
  deb=$DEB_AMD64; machine="X86-64"
  [ $arch = armhf ] && deb=$DEB_ARMHF && machine="ARM"
  [ "$(basename "$deb")" = "configserver_${VERSION}_${arch}.deb" ] || fail "unexpected file name $deb"
  files=$(dpkg-deb --contents "$deb" | awk '$1 !~ /^d/ && $6 !~ /share\/configServer\/root/ {print $1, $6}')
  [ "$files" = "$expected" ] || fail "$arch file list:"$'\n'"$files"
  info=$(dpkg-deb --info "$deb")
  grep -qx " Architecture: $arch" <<<"$info" || fail "$arch: Architecture"
  grep -qx " Version: $VERSION" <<<"$info" || fail "$arch: Version"
  depends=$(sed -n 's/^ Depends: //p' <<<"$info")
  for lib in libc6 libpugixml1v5 libstdc++6; do
    grep -q "\b$lib (>= " <<<"$depends" || fail "$arch: $lib missing from Depends: $depends"
  done
  grep -qx /etc/init.d/configServer < <(dpkg-deb --ctrl-tarfile "$deb" | tar -xO ./conffiles) || fail "$arch: conffiles"
  mkdir -p "$WORK/$arch"
  dpkg-deb -x "$deb" "$WORK/$arch"
  for bin in configServer etlmsg; do
    readelf -h "$WORK/$arch/usr/bin/$bin" | grep -q "Machine:.*$machine" || fail "$arch: $bin is not built for $machine"
  done
  # The armhf dependencies are declared by hand; they must be what dpkg-shlibdeps finds.
  if [ $arch = armhf ]; then
    mkdir -p "$WORK/shl/debian" && printf 'Source: x\n\nPackage: x\nArchitecture: armhf\n' >"$WORK/shl/debian/control"
    found=$(cd "$WORK/shl" && DEB_HOST_ARCH=armhf dpkg-shlibdeps -O "$WORK/armhf/usr/bin/configServer" \
            "$WORK/armhf/usr/bin/etlmsg" 2>/dev/null | sed -n 's/^shlibs:Depends=//p')
    [ "$found" = "$depends" ] || fail "armhf Depends \"$depends\", dpkg-shlibdeps finds \"$found\""
  fi
done
cmp -s "$WORK/amd64/lib/systemd/system/configServer.service" "$WORK/armhf/lib/systemd/system/configServer.service" ||
  fail "the units of the two packages differ"
ROOTFS=$WORK/amd64
UNIT=$ROOTFS/lib/systemd/system/configServer.service

# One version: both programs print the package's.
[ "$("$ROOTFS/usr/bin/etlmsg" --version)" = "etlmsg $VERSION" ] || fail "etlmsg --version"
[ "$("$ROOTFS/usr/bin/configServer" --version)" = "configServer $VERSION" ] || fail "configServer --version"

# The unit: Type=notify, starts the packaged program, and systemd finds nothing to say about it.
grep -qx 'Type=notify' "$UNIT" || fail "unit: Type"
grep -qx 'ExecStart=/usr/bin/configServer' "$UNIT" || fail "unit: ExecStart"
if command -v systemd-analyze >/dev/null; then
  sed "s#^ExecStart=/usr/bin/#ExecStart=$ROOTFS/usr/bin/#" "$UNIT" >"$WORK/configServer.service"
  out=$(MANPATH=$ROOTFS/usr/share/man systemd-analyze verify "$WORK/configServer.service" 2>&1) || true
  [ -z "$out" ] || fail "systemd-analyze verify: $out"
  echo "package-test: systemd-analyze verify: clean"
else
  echo "package-test: no systemd-analyze here, unit not verified"
fi

# The manual pages render without a warning, under their names.
for page in man8/configServer.8 man1/etlmsg.1; do
  warn=$(groff -man -ww -z "$ROOTFS/usr/share/man/$page" 2>&1)
  [ -z "$warn" ] || fail "$page: $warn"
  name=$(basename "$page"); name=${name%.*}
  MANWIDTH=80 man -l "$ROOTFS/usr/share/man/$page" 2>/dev/null | grep -q "^NAME" || fail "$page does not render"
  MANWIDTH=80 man -l "$ROOTFS/usr/share/man/$page" 2>/dev/null | grep -q "^       $name " || fail "$page: NAME"
done

# The init script starts the packaged service (ready: wait + ping), completion sees its thread,
# and stop ends it.
export ETL_ROOT=$WORK/root
mkdir -p "$ETL_ROOT"
E=$ROOTFS/usr/bin/etlmsg
DAEMON=$ROOTFS/usr/bin/configServer PIDFILE=$WORK/configServer.pid sh "$ROOTFS/etc/init.d/configServer" start >/dev/null
"$E" wait configServer --timeout 30000 || fail "init script: the service did not register"
[ "$("$E" ping configServer --timeout 30000)" = 1 ] || fail "init script: no ping answer"
threads=$(bash -c 'source "$1"; COMP_WORDS=(etlmsg ping c); COMP_CWORD=2; _etlmsg; echo "${COMPREPLY[*]}"' \
          _ "$ROOTFS/usr/share/bash-completion/completions/etlmsg")
[ "$threads" = configServer ] || fail "completion offers \"$threads\""
pid=$(cat "$WORK/configServer.pid")
PIDFILE=$WORK/configServer.pid sh "$ROOTFS/etc/init.d/configServer" stop >/dev/null
for _ in $(seq 1 300); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
kill -0 "$pid" 2>/dev/null && fail "init script: the service did not stop"
[ ! -e "$ETL_ROOT/tmp/msgq/configServer" ] || fail "init script: the thread is still registered"
echo "package-test: $(basename "$DEB_AMD64") and $(basename "$DEB_ARMHF") pass"
