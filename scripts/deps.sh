#!/usr/bin/env bash
# Installs the Debian packages each step of the test command needs, when any is missing:
#   bash scripts/deps.sh [native|arm|package|sanitize|fuzz]...   (no step: native)
# A failing `apt-get update` (a mirror still syncing one index) is retried once and then left to
# the install that follows; a package that cannot be installed stops the run with one line.
set -euo pipefail

packages_of() {
  case "$1" in
    native)   echo cmake g++ make pkg-config libpugixml-dev libsimpleini-dev libgtest-dev \
                   libgmock-dev libbenchmark-dev ;;
    arm)      echo crossbuild-essential-armhf qemu-user libpugixml-dev:armhf libgtest-dev:armhf \
                   libgmock-dev:armhf libsimpleini-dev cmake ;;
    # dpkg-dev: dpkg-shlibdeps for the native dependencies; man-db: renders the manual pages.
    package)  echo dpkg-dev man-db ;;
    sanitize) echo clang libclang-rt-dev ;;
    fuzz)     echo clang libclang-rt-dev ;;
    *) echo "deps.sh: unknown step [$1] (native, arm, package, sanitize, fuzz)" >&2; return 1 ;;
  esac
}

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q 'install ok installed'; }

SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
log=$(mktemp /tmp/deps-XXXXXX.log)
updated=0

install_step() {
  local step=$1 p missing=()
  for p in $(packages_of "$step"); do
    installed "$p" || missing+=("$p")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "$step: installing ${missing[*]}"
  if [ "$step" = arm ] && ! dpkg --print-foreign-architectures | grep -qx armhf; then
    $SUDO dpkg --add-architecture armhf
    updated=0
  fi
  if [ $updated -eq 0 ]; then
    updated=1
    if ! $SUDO apt-get update -qq >>"$log" 2>&1; then
      echo "apt-get update failed; trying once more"
      sleep 2
      $SUDO apt-get update -qq >>"$log" 2>&1 || echo "apt-get update failed again; installing from the indexes at hand"
    fi
  fi
  $SUDO apt-get install -y -qq "${missing[@]}" >>"$log" 2>&1 && return 0
  # Name the package that cannot be installed: the first that fails on its own.
  for p in "${missing[@]}"; do
    installed "$p" || $SUDO apt-get install -y -qq "$p" >>"$log" 2>&1 || {
      echo "deps.sh: cannot install $p for the $step step (apt output: $log)" >&2
      exit 1
    }
  done
}

[ $# -gt 0 ] || set -- native
for step in "$@"; do
  packages_of "$step" >/dev/null
  install_step "$step"
done
rm -f "$log"
