#!/usr/bin/env bash
# Prepares what cross building for the 32-bit ARM hard-float device needs and prints the path of an
# armhf sysroot: Debian bookworm's own armhf packages (the libraries the native build uses, their
# headers and everything they depend on) unpacked into a directory of their own.
#
# The armhf packages are not installed side by side with the machine's own (multiarch): that breaks
# as soon as the mirror's armhf and amd64 indexes are out of step. A private apt configuration
# resolves and downloads them instead, and dpkg-deb unpacks them; no maintainer script runs, so no
# emulation is needed to build the sysroot.
#
# The result is cached under $KORVEL_ARMHF_CACHE (default /var/cache/korvel-armhf), keyed on the
# package list, so a second run only prints the path. Idempotent; run as root on Debian bookworm.
set -eu

CACHE=${KORVEL_ARMHF_CACHE:-/var/cache/korvel-armhf}
SOURCES=/etc/apt/sources.list.d/debian.sources
NATIVE=(crossbuild-essential-armhf qemu-user pkg-config)
# What the library, the tests and the benchmarks link against, as in scripts/setup.sh, plus the C and
# C++ run-time development files the cross compiler expects to find in its sysroot, and amixer: the
# virtual card's mixer test drives the card with the stock client, which must be of the plugins'
# architecture to load them.
PACKAGES=(
    libc6-dev libstdc++-12-dev
    libasound2-dev libavformat-dev libavcodec-dev libavutil-dev libswresample-dev
    libmpg123-dev libfdk-aac-dev libcurl4-openssl-dev libssl-dev libinih-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    alsa-utils
)
# Bumped when the way the sysroot is laid out changes, so that an old cache is not taken for a new one.
LAYOUT=1

log() { echo "armhf_sysroot: $*" >&2; }

install_native() {
    local p todo=()
    for p in "${NATIVE[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || todo+=("$p")
    done
    [ ${#todo[@]} -eq 0 ] && return 0
    log "installing ${todo[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get -o DPkg::Lock::Timeout=600 -y -q update >&2 ||
        log "apt-get update reported errors; trying the install anyway"
    apt-get -o DPkg::Lock::Timeout=600 -y -q install --no-install-recommends "${todo[@]}" >&2
}

# The machine's own Debian sources, with non-free (libfdk-aac) on the bookworm entry.
write_sources() {
    local src=$SOURCES
    [ -f "$src" ] || { log "no $src: cannot tell which mirror to use"; exit 1; }
    awk '
        BEGIN { RS = ""; ORS = "\n\n" }
        {
            if ($0 ~ /(^|\n)Suites:[ \t]*bookworm([ \t]|\n|$)/ && $0 !~ /(^|\n)Components:[^\n]*non-free([ \t]|\n|$)/)
                sub(/(^|\n)Components:[^\n]*/, "&" " non-free")
            print
        }' "$src" > "$1"
}

# Every absolute symbolic link made relative, so that it points into the sysroot and not at the
# build machine's own files of the same name.
relativise_links() {
    local root=$1 link target
    while IFS= read -r -d '' link; do
        target=$(readlink "$link")
        case "$target" in
            /*) ln -sfn "$(realpath -m -s --relative-to="$(dirname "$link")" "$root$target")" "$link" ;;
        esac
    done < <(find "$root" -type l -print0)
}

build_sysroot() {
    local dest=$1 work apt_root conf
    work=$(mktemp -d "$CACHE/.work.XXXXXX")
    # shellcheck disable=SC2064
    trap "rm -rf '$work'" EXIT
    apt_root=$work/apt
    mkdir -p "$apt_root/etc/apt/sources.list.d" "$apt_root/etc/apt/apt.conf.d" \
        "$apt_root/etc/apt/preferences.d" "$apt_root/var/lib/apt/lists/partial" \
        "$apt_root/var/cache/apt/archives/partial" "$apt_root/var/lib/dpkg"
    : > "$apt_root/var/lib/dpkg/status"
    write_sources "$apt_root/etc/apt/sources.list.d/debian.sources"
    conf=$apt_root/apt.conf
    cat > "$conf" <<EOF
Dir "$apt_root/";
Dir::State "var/lib/apt/";
Dir::State::status "$apt_root/var/lib/dpkg/status";
Dir::Cache "var/cache/apt/";
Dir::Etc "etc/apt/";
Dir::Etc::Trusted "/etc/apt/trusted.gpg";
Dir::Etc::TrustedParts "/etc/apt/trusted.gpg.d/";
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
APT::Install-Suggests "false";
APT::Get::Assume-Yes "true";
Acquire::Languages "none";
Acquire::Retries "3";
APT::Sandbox::User "root";
Debug::NoLocking "true";
EOF
    log "resolving and downloading the armhf packages"
    # An index caught mid-sync (the security archive's armhf one, typically) only costs its updates:
    # the packages are then taken from the release itself, consistently with each other.
    APT_CONFIG=$conf apt-get -q update >&2 ||
        log "apt-get update reported errors; resolving with the indexes it did get"
    APT_CONFIG=$conf apt-get -q install --download-only "${PACKAGES[@]}" >&2
    local debs=("$apt_root"/var/cache/apt/archives/*.deb)
    log "unpacking ${#debs[@]} packages"
    mkdir -p "$work/sysroot"
    local deb
    for deb in "${debs[@]}"; do dpkg-deb -x "$deb" "$work/sysroot"; done
    relativise_links "$work/sysroot"
    (cd "$apt_root/var/cache/apt/archives" && ls -- *.deb) > "$work/sysroot/.packages"
    rm -rf "$dest"
    mv "$work/sysroot" "$dest"
    rm -rf "$work"
    trap - EXIT
}

install_native
key=$( { echo "layout $LAYOUT"; printf '%s\n' "${PACKAGES[@]}" | sort; } | sha256sum | cut -c1-16)
sysroot=$CACHE/$key
if [ ! -f "$sysroot/.packages" ]; then
    mkdir -p "$CACHE"
    # One builder at a time; a second waiting one then finds the finished sysroot.
    exec 9> "$CACHE/.lock"
    flock 9
    [ -f "$sysroot/.packages" ] || build_sysroot "$sysroot"
    exec 9>&-
fi
echo "$sysroot"
