#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the Debian packages flashwright needs to build and test, and any
# packages named as arguments; only what is missing.
set -euo pipefail
packages=(
  cmake ninja-build g++ gcc pkg-config make
  libsysfs-dev            # sysfs walking in libvxhmx
  libfuse3-dev fuse3      # vxemu serves /sys through FUSE
  libseccomp-dev          # vxemu intercepts driver requests
  nlohmann-json3-dev      # vxemu host descriptions
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-dev    # fuzz targets (libFuzzer, ASan, UBSan)
  util-linux              # unshare, setpriv for the tests
  scdoc                   # manual pages
  man-db groff-base       # rendering them in the tests
  abigail-tools           # the library's ABI check
  ansible-core            # only the fleet rollout test (tests/e2e/fleet) needs it
  python3-jsonschema      # host descriptions checked against their JSON Schema
  strace
  "$@"
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo=""; [ "$(id -u)" -eq 0 ] || sudo=sudo
  # Wait for another installer instead of failing on the package lock.
  $sudo apt-get -o DPkg::Lock::Timeout=600 update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get -o DPkg::Lock::Timeout=600 install -y -qq "${missing[@]}"
fi
