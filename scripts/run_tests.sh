#!/usr/bin/env bash
# Installs the dependencies, builds the tree and runs the whole test suite.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
dir=$(bash "$root/scripts/build.sh" plain)
cd "$dir"
ctest --output-on-failure --timeout 300 -j "$(nproc)"
