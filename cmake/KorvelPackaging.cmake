# Debian packages for a device image, one per install component, made by `cpack` in a build
# directory (scripts/package.sh):
#   libkorvelplayer5     runtime      the shared library
#   libkorvelplayer-dev  development  headers, pkg-config file and CMake package
#   vendra-player        player       the program, its example configuration and ALSA set-up, the unit
# Dependencies on other packages come from the libraries the binaries actually link
# (dpkg-shlibdeps), so they follow whatever FFmpeg, mpg123 or fdk-aac the build was made against.

set(KORVEL_DEB_MAINTAINER "Korvel player maintainers <maintainers@users.noreply.c-seed-9f62ca37.example>"
    CACHE STRING "Maintainer field of the Debian packages")
set(KORVEL_DEB_RELEASE "1" CACHE STRING
    "Debian revision appended to the project version; raise it to re-package the same sources")
set(KORVEL_DEB_ARCH "" CACHE STRING
    "Debian architecture of the packages; empty: the one the compiler builds for")

# The compiler decides the architecture, not the machine cpack runs on: a cross build made on an
# amd64 host yields armhf packages.
if(NOT KORVEL_DEB_ARCH)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -dumpmachine
        OUTPUT_VARIABLE _korvel_triplet OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    find_program(KORVEL_DPKG_ARCHITECTURE dpkg-architecture)
    if(_korvel_triplet AND KORVEL_DPKG_ARCHITECTURE)
        # dpkg-architecture also complains that CC builds for another system when cross building:
        # that is the point here, so its stderr is dropped.
        execute_process(COMMAND ${KORVEL_DPKG_ARCHITECTURE} -t ${_korvel_triplet} -qDEB_HOST_ARCH
            OUTPUT_VARIABLE KORVEL_DEB_ARCH OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    endif()
    if(NOT KORVEL_DEB_ARCH)
        if(CMAKE_CROSSCOMPILING)
            message(WARNING "Cannot tell the Debian architecture of '${_korvel_triplet}': "
                "set KORVEL_DEB_ARCH, or the packages will be labelled for the build machine")
        endif()
        unset(KORVEL_DEB_ARCH)
    endif()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME korvelplayer)
set(CPACK_PACKAGE_VENDOR "Korvel")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${KORVEL_DEB_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${KORVEL_DEB_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_RELEASE ${KORVEL_DEB_RELEASE})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
if(KORVEL_DEB_ARCH)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${KORVEL_DEB_ARCH})
endif()
# A package installs into /usr whatever CMAKE_INSTALL_PREFIX the tree was configured with; the
# pkg-config file and the unit are written during the install, so they name /usr as well.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# A device has no use for debug sections, and they are most of the library's size.
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime development player)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(_korvel_soname_package libkorvelplayer${PROJECT_VERSION_MAJOR})
set(_korvel_deb_version ${PROJECT_VERSION}-${KORVEL_DEB_RELEASE})

# vendra_player links the library of this very build, which no installed package provides yet:
# dpkg-shlibdeps finds it in the build tree.
get_target_property(_korvel_lib_dir korvelplayer LIBRARY_OUTPUT_DIRECTORY)
if(NOT _korvel_lib_dir)
    get_target_property(_korvel_lib_dir korvelplayer BINARY_DIR)
endif()
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${_korvel_lib_dir})
if(CMAKE_CROSSCOMPILING AND CMAKE_SYSROOT AND CMAKE_LIBRARY_ARCHITECTURE)
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
        ${CMAKE_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE}
        ${CMAKE_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE})
    set(_korvel_cross_sysroot ${CMAKE_SYSROOT})
else()
    set(_korvel_cross_sysroot "")
endif()

# CPack runs dpkg-shlibdeps through this wrapper, which
# - declares the shlibs entry of our own library, so that vendra_player's dependency on it comes out
#   of dpkg-shlibdeps like every other one;
# - fails on a linked library whose package is unknown, where CPack would leave it out silently
#   (--ignore-missing-info): a device image missing a library fails at boot, far from the cause;
# - for a cross build, whose sysroot is unpacked packages without a dpkg database, takes each
#   library's package and shlibs entry from the same library of the build machine (Debian names
#   library packages alike on every architecture), the version capped at the sysroot's own, which
#   the binaries were linked against.
find_program(KORVEL_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(KORVEL_DPKG_SHLIBDEPS)
    set(KORVEL_OWN_SHLIBS
        "libkorvelplayer ${PROJECT_VERSION_MAJOR} ${_korvel_soname_package} (>= ${_korvel_deb_version})")
    set(KORVEL_CROSS_SYSROOT "${_korvel_cross_sysroot}")
    set(KORVEL_CROSS_ARCH "")
    if(KORVEL_CROSS_SYSROOT)
        set(KORVEL_CROSS_ARCH "${KORVEL_DEB_ARCH}")
    endif()
    set(_korvel_wrapper ${CMAKE_CURRENT_BINARY_DIR}/korvel-dpkg-shlibdeps)
    file(CONFIGURE OUTPUT ${_korvel_wrapper} @ONLY CONTENT [=[#!/bin/sh
# Written by cmake/KorvelPackaging.cmake: dpkg-shlibdeps for CPack, see there.
set -eu
real='@KORVEL_DPKG_SHLIBDEPS@'
sysroot='@KORVEL_CROSS_SYSROOT@'
case "${1:-}" in --version|--help) exec "$real" "$@" ;; esac
work=$(mktemp -d "${TMPDIR:-/tmp}/korvel-shlibdeps.XXXXXX")
trap 'rm -rf "$work"' EXIT
echo '@KORVEL_OWN_SHLIBS@' >"$work/shlibs"
n=$#
while [ "$n" -gt 0 ]; do
    a=$1; shift; n=$((n - 1))
    [ "$a" = --ignore-missing-info ] || set -- "$@" "$a"
done
if [ -n "$sysroot" ]; then
    multiarch=$(dpkg-architecture -qDEB_BUILD_MULTIARCH 2>/dev/null)
    export DEB_HOST_ARCH='@KORVEL_CROSS_ARCH@'
    for f in "$@"; do
        case "$f" in -*) continue ;; esac
        for soname in $(readelf -d "$f" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'); do
            case "$soname" in libkorvelplayer.so.*) continue ;; *.so.*) ;; *) continue ;; esac
            # The dynamic loader is named after the architecture; the C library's package has it.
            case "$soname" in ld-*) like=libc.so.6 ;; *) like=$soname ;; esac
            owner=$(dpkg-query -S "*/$multiarch/$like" 2>/dev/null | sed -n '1{s/: .*//; s/,.*//; p}')
            [ -n "$owner" ] || continue
            shlibs=$(dpkg-query --control-path "$owner" shlibs 2>/dev/null || true)
            [ -n "$shlibs" ] || continue
            entry=$(awk -v n="${like%%.so.*}" -v v="${like#*.so.}" -v m="${soname%%.so.*}" -v w="${soname#*.so.}" \
                '$1 == n && $2 == v { $1 = m; $2 = w; print; exit }' "$shlibs")
            [ -n "$entry" ] || continue
            # "libfoo 1 libfoo1 (>= V)": no later V than the sysroot's package holds.
            pkg=$(echo "$entry" | awk '{ print $3 }')
            want=$(echo "$entry" | sed -n 's/.*(>= \(.*\)).*/\1/p')
            have=$(sed -n "s/^${pkg}_\([^_]*\)_.*/\1/p" "$sysroot/.packages" 2>/dev/null | sed 's/%3a/:/' | head -n 1)
            if [ -n "$want" ] && [ -n "$have" ] && dpkg --compare-versions "$want" gt "$have"; then
                entry=$(echo "$entry" | sed "s/(>= [^)]*)/(>= $have)/")
            fi
            echo "$entry" >>"$work/shlibs"
        done
    done
fi
"$real" -L"$work/shlibs" "$@"
]=])
    file(CHMOD ${_korvel_wrapper} PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
        GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    # CPackDeb keeps a SHLIBDEPS_EXECUTABLE it is given instead of searching for dpkg-shlibdeps.
    set(_korvel_cpack_project ${CMAKE_CURRENT_BINARY_DIR}/KorvelCPackProject.cmake)
    file(WRITE ${_korvel_cpack_project} "set(SHLIBDEPS_EXECUTABLE \"${_korvel_wrapper}\")\n")
    set(CPACK_PROJECT_CONFIG_FILE ${_korvel_cpack_project})
endif()

set(CPACK_COMPONENT_RUNTIME_DISPLAY_NAME "Korvel player library")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${_korvel_soname_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# A shlibs file in the library package (the only one with a shared object): host programs
# packaged elsewhere get their dependency on it from dpkg-shlibdeps too, at least the version they
# were built against (the SONAME keeps 5.y compatible with 5.x).
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"audio player library for embedded Linux devices
Plays local MP3 and AAC files and m3u playlists, internet radio over HTTP
with ICY titles, M3U and PLS playlist URLs and RTP streams to ALSA, with
volume on a mixer element and timed fades. Up to four players share one
sound card.")

set(CPACK_COMPONENT_DEVELOPMENT_DISPLAY_NAME "Korvel player library, development files")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkorvelplayer-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# The unversioned link and the package files are only right for the library of the same build.
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"audio player library for embedded Linux devices - development files
Public headers, the pkg-config file korvelplayer.pc and the CMake package
(find_package(korvelplayer), target korvelplayer::korvelplayer) for
building host programs against libkorvelplayer.")

set(CPACK_COMPONENT_PLAYER_DISPLAY_NAME "vendra_player")
set(CPACK_DEBIAN_PLAYER_PACKAGE_NAME vendra-player)
set(CPACK_DEBIAN_PLAYER_PACKAGE_SECTION sound)
# The unit's set-up step opens the channels with aplay, and does without it.
set(CPACK_DEBIAN_PLAYER_PACKAGE_RECOMMENDS alsa-utils)
set(CPACK_COMPONENT_PLAYER_DESCRIPTION
"audio player service for embedded Linux devices
Plays a memory card's media folder or a stream as /etc/vendra_player.conf
says, reports the player's state in a status file, and runs as the systemd
service vendra_player.service (not enabled on installation). Example
configuration and ALSA set-up are under /usr/share/doc/korvelplayer/examples.")

include(CPack)
