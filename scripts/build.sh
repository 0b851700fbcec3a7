#!/usr/bin/env bash
# Configures and builds one flavour of the tree: plain (default), asan (AddressSanitizer +
# UndefinedBehaviorSanitizer) or tsan (ThreadSanitizer). Prints the build directory.
set -eu
flavour=${1:-plain}
root=$(cd "$(dirname "$0")/.." && pwd)
case "$flavour" in
    plain) options=() ;;
    asan) options=(-DKORVEL_ASAN=ON -DKORVEL_BUILD_BENCH=OFF) ;;
    tsan) options=(-DKORVEL_TSAN=ON -DKORVEL_BUILD_BENCH=OFF) ;;
    *) echo "build.sh: unknown flavour '$flavour' (plain, asan, tsan)" >&2; exit 2 ;;
esac
dir="$root/build${flavour/plain/}"
[ "$flavour" = plain ] || dir="$root/build-$flavour"
cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${options[@]}" >&2
cmake --build "$dir" --parallel "$(nproc)" >&2
echo "$dir"
