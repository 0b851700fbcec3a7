#!/usr/bin/env bash
# Installs the build into a scratch prefix and builds a small host program against what was
# installed, once through pkg-config and once through find_package, then runs both. Catches a
# missing header, an internal header leaking into a public one, a package file pointing at the
# build tree or at the configured prefix instead of the installed one, and a broken SONAME link.
# Usage: install_consumer.sh BUILD_DIR CONSUMER_SOURCE_DIR CXX
set -euo pipefail
build=$1
consumer=$2
cxx=$3
scratch=$(mktemp -d "${TMPDIR:-/tmp}/korvel_install_XXXXXX")
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log" || { cat "$scratch/install.log"; fail "install"; }

# The tree a device and a host expect. The library directory may be lib, lib64 or multiarch.
pc=$(find "$prefix" -name korvelplayer.pc -path '*/pkgconfig/*')
[ -n "$pc" ] || fail "no korvelplayer.pc installed"
libdir=$(dirname "$(dirname "$pc")")
for f in "$libdir/libkorvelplayer.so.5.0" "$libdir/cmake/korvelplayer/korvelplayerConfig.cmake" \
         "$libdir/cmake/korvelplayer/korvelplayerConfigVersion.cmake" "$prefix/bin/vendra_player" \
         "$prefix/lib/systemd/system/vendra_player.service" \
         "$prefix/share/doc/korvelplayer/examples/vendra_player.conf" \
         "$prefix/share/doc/korvelplayer/examples/asound.conf"; do
    [ -f "$f" ] || fail "not installed: ${f#"$prefix"/}"
done
[ "$(readlink "$libdir/libkorvelplayer.so.5")" = libkorvelplayer.so.5.0 ] || fail "SONAME link"
[ "$(readlink "$libdir/libkorvelplayer.so")" = libkorvelplayer.so.5 ] || fail "development link"
soname=$(objdump -p "$libdir/libkorvelplayer.so.5.0" | awk '/SONAME/ { print $2 }')
[ "$soname" = libkorvelplayer.so.5 ] || fail "SONAME is '$soname'"
unit=$prefix/lib/systemd/system/vendra_player.service
grep -qx "ExecStart=$prefix/bin/vendra_player" "$unit" || fail "the unit does not start the installed program"
if command -v systemd-analyze >/dev/null; then
    verdict=$(systemd-analyze verify --man=no "$unit" 2>&1) || fail "systemd rejects the unit: $verdict"
    [ -z "$verdict" ] || fail "systemd warns about the unit: $verdict"
fi

# Every installed header compiles on its own: none may reach for one that was not installed.
headers=("$prefix"/include/korvelplayer/*.h)
[ "${#headers[@]}" -ge 8 ] || fail "only ${#headers[@]} headers installed"
for h in "${headers[@]}"; do
    echo "#include <korvelplayer/$(basename "$h")>" | "$cxx" -std=c++17 -Wall -Wextra -Werror \
        -fsyntax-only -I"$prefix/include" -x c++ - || fail "$(basename "$h") does not compile alone"
done

export LD_LIBRARY_PATH=$libdir
# Whole output first: grep -q closing the pipe early would fail ldd under pipefail.
loads_installed() {
    local deps
    deps=$(ldd "$1")
    grep -q "libkorvelplayer.so.5 => $libdir/" <<<"$deps" || { echo "$deps" >&2; return 1; }
}
expect_output() {
    local out
    out=$("$@") || fail "$1 exited with $?"
    [ "$(sed -n 1p <<<"$out")" = "player vb5.00fb" ] || fail "$1 printed version: $out"
    grep -q "^EPLAYER_SOURCE_TIMEOUT" <<<"$(sed -n 2p <<<"$out")" || fail "$1 printed error text: $out"
    # The program must have run against the installed library, not one found elsewhere.
    loads_installed "$1" || fail "$1 does not load the installed library"
}

export PKG_CONFIG_PATH=$libdir/pkgconfig
# shellcheck disable=SC2046
"$cxx" -std=c++17 -Wall -Wextra -Werror -o "$scratch/consumer_pc" "$consumer/main.cpp" \
    $(pkg-config --cflags --libs korvelplayer) || fail "build with pkg-config"
expect_output "$scratch/consumer_pc"

cmake -S "$consumer" -B "$scratch/consumer_build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_BUILD_TYPE=Release >"$scratch/consumer.log" 2>&1 \
    || { cat "$scratch/consumer.log"; fail "configure with find_package"; }
cmake --build "$scratch/consumer_build" >>"$scratch/consumer.log" 2>&1 \
    || { cat "$scratch/consumer.log"; fail "build with find_package"; }
expect_output "$scratch/consumer_build/consumer"

# The installed program resolves its library from the prefix too.
loads_installed "$prefix/bin/vendra_player" || fail "vendra_player does not load the installed library"
echo "installed tree builds and runs host programs"
