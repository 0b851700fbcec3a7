// A playlist server's reply, headers and body, as the resolver receives it: the content type
// decides how the body is read, and the stream URL comes from an M3U or PLS body or a redirect.
// No network: the transfers are replaced by the reply itself, handed to the resolver's own curl
// callbacks, so that the temporary file, the digest and every decision run as in the player.
//
// Input: byte 0 picks the requested URL's extension (bits 0-1) and which probes of the playlist's
// entries answer (bits 2-7, one per probe, repeating); byte 1 sets the size of the pieces the body
// arrives in; then the header lines up to the first empty line, then the body.
#include <curl/curl.h>

#include <string>
#include <vector>

#include "CURLPlaylistAudioSource.h"
#include "FuzzDoubles.h"
#include "utils.h"

namespace {
constexpr const char* kExtensions[] = {".m3u", ".pls", "", ".mp3"};
}  // namespace

KORVEL_FUZZ_TARGET(fuzz_url_resolver) {
    static const bool ready = (korvel_fuzz::QuietLogger(), curl_global_init(CURL_GLOBAL_DEFAULT), true);
    (void)ready;
    if (size < 2) return 0;
    const std::string url = std::string("http://radio.invalid/listen") + kExtensions[data[0] & 3];
    const unsigned probes = data[0] >> 2;
    const size_t piece = 1 + data[1] * 16u;
    const std::string rest(reinterpret_cast<const char*>(data + 2), size - 2);

    // Header lines keep their line ends, as curl hands them over.
    std::vector<std::string> headers;
    size_t at = 0;
    for (;;) {
        const size_t end = rest.find('\n', at);
        if (end == std::string::npos) {
            headers.clear();  // no empty line: all of it is body
            at = 0;
            break;
        }
        std::string line = rest.substr(at, end + 1 - at);
        at = end + 1;
        if (line == "\n" || line == "\r\n") break;
        headers.push_back(std::move(line));
    }

    korvel_fuzz::OfflineResolver resolver(headers, rest.substr(at), piece, probes);
    resolver.SetTemporaryFile(korvel_fuzz::Scratch::Get().path("url"));
    std::string out = "stale";
    uint8_t digest[utils::kMd5DigestBytes] = {};
    const int result = resolver.ExtractURL(url.c_str(), out, digest);

    KORVEL_FUZZ_CHECK(result == CURLPlaylistAudioSource::kResolved || result == CURLPlaylistAudioSource::kFailed ||
                      result == CURLPlaylistAudioSource::kNotPlaylist);
    KORVEL_FUZZ_CHECK(resolver.Transfers() >= 1);
    if (result != CURLPlaylistAudioSource::kResolved) {
        KORVEL_FUZZ_CHECK(out.empty());
        return 0;
    }
    // What was resolved is a playlist entry that answered, or the place the reply redirected to.
    KORVEL_FUZZ_CHECK(utils::is_url(out) || out == resolver.GetLocation() || resolver.Transfers() == 1);
    // An M3U comment line is never an entry; a PLS value is taken as written (here every probe may
    // answer; curl itself would refuse "#http://..." as an address).
    const std::string& type = resolver.ReplyType();
    const bool pls = type == "audio/x-scpls" || type == "audio/scpls" || (type.empty() && (data[0] & 3) == 1);
    if (resolver.Transfers() > 1) KORVEL_FUZZ_CHECK(utils::is_url(out) && (pls || out[0] != '#'));
    // The digest is that of the stored download: at most one piece beyond the limit.
    KORVEL_FUZZ_CHECK(resolver.Offered().size() <=
                      static_cast<size_t>(CURLPlaylistAudioSource::kMaxDownloadBytes) + piece);
    uint8_t expected[utils::kMd5DigestBytes] = {};
    utils::md5_buffer(resolver.Offered().data(), static_cast<int>(resolver.Offered().size()), expected);
    KORVEL_FUZZ_CHECK(std::equal(digest, digest + utils::kMd5DigestBytes, expected));
    return 0;
}
