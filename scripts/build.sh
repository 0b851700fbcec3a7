#!/usr/bin/env bash
# Configures and builds one flavour of the tree: plain (default), asan (AddressSanitizer +
# UndefinedBehaviorSanitizer), tsan (ThreadSanitizer), armhf (cross build for the 32-bit ARM
# hard-float device, against the sysroot scripts/armhf_sysroot.sh prepares; its tests run under
# qemu-arm) or fuzz (the libFuzzer harnesses with clang-14, AddressSanitizer and
# UndefinedBehaviorSanitizer; only they are built, scripts/run_fuzz.sh runs them). Prints the build
# directory.
set -eu
flavour=${1:-plain}
targets=()
root=$(cd "$(dirname "$0")/.." && pwd)
case "$flavour" in
    plain) options=() ;;
    asan) options=(-DKORVEL_ASAN=ON -DKORVEL_BUILD_BENCH=OFF) ;;
    tsan) options=(-DKORVEL_TSAN=ON -DKORVEL_BUILD_BENCH=OFF) ;;
    armhf)
        sysroot=$(bash "$root/scripts/armhf_sysroot.sh")
        options=(-DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-armhf.cmake" -DKORVEL_ARMHF_SYSROOT="$sysroot")
        # A new sysroot (another package list) invalidates every path the cache found in the old one,
        # and the toolchain file's flags only reach a cache when it is made.
        cache="$root/build-armhf/CMakeCache.txt"
        if [ -f "$cache" ] && { ! grep -qxF "KORVEL_ARMHF_SYSROOT:PATH=$sysroot" "$cache" ||
                                [ "$root/cmake/toolchain-armhf.cmake" -nt "$cache" ]; }; then
            options+=(--fresh)
        fi ;;
    fuzz)
        options=(-DKORVEL_FUZZ=ON -DKORVEL_BUILD_BENCH=OFF -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14)
        targets=(--target korvel_fuzzers) ;;
    *) echo "build.sh: unknown flavour '$flavour' (plain, asan, tsan, armhf, fuzz)" >&2; exit 2 ;;
esac
dir="$root/build${flavour/plain/}"
[ "$flavour" = plain ] || dir="$root/build-$flavour"
cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${options[@]}" >&2
cmake --build "$dir" --parallel "$(nproc)" "${targets[@]}" >&2
echo "$dir"
