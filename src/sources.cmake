# The audio sources: the demuxer source, playlist URL resolution and the playlists.
set(KORVEL_SOURCE_FILES
    ${CMAKE_CURRENT_SOURCE_DIR}/CAudioSource.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/CURLPlaylistAudioSource.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/CPLSParser.cpp
    ${CMAKE_CURRENT_SOURCE_DIR}/CPlaylistFileMap.cpp
)
