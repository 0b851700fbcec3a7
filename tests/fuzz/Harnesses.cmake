# The fuzz harnesses and what they link, shared by the libFuzzer binaries (tests/fuzz, with
# KORVEL_FUZZ) and the regression test of every build, which feeds the kept inputs through the same
# code.
set(KORVEL_FUZZ_HARNESSES
    fuzz_ini
    fuzz_playlist_map
    fuzz_icy_title
    fuzz_url_resolver
    fuzz_config
    fuzz_source_chain)
set(KORVEL_FUZZ_SUPPORT_DIR ${CMAKE_CURRENT_LIST_DIR}/../fixtures)
# The INI oracle reads the C library's line limit, which INIReader's flags do not link.
pkg_check_modules(INIH REQUIRED IMPORTED_TARGET inih)

function(korvel_fuzz_link target)
    target_include_directories(${target} PRIVATE ${KORVEL_FUZZ_SUPPORT_DIR})
    target_link_libraries(${target} PRIVATE korvelplayer vendra_configuration
        PkgConfig::INIREADER PkgConfig::INIH PkgConfig::CURL PkgConfig::AVFORMAT PkgConfig::MPG123 PkgConfig::CRYPTO)
endfunction()
