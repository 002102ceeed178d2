#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian source package and the binary packages flashwright,
# libvxhmx5, libvxhmx-dev and vxemu into build-deb/, runs lintian on them and
# lists where each file goes.
# Installs what it needs first (the build dependencies, debhelper, lintian).
set -euo pipefail
cd "$(dirname "$0")/.."
src=$(pwd -P)

scripts/setup.sh debhelper lintian dpkg-dev fakeroot

out=$src/build-deb
version=$(dpkg-parsechangelog -l debian/changelog -S Version)
project=$(sed -n 's/^project(flashwright VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
if [ "${version%%-*}" != "$project" ]; then
  echo "package: debian/changelog says $version, CMakeLists.txt says $project" >&2
  exit 1
fi
tree=$out/src/flashwright-$version
rm -rf "$out"
mkdir -p "$tree"
# Build from the committed and staged files only, never from build trees.
git ls-files -z --cached | (cd "$src" && xargs -0 cp --parents -t "$tree")

start=$(date +%s)
(cd "$tree" && dpkg-buildpackage -us -uc -j2) >"$out/build.log" 2>&1 || {
  tail -40 "$out/build.log" >&2
  echo "package: dpkg-buildpackage failed; full log in $out/build.log" >&2
  exit 1
}
mv "$out"/src/*.deb "$out"/src/*.dsc "$out"/src/*.tar.* "$out"/src/*.changes "$out"/src/*.buildinfo "$out"/
rm -rf "$out/src"
echo "package: built in $(($(date +%s) - start)) s:"
ls -1 "$out"/*.deb

# Where every file lands.
for deb in "$out"/*.deb; do
  echo "== $(basename "$deb")"
  dpkg-deb -c "$deb" | awk '{ print $6, $7, $8 }'
done

echo "== lintian"
lintian --fail-on error,warning --display-info --pedantic "$out"/*.changes
echo "package: lintian clean"
