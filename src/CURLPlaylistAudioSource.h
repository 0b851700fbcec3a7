#ifndef KORVEL_CURLPLAYLISTAUDIOSOURCE_H
#define KORVEL_CURLPLAYLISTAUDIOSOURCE_H

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "APlayerInfoAdapter.h"
#include "CTimeout_handler.h"
#include "CPLSParser.h"
#include "PlayerTypes.h"

typedef void CURL;

// Decides whether a network location is an M3U or PLS playlist or a redirect to an audio stream,
// and finds the stream URL to play. Downloads the start of the reply into a temporary file of its
// player, which also gives the playlist's digest. Runs inside the audio source's open, on the worker
// thread.
class CURLPlaylistAudioSource : public APlayerInfoAdapter {
public:
    // ExtractURL results.
    static constexpr int kResolved = 0;
    static constexpr int kFailed = 1;
    static constexpr int kNotPlaylist = 2;
    // A playlist that matters fits in its first few kilobytes; the rest of a reply (or an endless
    // audio stream) is not downloaded.
    static constexpr int kMaxDownloadBytes = 4024;
    // Players resolving at once must not share a download: each appends its id to this name.
    static constexpr const char* kDefaultTemporaryFile = "/tmp/.url";
    // Each stalled entry costs a whole limit: a list of them must not hold the open for ever.
    static constexpr int kMaxStalledEntries = 3;

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

    // Every request gets the whole of `check`'s current limit from its own start, so that entries
    // that do not answer cannot use up the time of the one after them; an interrupt of `check` ends
    // the request in progress at once. A playlist's scan ends at its kMaxStalledEntries-th entry
    // given up so.
    void SetAbortCheck(const CTimeout_handler* check) { m_abort_check = check; }
    // Also moves the downloads to the player's own temporary file, unless one was chosen.
    void SetPlayerId(int id) override;
    // Wins over the player's file, whenever it is called.
    void SetTemporaryFile(const std::string& path);
    const std::string& GetTemporaryFile() const { return m_temporary_file; }
    // Values of the last reply's headers (after redirects, the last one seen).
    const std::string& GetContentType() const { return m_content_type; }
    const std::string& GetLocation() const { return m_location; }
    // The last request was given up by the abort check: its limit ran out, or it was interrupted.
    bool WasAborted() const { return m_aborted; }

protected:
    // The transfer of a Fetch on the prepared handle: a CURLcode. A replacement may hand the reply
    // to the two callbacks below itself, so that everything around the transfer runs without a
    // network.
    virtual int perform_transfer();
    static size_t header_callback(char* data, size_t size, size_t count, void* user);
    static size_t write_callback(char* data, size_t size, size_t count, void* user);

private:
    bool ensure_handle();
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
    time_t m_request_start;                 // monotonic seconds at the start of the current request
    bool m_aborted;                         // the last transfer was given up by the abort check
    bool m_temporary_file_chosen;           // SetTemporaryFile() was called
};

#endif
