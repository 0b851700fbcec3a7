#ifndef KORVEL_CURLPLAYLISTAUDIOSOURCE_H
#define KORVEL_CURLPLAYLISTAUDIOSOURCE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "APlayerInfoAdapter.h"
#include "CTimeout_handler.h"
#include "CPLSParser.h"
#include "PlayerTypes.h"

typedef void CURL;

// Decides whether a network location is an M3U or PLS playlist or a redirect to an audio stream,
// and finds the stream URL to play. Downloads the start of the reply into a temporary file, which
// also gives the playlist's digest. Runs inside the audio source's open, on the worker thread.
class CURLPlaylistAudioSource : public APlayerInfoAdapter {
public:
    // ExtractURL results.
    static constexpr int kResolved = 0;
    static constexpr int kFailed = 1;
    static constexpr int kNotPlaylist = 2;
    // A playlist that matters fits in its first few kilobytes; the rest of a reply (or an endless
    // audio stream) is not downloaded.
    static constexpr int kMaxDownloadBytes = 4024;
    static constexpr const char* kDefaultTemporaryFile = "/tmp/.url";

    CURLPlaylistAudioSource();
    ~CURLPlaylistAudioSource() override;
    CURLPlaylistAudioSource(const CURLPlaylistAudioSource&) = delete;
    CURLPlaylistAudioSource& operator=(const CURLPlaylistAudioSource&) = delete;

    // kResolved with the stream URL in `out_url` and, when `digest` (16 bytes) is given, the MD5 of
    // the downloaded file; kFailed; kNotPlaylist for anything else or a null `url`.
    int ExtractURL(const char* url, std::string& out_url, uint8_t* digest);
    void SetNetworkOptions(const KorvelPlayer::NetworkOptions& options);
    bool GetURLfromM3U(const std::string& path, std::string& out_url);
    bool GetURLfromPLS(const std::string& path, std::string& out_url);
    // One GET on the kept handle. `download` stores the start of the body in the temporary file;
    // otherwise the transfer stops at the first body byte (a reachability probe).
    bool Fetch(const std::string& url, bool download);

    // Where downloads go; several players (or test runs) on one machine need distinct files.
    // Transfers ask `check` at every progress step and give up once it has timed out or was
    // interrupted, so that a user's stop also cuts a playlist download or probe short.
    void SetAbortCheck(const CTimeout_handler* check) { m_abort_check = check; }
    void SetTemporaryFile(const std::string& path) { m_temporary_file = path; }
    const std::string& GetTemporaryFile() const { return m_temporary_file; }
    // Values of the last reply's headers (after redirects, the last one seen).
    const std::string& GetContentType() const { return m_content_type; }
    const std::string& GetLocation() const { return m_location; }

private:
    bool ensure_handle();
    static size_t header_callback(char* data, size_t size, size_t count, void* user);
    static size_t write_callback(char* data, size_t size, size_t count, void* user);
    static int progress_callback(void* user, int64_t, int64_t, int64_t, int64_t);

    CPLSParser m_pls;
    std::string m_temporary_file;
    std::string m_user_agent;
    std::string m_header_line;
    CURL* m_handle;
    bool m_download;
    int32_t m_bytes_received;
    int32_t m_fd;
    std::string m_content_type;
    std::string m_m3u_types;
    std::string m_location;
    const CTimeout_handler* m_abort_check;  // not owned; its limit is written by other threads
    bool m_aborted;                         // the last transfer was given up by the abort check
};

#endif
