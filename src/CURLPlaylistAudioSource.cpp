#include "CURLPlaylistAudioSource.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <curl/curl.h>
#include <fcntl.h>
#include <list>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Logger.h"
#include "utils.h"

namespace {
constexpr long kConnectTimeoutSec = 10;
constexpr long kTransferTimeoutSec = 60;
constexpr long kMaxRedirects = 10;
constexpr mode_t kTemporaryFileMode = 0600;
constexpr const char* kContentTypeHeader = "Content-Type: ";
constexpr const char* kLocationHeader = "Location: ";
constexpr const char* kM3uType = "application/x-mpegurl";
constexpr const char* kPlsType = "audio/x-scpls";
constexpr const char* kPlsTypeShort = "audio/scpls";
constexpr const char* kUnknownType = "unknown";
constexpr const char* kAudioTypeMarker = "audio/";
constexpr const char* kM3uContentTypes =
    "application/mpegurl, application/x-mpegurl, audio/x-mpegurl, audio/mpegurl, audio/mpeg-url, "
    "application/x-winamp-playlist, application/vnd.apple.mpegurl, application/vnd.apple.mpegurl.audio, ";
// One M3U line: 511 characters and the terminator.
constexpr int kM3uLineChars = 512;

// The value of a header line after its name, without the line end.
std::string header_value(const char* data, size_t length, size_t name_length) {
    std::string value(data + name_length, length - name_length);
    while (!value.empty() && (value.back() == '\n' || value.back() == '\r')) value.pop_back();
    return value;
}

std::string players_file(int player_id) {
    const std::string name = CURLPlaylistAudioSource::kDefaultTemporaryFile;
    return player_id == APlayerInfoAdapter::kNoPlayer ? name : name + std::to_string(player_id);
}

bool starts_with_nocase(const char* data, size_t length, const char* prefix) {
    const size_t n = std::strlen(prefix);
    return length >= n && strncasecmp(data, prefix, n) == 0;
}
}  // namespace

CURLPlaylistAudioSource::CURLPlaylistAudioSource()
    : m_temporary_file(kDefaultTemporaryFile),
      m_handle(nullptr),
      m_download(false),
      m_bytes_received(0),
      m_fd(-1),
      m_m3u_types(kM3uContentTypes),
      m_abort_check(nullptr),
      m_request_start(0),
      m_aborted(false),
      m_temporary_file_chosen(false) {}

CURLPlaylistAudioSource::~CURLPlaylistAudioSource() {
    if (m_handle != nullptr) curl_easy_cleanup(m_handle);
    if (m_fd >= 0) ::close(m_fd);
}

void CURLPlaylistAudioSource::SetPlayerId(int id) {
    APlayerInfoAdapter::SetPlayerId(id);
    if (!m_temporary_file_chosen) m_temporary_file = players_file(id);
}

void CURLPlaylistAudioSource::SetTemporaryFile(const std::string& path) {
    m_temporary_file = path;
    m_temporary_file_chosen = true;
}

void CURLPlaylistAudioSource::SetNetworkOptions(const KorvelPlayer::NetworkOptions& options) {
    m_header_line = options.headers;
    m_user_agent = options.user_agent;
}

bool CURLPlaylistAudioSource::ensure_handle() {
    if (m_handle != nullptr) return true;
    m_handle = curl_easy_init();
    if (m_handle == nullptr) {
        KLOG_ERROR("%s ERROR :curl_easy_init() returned NULL\n", GetPrefix());
        return false;
    }
    curl_easy_setopt(m_handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(m_handle, CURLOPT_CONNECTTIMEOUT, kConnectTimeoutSec);
    curl_easy_setopt(m_handle, CURLOPT_TIMEOUT, kTransferTimeoutSec);
    curl_easy_setopt(m_handle, CURLOPT_VERBOSE, 0L);
    curl_easy_setopt(m_handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(m_handle, CURLOPT_MAXREDIRS, kMaxRedirects);
    // A peer's playlist or redirect may name anything: the resolver never reads a local file or
    // speaks another protocol for it.
#if LIBCURL_VERSION_NUM >= 0x075500
    curl_easy_setopt(m_handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(m_handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
#else
    curl_easy_setopt(m_handle, CURLOPT_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
    curl_easy_setopt(m_handle, CURLOPT_REDIR_PROTOCOLS, static_cast<long>(CURLPROTO_HTTP | CURLPROTO_HTTPS));
#endif
    curl_easy_setopt(m_handle, CURLOPT_HEADERFUNCTION, &CURLPlaylistAudioSource::header_callback);
    curl_easy_setopt(m_handle, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(m_handle, CURLOPT_WRITEFUNCTION, &CURLPlaylistAudioSource::write_callback);
    curl_easy_setopt(m_handle, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(m_handle, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(m_handle, CURLOPT_HTTPGET, 1L);
    curl_easy_setopt(m_handle, CURLOPT_XFERINFOFUNCTION, &CURLPlaylistAudioSource::progress_callback);
    curl_easy_setopt(m_handle, CURLOPT_XFERINFODATA, this);
    curl_easy_setopt(m_handle, CURLOPT_NOPROGRESS, 0L);
    return true;
}

bool CURLPlaylistAudioSource::Fetch(const std::string& url, bool download) {
    if (!ensure_handle()) return false;
    m_download = download;
    m_aborted = false;
    if (download) {
        m_bytes_received = 0;
        // The name is removed before each download: whatever holds it now, a symbolic link or a hard
        // link to someone's file, was planted since and must be neither written through nor read.
        m_fd = ::open(m_temporary_file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                      kTemporaryFileMode);
        if (m_fd < 0) {
            KLOG_ERROR("%s ERROR :CURLPlaylistAudioSource::Fetch(): cannot create %s: %s\n", GetPrefix(),
                       m_temporary_file.c_str(), std::strerror(errno));
            return false;
        }
    }
    curl_easy_setopt(m_handle, CURLOPT_URL, url.c_str());
    curl_slist* headers = m_header_line.empty() ? nullptr : curl_slist_append(nullptr, m_header_line.c_str());
    curl_easy_setopt(m_handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(m_handle, CURLOPT_USERAGENT, m_user_agent.empty() ? nullptr : m_user_agent.c_str());
    m_content_type.clear();
    m_location.clear();
    m_request_start = CTimeout_handler::monotonic_seconds(nullptr);
    const CURLcode code = static_cast<CURLcode>(perform_transfer());
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    // The handle outlives the list: it must not keep pointing at it.
    curl_easy_setopt(m_handle, CURLOPT_HTTPHEADER, nullptr);
    curl_slist_free_all(headers);
    // The write callback ends probes and long downloads by refusing data.
    const bool ok = !m_aborted && (code == CURLE_OK || code == CURLE_WRITE_ERROR || code == CURLE_ABORTED_BY_CALLBACK);
    if (!ok) KLOG_INFO("%s CURLPlaylistAudioSource::Fetch(): %s: %s\n", GetPrefix(), url.c_str(), curl_easy_strerror(code));
    return ok;
}

int CURLPlaylistAudioSource::perform_transfer() { return curl_easy_perform(m_handle); }

size_t CURLPlaylistAudioSource::write_callback(char* data, size_t size, size_t count, void* user) {
    auto* self = static_cast<CURLPlaylistAudioSource*>(user);
    const size_t n = size * count;
    if (!self->m_download) return 0;
    if (n != 0) {
        self->m_bytes_received += static_cast<int32_t>(n);
        size_t written = 0;
        while (self->m_fd >= 0 && written < n) {
            const ssize_t done = ::write(self->m_fd, data + written, n - written);
            if (done < 0 && errno == EINTR) continue;
            if (done <= 0) break;
            written += static_cast<size_t>(done);
        }
    }
    return self->m_bytes_received <= kMaxDownloadBytes ? n : 0;
}

int CURLPlaylistAudioSource::progress_callback(void* user, int64_t, int64_t, int64_t, int64_t) {
    auto* self = static_cast<CURLPlaylistAudioSource*>(user);
    if (self->m_abort_check == nullptr) return 0;
    // The limit is read at every step: an interrupt from another thread must end the request at once.
    const int limit = self->m_abort_check->get_timeout();
    if (limit >= 0 && CTimeout_handler::monotonic_seconds(nullptr) - self->m_request_start <= limit) return 0;
    self->m_aborted = true;
    return 1;
}

size_t CURLPlaylistAudioSource::header_callback(char* data, size_t size, size_t count, void* user) {
    auto* self = static_cast<CURLPlaylistAudioSource*>(user);
    const size_t n = size * count;
    if (n == 0) return n;
    if (starts_with_nocase(data, n, kContentTypeHeader)) {
        std::string value = header_value(data, n, std::strlen(kContentTypeHeader));
        const size_t parameter = value.find(';');
        if (parameter != std::string::npos) value.erase(parameter);
        utils::trim(value);
        self->m_content_type = value;
    } else if (starts_with_nocase(data, n, kLocationHeader)) {
        self->m_location = header_value(data, n, std::strlen(kLocationHeader));
    }
    return n;
}

int CURLPlaylistAudioSource::ExtractURL(const char* url, std::string& out_url, uint8_t* digest) {
    out_url.clear();
    if (url == nullptr) return kNotPlaylist;
    if (!ensure_handle()) {
        KLOG_ERROR("%s ERROR :CURLPlaylistAudioSource::ExtractURL() unable to init CURL!\n", GetPrefix());
        return kFailed;
    }
    ::unlink(m_temporary_file.c_str());
    if (!Fetch(url, true)) {
        KLOG_ERROR("%s ERROR :CURLPlaylistAudioSource::ExtractURL() unable to probe %s!\n", GetPrefix(), url);
        return kFailed;
    }

    std::string type = m_content_type;
    if (type.empty()) {
        const char* dot = std::strrchr(url, '.');
        if (dot != nullptr && strcasecmp(dot, ".m3u") == 0)
            type = kM3uType;
        else if (dot != nullptr && strcasecmp(dot, ".pls") == 0)
            type = kPlsType;
        else
            type = kUnknownType;
    }
    KLOG_INFO("%s CURLPlaylistAudioSource::ExtractURL(): mime type '%s', url -> '%s' ", GetPrefix(), type.c_str(), url);

    if (digest != nullptr && utils::md5_file(m_temporary_file, digest) != 0) {
        KLOG_ERROR("%s ERROR :CURLPlaylistAudioSource::ExtractURL() unable to download %s!\n", GetPrefix(),
                   m_temporary_file.c_str());
        return kFailed;
    }

    if (m_m3u_types.find(type + ",") != std::string::npos) {
        if (GetURLfromM3U(m_temporary_file, out_url)) return kResolved;
        KLOG_ERROR("%s ERROR :CURLPlaylistAudioSource::ExtractURL() unable to obtain URL using M3U parser with the "
                   "following link %s!\n",
                   GetPrefix(), m_temporary_file.c_str());
        return kFailed;
    }
    if (type == kPlsType || type == kPlsTypeShort) {
        if (GetURLfromPLS(m_temporary_file, out_url)) return kResolved;
        KLOG_ERROR("%s ERROR :CURLPlaylistAudioSource::ExtractURL() unable to obtain URL using PLS parser with the "
                   "following link %s!\n",
                   GetPrefix(), m_temporary_file.c_str());
        return kFailed;
    }
    if (type.find(kAudioTypeMarker) != std::string::npos && !m_location.empty()) {
        // A relative Location names the stream only together with the address it came from.
        std::string stream = m_location;
        const char* effective = nullptr;
        if (!utils::is_url(stream) &&
            curl_easy_getinfo(m_handle, CURLINFO_EFFECTIVE_URL, &effective) == CURLE_OK && effective != nullptr)
            stream = effective;
        KLOG_NOTICE("%s URL '%s' redirects to '%s'", GetPrefix(), url, stream.c_str());
        out_url = stream;
        return kResolved;
    }
    KLOG_INFO("%s CURLPlaylistAudioSource::ExtractURL(): did not find mime type (%s) in url -> '%s' ", GetPrefix(),
              type.c_str(), url);
    return kNotPlaylist;
}

bool CURLPlaylistAudioSource::GetURLfromM3U(const std::string& path, std::string& out_url) {
    FILE* file = std::fopen(path.c_str(), "r");
    if (file == nullptr) return false;
    char buffer[kM3uLineChars];
    std::string line;
    bool truncated = false;
    bool found = false;
    int stalled = 0;
    while (!found && stalled < kMaxStalledEntries && utils::read_line(file, buffer, kM3uLineChars, line, truncated)) {
        if (utils::is_url(line) && line[0] != '#') {
            found = Fetch(line, false);
            if (found) out_url = line;
            if (m_aborted) ++stalled;
        }
        // A line longer than the buffer ends the scan once its start has been looked at.
        if (truncated) break;
    }
    std::fclose(file);
    if (!found) KLOG_INFO("%s CURLPlaylistAudioSource::GetURLfromM3U(): Did not find a proper stream URL\n", GetPrefix());
    return found;
}

bool CURLPlaylistAudioSource::GetURLfromPLS(const std::string& path, std::string& out_url) {
    if (m_pls.Parse(path.c_str()) != 0) {
        KLOG_ERROR("%s ERROR :CURLPlaylistAudioSource::GetURLfromPLS() finished with errors\n", GetPrefix());
        m_pls.Release();
        return false;
    }
    std::list<std::string> urls;
    m_pls.GetURLs(urls);
    m_pls.Release();
    int stalled = 0;
    for (const std::string& candidate : urls) {
        if (Fetch(candidate, false)) {
            out_url = candidate;
            return true;
        }
        if (m_aborted && ++stalled == kMaxStalledEntries) break;
    }
    return false;
}
