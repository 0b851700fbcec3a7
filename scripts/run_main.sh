#!/usr/bin/env bash
# Installs the dependencies, builds the tree and runs the demo player.
set -eu
root=$(cd "$(dirname "$0")/.." && pwd)
bash "$root/scripts/setup.sh"
dir=$(bash "$root/scripts/build.sh" plain)
exec "$dir/app/vendra_player" "$@"
