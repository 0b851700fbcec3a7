#!/usr/bin/env bash
# Cross builds the tree for the 32-bit ARM hard-float device (build-armhf/) and runs the whole test
# suite on this machine under qemu-arm user-mode emulation. Helpers the tests start (ffmpeg, mpg123,
# python3 servers) stay native; only our binaries, the test plugins of the virtual card and the
# target's libraries are armhf.
#
# Left out: the tests labelled native_only, which build and run host programs against an install
# tree and so need the build machine's own architecture. Extra arguments go to ctest.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
dir=$(bash "$root/scripts/build.sh" armhf)
cd "$dir"
# Emulated code runs several times slower; the timeouts of the suites themselves still apply, this
# one only stops a run that hangs outright.
ctest --output-on-failure --timeout 900 -j "$(nproc)" -LE '^native_only$' "$@"
