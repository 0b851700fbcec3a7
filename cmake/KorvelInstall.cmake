# Everything `cmake --install` puts on a device or into a build root besides the targets' own rules
# (library and headers in src/, the program in app/): the package files for hosts, the examples of
# the device configuration and the service unit.
include(CMakePackageConfigHelpers)

set(KORVEL_SYSTEMD_UNITDIR "lib/systemd/system" CACHE STRING
    "Where the systemd unit goes, relative to the installation prefix unless absolute")
set(KORVEL_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/korvelplayer")

install(EXPORT korvelplayerTargets
    NAMESPACE korvelplayer::
    DESTINATION ${KORVEL_CMAKE_DIR}
    COMPONENT development)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/korvelplayerConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/korvelplayerConfig.cmake
    INSTALL_DESTINATION ${KORVEL_CMAKE_DIR})
# The SONAME carries the major version, so a host built against 5.x runs with any later 5.y.
write_basic_package_version_file(
    ${CMAKE_CURRENT_BINARY_DIR}/korvelplayerConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${CMAKE_CURRENT_BINARY_DIR}/korvelplayerConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/korvelplayerConfigVersion.cmake
    DESTINATION ${KORVEL_CMAKE_DIR}
    COMPONENT development)

# The pkg-config file and the unit name absolute paths, so they are written when installing: then
# `cmake --install --prefix <dir>` (a staging tree, a test) gets paths into <dir>, not into the
# prefix the build was configured with. DESTDIR is prepended to the files only, as it must be.
function(korvel_install_configured template output destination component)
    install(CODE "
        set(PROJECT_VERSION \"${PROJECT_VERSION}\")
        set(KORVEL_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
        foreach(pair \"LIBDIR=${CMAKE_INSTALL_LIBDIR}\" \"INCLUDEDIR=${CMAKE_INSTALL_INCLUDEDIR}\"
                     \"BINDIR=${CMAKE_INSTALL_BINDIR}\")
            string(REGEX MATCH \"^([A-Z]+)=(.*)$\" unused \"\${pair}\")
            set(dir \"\${CMAKE_MATCH_2}\")
            cmake_path(ABSOLUTE_PATH dir BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\" NORMALIZE)
            set(KORVEL_PC_\${CMAKE_MATCH_1} \"\${dir}\")
        endforeach()
        set(KORVEL_UNIT_BINDIR \"\${KORVEL_PC_BINDIR}\")
        configure_file(\"${template}\" \"${output}\" @ONLY)
    " COMPONENT ${component})
    install(FILES ${output} DESTINATION ${destination} COMPONENT ${component})
endfunction()

korvel_install_configured(${CMAKE_CURRENT_LIST_DIR}/korvelplayer.pc.in
    ${CMAKE_CURRENT_BINARY_DIR}/korvelplayer.pc
    ${CMAKE_INSTALL_LIBDIR}/pkgconfig development)
korvel_install_configured(${PROJECT_SOURCE_DIR}/config/vendra_player.service.in
    ${CMAKE_CURRENT_BINARY_DIR}/vendra_player.service
    ${KORVEL_SYSTEMD_UNITDIR} player)

# Examples rather than live files: installing them over /etc/asound.conf or a device's own
# /etc/vendra_player.conf would wipe what the device already has. The image build copies them.
install(FILES
    ${PROJECT_SOURCE_DIR}/config/vendra_player.conf
    ${PROJECT_SOURCE_DIR}/config/asound.conf
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/examples
    COMPONENT player)
