#!/usr/bin/env bash
# Installs every build, test and run-time dependency from Debian's packages.
# Idempotent and non-interactive; run as root on Debian bookworm.
set -eu

SOURCES=/etc/apt/sources.list.d/debian.sources
PACKAGES=(
    build-essential cmake ninja-build pkg-config
    libasound2-dev libavformat-dev libavcodec-dev libavutil-dev libswresample-dev
    libmpg123-dev libfdk-aac-dev libcurl4-openssl-dev libssl-dev libinih-dev
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    ffmpeg mpg123 aac-enc python3 alsa-utils
    dpkg-dev file clang-14 libclang-rt-14-dev
)

# libfdk-aac lives in non-free: add the component to the bookworm entry, once.
enable_non_free() {
    [ -f "$SOURCES" ] || return 0
    awk '
        BEGIN { RS = ""; ORS = "\n\n" }
        {
            if ($0 ~ /(^|\n)Suites:[ \t]*bookworm([ \t]|\n|$)/ && $0 !~ /(^|\n)Components:[^\n]*non-free([ \t]|\n|$)/)
                sub(/(^|\n)Components:[^\n]*/, "&" " non-free")
            print
        }' "$SOURCES" > "$SOURCES.new"
    if cmp -s "$SOURCES" "$SOURCES.new"; then rm -f "$SOURCES.new"; else mv "$SOURCES.new" "$SOURCES"; fi
}

missing() {
    local p
    for p in "${PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || echo "$p"
    done
}

export DEBIAN_FRONTEND=noninteractive
APT=(apt-get -o DPkg::Lock::Timeout=600 -y -q)

todo=$(missing)
if [ -z "$todo" ]; then
    exit 0
fi
enable_non_free
# A failing index for some unrelated source must not stop us while the packages are still reachable.
"${APT[@]}" update || echo "setup: apt-get update reported errors; trying the install anyway" >&2
# shellcheck disable=SC2086
"${APT[@]}" install --no-install-recommends $todo
