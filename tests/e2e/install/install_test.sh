#!/bin/sh
# SPDX-License-Identifier: MIT
# Installs the build into a scratch prefix, moves the prefix elsewhere, and
# checks what a user of the installed tree meets: the files, a C client built
# with pkg-config and with find_package, the manual pages, bash completion.
# Called as: install_test.sh BUILD WORK SRCDIR CC LIBDIR [SANITIZER_FLAGS]
set -u
BUILD=$1 WORK=$2 HERE=$3 CC=$4 LIBDIR=$5 SANFLAGS=${6:-}
FAILS=0
fail() { echo "FAIL: $*" >&2; FAILS=$((FAILS + 1)); }

rm -rf "$WORK"
mkdir -p "$WORK"
cmake --install "$BUILD" --prefix "$WORK/stage" >"$WORK/install.log" 2>&1 || {
    cat "$WORK/install.log" >&2
    echo "FAIL: cmake --install" >&2
    exit 1
}
# Nothing may keep the prefix it was installed to.
mv "$WORK/stage" "$WORK/moved"
P=$WORK/moved

# --- files where they belong
for f in sbin/flashwright sbin/hmxinfo bin/vxemu bin/vxemu-capture share/doc/vxemu/vxemu-host.schema.json "$LIBDIR/libvxhmx.so.5" "$LIBDIR/libvxhmx.so" \
         include/vxhmx.h "$LIBDIR/pkgconfig/vxhmx.pc" "$LIBDIR/cmake/vxhmx/vxhmxConfig.cmake" \
         "$LIBDIR/cmake/vxhmx/vxhmxConfigVersion.cmake" \
         share/bash-completion/completions/flashwright share/bash-completion/completions/vxemu \
         share/doc/vxemu/examples/lab/host.json share/doc/libvxhmx-dev/examples/hmxinfo.c \
         share/doc/flashwright/LICENSE; do
    [ -e "$P/$f" ] || fail "not installed: $f"
done
grep -rl "$WORK/stage" "$P" >"$WORK/stale" 2>/dev/null && fail "files name the install prefix: $(cat "$WORK/stale")"
# Every installed program has its manual page.
for exe in "$P"/bin/* "$P"/sbin/*; do
    name=$(basename "$exe")
    ls "$P"/share/man/man[18]/"$name".[18] >/dev/null 2>&1 || fail "no manual page for $name"
done

# --- a client built with pkg-config
export PKG_CONFIG_PATH="$P/$LIBDIR/pkgconfig"
[ "$(pkg-config --modversion vxhmx)" = 5.0.0 ] || fail "pkg-config version: $(pkg-config --modversion vxhmx)"
flags=$(pkg-config --cflags --libs vxhmx) || fail "pkg-config vxhmx"
# shellcheck disable=SC2086
if "$CC" -std=c99 -Wall -Werror $SANFLAGS -o "$WORK/pc-client" "$HERE/consumer.c" $flags 2>"$WORK/cc.err"; then
    out=$(LD_LIBRARY_PATH="$P/$LIBDIR" "$WORK/pc-client") || fail "pkg-config client exit $?"
    [ "$out" = "v5.00 build7Pre1 05000700
Device not found" ] || fail "pkg-config client printed [$out]"
else
    cat "$WORK/cc.err" >&2
    fail "pkg-config client does not build: $CC ... $flags"
fi

# --- a client built with CMake's find_package
mkdir -p "$WORK/cmake-client"
cat >"$WORK/cmake-client/CMakeLists.txt" <<EOC
cmake_minimum_required(VERSION 3.25)
project(client C)
find_package(vxhmx 6 QUIET)
if(vxhmx_FOUND)
  message(FATAL_ERROR "version 6 accepted from a version 5 library")
endif()
find_package(vxhmx 5 REQUIRED)
add_executable(client $HERE/consumer.c)
target_link_libraries(client PRIVATE vxhmx::vxhmx)
EOC
unset CMAKE_C_COMPILER_LAUNCHER
if cmake -S "$WORK/cmake-client" -B "$WORK/cmake-client/build" -G Ninja -DCMAKE_PREFIX_PATH="$P" \
         -DCMAKE_C_COMPILER="$CC" -DCMAKE_C_FLAGS="$SANFLAGS" >"$WORK/cmake.log" 2>&1 &&
   cmake --build "$WORK/cmake-client/build" >>"$WORK/cmake.log" 2>&1; then
    out=$("$WORK/cmake-client/build/client") || fail "find_package client exit $?"
    [ "$out" = "v5.00 build7Pre1 05000700
Device not found" ] || fail "find_package client printed [$out]"
else
    cat "$WORK/cmake.log" >&2
    fail "find_package client does not build"
fi

# --- manual pages: every page renders without a single warning
pages=$(ls "$P"/share/man/man*/* 2>/dev/null)
[ "$(echo "$pages" | wc -w)" -ge 5 ] || fail "expected at least 5 manual pages, found: $pages"
for page in $pages; do
    MANWIDTH=80 man --warnings=w -l "$page" >"$WORK/page.txt" 2>"$WORK/page.err" || fail "man -l $page"
    [ -s "$WORK/page.err" ] && fail "$(basename "$page"): $(cat "$WORK/page.err")"
    zcat -f "$page" | groff -ww -z -t -man 2>"$WORK/page.err"
    [ -s "$WORK/page.err" ] && fail "$(basename "$page"): $(cat "$WORK/page.err")"
    [ -s "$WORK/page.txt" ] || fail "$(basename "$page") renders empty"
done
# The host page shows the built-in lab host as it is.
MANWIDTH=200 man -l "$P/share/man/man5/vxemu-host.5" 2>/dev/null | grep -q '"name": "lab141"' ||
    fail "vxemu-host(5) lacks the lab host"

# --- bash completion
if command -v bash >/dev/null; then
    complete_words() {  # FILE WORDS...: prints what completing the last word offers
        file=$1; shift
        bash -c '. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1));
                 f=$(complete -p "$1" | sed "s/.*-F \([^ ]*\).*/\1/"); $f; echo "${COMPREPLY[*]}"' \
            _ "$file" "$@"
    }
    C=$P/share/bash-completion/completions
    [ "$(complete_words "$C/flashwright" flashwright /)" = "/f /e /g /l /i /s /v /h" ] ||
        fail "flashwright /: $(complete_words "$C/flashwright" flashwright /)"
    [ "$(complete_words "$C/flashwright" flashwright -s -)" = "-f -e -g -l -i -s -v -h" ] ||
        fail "flashwright -s -: $(complete_words "$C/flashwright" flashwright -s -)"
    [ "$(complete_words "$C/flashwright" flashwright /F /)" = "/s /v /h" ] ||
        fail "flashwright /F /: $(complete_words "$C/flashwright" flashwright /F /)"
    [ "$(complete_words "$C/vxemu" vxemu r)" = run ] || fail "vxemu r"
    [ "$(complete_words "$C/vxemu" vxemu run --s)" = --state ] || fail "vxemu run --s"
    [ "$(complete_words "$C/vxemu" vxemu sh)" = show ] || fail "vxemu sh"
    [ "$(complete_words "$C/vxemu" vxemu diff --j)" = --json ] || fail "vxemu diff --j"
    [ "$(complete_words "$C/vxemu" vxemu capture --o)" = --out ] || fail "vxemu capture --o"
    [ "$(complete_words "$C/vxemu" vxemu mkimage nvram --for)" = --format ] || fail "vxemu mkimage nvram --for"
    [ "$(complete_words "$C/vxemu" vxemu mkimage multiboot --ch)" = "--chip --chip-code" ] ||
        fail "vxemu mkimage multiboot --ch: $(complete_words "$C/vxemu" vxemu mkimage multiboot --ch)"
fi

[ "$FAILS" -eq 0 ] || { echo "$FAILS check(s) failed" >&2; exit 1; }
echo "install tree OK"
