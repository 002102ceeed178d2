#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Fails when a file of libvxhmx includes a header of a layer above its own,
# or when one transport includes another. The layers, from the bottom:
#   include (the public header), wire, os, bytes, state,
#   transport/ioctl | transport/sysfs | transport/netlink, dispatch, api.
# Usage: check-hmxapi-layers.sh [HMXAPI_DIR]
set -euo pipefail
dir=${1:-"$(dirname "$0")/../hmxapi"}
cd "$dir"

rank() {
    case $1 in
    include/*) echo 0 ;;
    wire/*) echo 1 ;;
    os/*) echo 2 ;;
    bytes/*) echo 3 ;;
    state/*) echo 4 ;;
    transport/*) echo 5 ;;
    dispatch/*) echo 6 ;;
    api/*) echo 7 ;;
    *) echo 99 ;;
    esac
}

declare -A where=()
while IFS= read -r f; do
    base=${f##*/}
    if [[ -n ${where[$base]:-} ]]; then
        echo "check-hmxapi-layers: $base is both ${where[$base]} and $f" >&2
        exit 1
    fi
    where[$base]=$f
done < <(find include wire os bytes state transport dispatch api -name '*.h' | sort)

bad=0
while IFS= read -r f; do
    r=$(rank "$f")
    if [[ $r == 99 ]]; then
        echo "$f: outside every layer" >&2
        bad=1
        continue
    fi
    while IFS= read -r inc; do
        target=${where[$inc]:-}
        if [[ -z $target ]]; then
            echo "$f: includes \"$inc\", which is no header of the library" >&2
            bad=1
            continue
        fi
        t=$(rank "$target")
        if ((t > r)); then
            echo "$f: includes $target, a layer above its own" >&2
            bad=1
        elif [[ $f == transport/* && $target == transport/* ]]; then
            from=${f#transport/}
            to=${target#transport/}
            if [[ ${from%%/*} != "${to%%/*}" ]]; then
                echo "$f: includes $target, another transport" >&2
                bad=1
            fi
        fi
    done < <(sed -n 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*"\([^"]*\)".*/\1/p' "$f")
done < <(find . -path ./include -prune -o \( -name '*.h' -o -name '*.cpp' \) -print | sed 's|^\./||' | sort)
if ((bad)); then
    echo "check-hmxapi-layers: includes must go down the layers (see hmxapi/README.md)" >&2
    exit 1
fi
echo "check-hmxapi-layers: every include goes down"
