#!/usr/bin/env bash
# Makes the Debian packages of a build, checks what each holds and depends on, installs them on this
# machine, builds a host program against the installed development package with pkg-config and with
# find_package on their default paths, runs it and the installed vendra_player, and purges the
# packages again, also when a check fails. Catches a file left out of every package or put into the
# wrong one, a missing or wrong dependency (the libraries the binaries link, the library of the same
# build), package files naming the staging tree instead of /usr, and a broken shlibs file.
# Packaging needs dpkg-dev and file (scripts/package.sh installs them); without them it is skipped.
# Usage: test_packages.sh BUILD_DIR CONSUMER_SOURCE_DIR CXX DEB_VERSION
# Exits 77 (skipped) where packages cannot be installed: not root, no apt, or korvelplayer already
# on the machine, which the clean-up would then remove.
set -euo pipefail
build=$1
consumer=$2
cxx=$3
version=$4
skip() { echo "SKIP: $*"; exit 77; }
fail() { echo "FAIL: $*" >&2; exit 1; }

[ "$(id -u)" = 0 ] || skip "installing packages needs root"
for tool in apt-get dpkg-deb dpkg-shlibdeps file readelf cpack pkg-config flock; do
    command -v "$tool" >/dev/null || skip "no $tool"
done
# Another run on this machine (another build tree, CI) installs and purges the same packages.
exec 9>/tmp/korvelplayer-packaging.lock
flock -w 300 9 || skip "another packaging test holds the machine"
packages=(libkorvelplayer5 libkorvelplayer-dev vendra-player)
for p in "${packages[@]}"; do
    status=$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true)
    [ -z "$status" ] || [ "$status" = not-installed ] || skip "$p is already on this machine ($status)"
done
for f in /usr/lib/libkorvelplayer.so.5 /usr/include/korvelplayer /usr/bin/vendra_player \
         /usr/local/lib/libkorvelplayer.so.5 /usr/local/lib/cmake/korvelplayer; do
    [ ! -e "$f" ] || skip "$f exists outside the packages"
done

scratch=$(mktemp -d "${TMPDIR:-/tmp}/korvel_packages_XXXXXX")
apt_get() { apt-get -y -q -o DPkg::Lock::Timeout=120 "$@"; }
purge() {
    local installed=()
    for p in "${packages[@]}"; do
        case $(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true) in
            ""|not-installed) ;;
            *) installed+=("$p") ;;
        esac
    done
    [ "${#installed[@]}" -eq 0 ] || apt_get remove --purge "${installed[@]}" >"$scratch/remove.log" 2>&1 \
        || { cat "$scratch/remove.log" >&2; return 1; }
}
trap 'purge || echo "FAIL: could not remove the packages" >&2; rm -rf "$scratch"' EXIT

out=$scratch/out
cpack --config "$build/CPackConfig.cmake" -B "$out" >"$scratch/cpack.log" 2>&1 \
    || { cat "$scratch/cpack.log"; fail "cpack"; }
arch=$(dpkg --print-architecture)
declare -A deb
for p in "${packages[@]}"; do
    deb[$p]=$out/${p}_${version}_${arch}.deb
    [ -f "${deb[$p]}" ] || fail "no ${deb[$p]##*/}; made: $(cd "$out" && echo *.deb)"
done
field() { dpkg-deb -f "${deb[$1]}" "$2"; }
files() { dpkg-deb -c "${deb[$1]}" | awk '$1 !~ /^d/ { print substr($6, 2) }' | sort; }
# Matches on whole outputs: grep -q closing a pipe early would fail its writer under pipefail.
holds() { grep -qx "$2" <<<"$(files "$1")" || fail "$1 does not hold $2"; }

# Every installed file is in exactly one package.
cmake --install "$build" --prefix "$scratch/tree/usr" >"$scratch/install.log" 2>&1 \
    || { cat "$scratch/install.log"; fail "install"; }
(cd "$scratch/tree" && find . ! -type d | sed 's/^\.//' | sort) >"$scratch/installed"
for p in "${packages[@]}"; do files "$p"; done | sort >"$scratch/packed"
diff "$scratch/installed" "$scratch/packed" >&2 || fail "packages differ from the install (< only installed, > packed)"

holds libkorvelplayer5 /usr/lib/libkorvelplayer.so.5.0
holds libkorvelplayer5 /usr/lib/libkorvelplayer.so.5
holds libkorvelplayer-dev /usr/lib/libkorvelplayer.so
holds libkorvelplayer-dev /usr/include/korvelplayer/PlayerFactory.h
holds libkorvelplayer-dev /usr/lib/pkgconfig/korvelplayer.pc
holds libkorvelplayer-dev /usr/lib/cmake/korvelplayer/korvelplayerConfig.cmake
holds vendra-player /usr/bin/vendra_player
holds vendra-player /usr/lib/systemd/system/vendra_player.service
holds vendra-player /usr/share/doc/korvelplayer/examples/vendra_player.conf
holds vendra-player /usr/share/doc/korvelplayer/examples/asound.conf

for p in "${packages[@]}"; do
    [ "$(field "$p" Version)" = "$version" ] || fail "$p has version $(field "$p" Version)"
    [ "$(field "$p" Architecture)" = "$arch" ] || fail "$p is for $(field "$p" Architecture)"
    [ -n "$(field "$p" Maintainer)" ] || fail "$p has no maintainer"
    [ -n "$(field "$p" Section)" ] || fail "$p has no section"
done
depends() { field "$1" Depends | tr ',' '\n' | sed 's/^ *//; s/ *$//'; }
grep -qx "libkorvelplayer5 (= $version)" <<<"$(depends libkorvelplayer-dev)" || fail "dev: $(field libkorvelplayer-dev Depends)"
grep -qx "libkorvelplayer5 (>= $version)" <<<"$(depends vendra-player)" || fail "program: $(field vendra-player Depends)"
# Each library a packaged binary links comes with a dependency on the package that has it here.
multiarch=$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null)
for p in libkorvelplayer5 vendra-player; do
    dpkg-deb -x "${deb[$p]}" "$scratch/x-$p"
    while read -r elf; do
        for soname in $(objdump -p "$elf" | awk '/NEEDED/ { print $2 }'); do
            [ "$soname" != libkorvelplayer.so.5 ] || continue
            owner=$(dpkg -S "*/$multiarch/$soname" 2>/dev/null | head -n 1 | sed 's/[:,].*//')
            [ -n "$owner" ] || fail "no package has $soname"
            grep -q "^$owner\( \|$\)" <<<"$(depends "$p")" || fail "$p links $soname but does not depend on $owner: $(field "$p" Depends)"
        done
    done < <(find "$scratch/x-$p" -type f \( -name '*.so.*' -o -perm -u+x \))
done
grep -q '^libavformat[0-9]' <<<"$(depends libkorvelplayer5)" || fail "library: $(field libkorvelplayer5 Depends)"

# Installed with nothing else: every dependency is a library this build machine already has.
apt_get install -s --no-install-recommends "${deb[@]}" >"$scratch/plan" 2>&1 || { cat "$scratch/plan"; fail "apt refuses"; }
extra=$(awk '/^Inst / { print $2 }' "$scratch/plan" | grep -vxF -e libkorvelplayer5 -e libkorvelplayer-dev -e vendra-player || true)
[ -z "$extra" ] || fail "installing would also pull in: $extra"
apt_get install --no-install-recommends "${deb[@]}" >"$scratch/apt.log" 2>&1 || { cat "$scratch/apt.log"; fail "apt-get install"; }

expect_output() {
    local out deps
    out=$("$1") || fail "$1 exited with $?"
    [ "$(sed -n 1p <<<"$out")" = "player vb5.00fb" ] || fail "$1 printed version: $out"
    grep -q "^EPLAYER_SOURCE_TIMEOUT" <<<"$(sed -n 2p <<<"$out")" || fail "$1 printed error text: $out"
    deps=$(ldd "$1")
    grep -Eq "libkorvelplayer.so.5 => (/usr)?/lib/libkorvelplayer.so.5 " <<<"$deps" || fail "$1 loads: $deps"
}
[ "$(env -u PKG_CONFIG_PATH pkg-config --variable=prefix korvelplayer)" = /usr ] || fail "pkg-config finds no package in /usr"
# shellcheck disable=SC2046
"$cxx" -std=c++17 -Wall -Wextra -Werror -o "$scratch/consumer_pc" "$consumer/main.cpp" \
    $(env -u PKG_CONFIG_PATH pkg-config --cflags --libs korvelplayer) || fail "build with pkg-config"
expect_output "$scratch/consumer_pc"
{ env -u CMAKE_PREFIX_PATH cmake -S "$consumer" -B "$scratch/cb" -DCMAKE_CXX_COMPILER="$cxx" \
      -DCMAKE_BUILD_TYPE=Release >"$scratch/consumer.log" 2>&1 &&
  cmake --build "$scratch/cb" >>"$scratch/consumer.log" 2>&1; } \
    || { cat "$scratch/consumer.log"; fail "build with find_package"; }
grep -qx "korvelplayer_DIR:PATH=/usr/lib/cmake/korvelplayer" "$scratch/cb/CMakeCache.txt" \
    || fail "find_package used $(grep korvelplayer_DIR "$scratch/cb/CMakeCache.txt")"
expect_output "$scratch/cb/consumer"

# The library package's shlibs file gives programs packaged elsewhere their dependency on it.
mkdir -p "$scratch/host/debian" && : >"$scratch/host/debian/control"
grep -q "libkorvelplayer5 (>= $version)" <<<"$(cd "$scratch/host" && dpkg-shlibdeps -O "$scratch/consumer_pc" 2>/dev/null)" \
    || fail "no dependency on libkorvelplayer5 from its shlibs file"

# The installed program starts and reaches its configuration (255: none at that path).
status=0
VENDRA_PLAYER_CONFIG=$scratch/none.conf /usr/bin/vendra_player >"$scratch/player.log" 2>&1 || status=$?
[ "$status" = 255 ] || { cat "$scratch/player.log"; fail "vendra_player exited with $status, not 255"; }

purge || fail "apt-get remove --purge"
for f in /usr/lib/libkorvelplayer.so.5 /usr/include/korvelplayer /usr/bin/vendra_player; do
    [ ! -e "$f" ] || fail "$f left after purging"
done
echo "packages install, serve host programs and purge cleanly"
