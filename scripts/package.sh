#!/usr/bin/env bash
# Builds one flavour of the tree (plain, the default, or armhf) and makes its Debian packages:
# libkorvelplayer5, libkorvelplayer-dev and vendra-player, in <build dir>/packages. Prints the
# paths of the .deb files.
set -euo pipefail
flavour=${1:-plain}
root=$(cd "$(dirname "$0")/.." && pwd)
case "$flavour" in
    plain|armhf) ;;
    *) echo "package.sh: unknown flavour '$flavour' (plain, armhf)" >&2; exit 2 ;;
esac
# CPack's Debian generator reads the binaries with file and takes their dependencies from
# dpkg-shlibdeps.
if ! command -v dpkg-shlibdeps >/dev/null || ! command -v file >/dev/null; then
    [ "$(id -u)" = 0 ] || { echo "package.sh: needs dpkg-dev and file (apt-get install dpkg-dev file)" >&2; exit 1; }
    apt-get -o DPkg::Lock::Timeout=600 -y -q install --no-install-recommends dpkg-dev file >&2
fi
dir=$(bash "$root/scripts/build.sh" "$flavour" | tail -n 1)
[ -f "$dir/CPackConfig.cmake" ] || { echo "package.sh: no CPack configuration in '$dir'" >&2; exit 1; }
out=$dir/packages
# Packages of an earlier version would be listed as if they were this build's.
rm -rf "$out"
cpack --config "$dir/CPackConfig.cmake" -B "$out" >&2
find "$out" -maxdepth 1 -name '*.deb' | sort
