#include "CAudioSource.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <strings.h>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/error.h>
#include <libavutil/opt.h>
}

#include "Assert.h"
#include "Logger.h"

namespace {
constexpr const char* kSource = "src/CAudioSource";
constexpr const char* kPrefixTag = " AUDIO SOURCE:";
constexpr const char* kResolverTag = " URL PLAYLIST:";
constexpr const char* kNetworkProbeSize = "64000";
constexpr const char* kNetworkFormatProbeSize = "32768";
// Enough for the first frames of an MPEG or AAC stream: the stream-information pass of a headerless
// format reads this much audio, in real time, before it ends.
constexpr const char* kNetworkAnalyzeMicroseconds = "250000";
constexpr const char* kRtpScheme = "rtp://";
// More missing packets than this in one gap is a restarted sender, not a loss to conceal.
constexpr int64_t kMaxLostPerGap = 256;
constexpr const char* kPlaylistSchemes[] = {"http://", "https://"};
// The demuxer a stream's declared type names; the server's word saves the probe.
struct TypeFormat {
    const char* content_type;
    const char* format;
};
constexpr TypeFormat kStreamFormats[] = {{"audio/mpeg", "mp3"}, {"audio/mp3", "mp3"}, {"audio/mpa", "mp3"},
                                         {"audio/aac", "aac"},  {"audio/aacp", "aac"}, {"audio/x-aac", "aac"}};
constexpr const char* kIcyOption = "icy_metadata_packet";
constexpr const char* kLineEnd = "\r\n";
constexpr const char* kTitleKey = "StreamTitle='";
constexpr const char* kValueEnd = "';";
constexpr const char* kFieldStart = "='";
constexpr size_t kExtensionChars = 4;
constexpr int kOpenErrorChars = 128;
constexpr int kReadErrorChars = 255;
constexpr int64_t kMicrosecondsPerMs = 1000;
// The AAC decoders only need to know that a demuxer supplies the config.
constexpr int kDemuxerSource = 1;
constexpr size_t kMaxWriteBytes = std::numeric_limits<uint16_t>::max();

bool ends_with(const std::string& text, const char* tail) {
    const size_t n = std::strlen(tail);
    return text.size() >= n && text.compare(text.size() - n, n, tail) == 0;
}

bool is_http(const std::string& url) {
    for (const char* scheme : kPlaylistSchemes)
        if (strncasecmp(url.c_str(), scheme, std::strlen(scheme)) == 0) return true;
    return false;
}

const AVInputFormat* format_of(const std::string& content_type) {
    for (const TypeFormat& known : kStreamFormats)
        if (strcasecmp(content_type.c_str(), known.content_type) == 0) return av_find_input_format(known.format);
    return nullptr;
}

// For log lines that print addresses with %x, as 32-bit targets do.
unsigned low_bits(const void* pointer) { return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer)); }
}  // namespace

void CAudioSource::AvFree::operator()(uint8_t* buffer) const { av_free(buffer); }

CAudioSource::CAudioSource()
    : m_duration_ms(0),
      m_digest_valid(false),
      m_digest{},
      m_avformat_context(nullptr),
      m_stream(nullptr),
      m_codec_type(CODEC_UNKNOWN),
      m_output(nullptr),
      m_output_accepted(false),
      m_refused_at_start(0),
      m_selection_result(0),
      m_network_source(false),
      m_song_id(-1),
      m_extra(0),
      m_avio(nullptr),
      m_packet(nullptr),
      m_config(nullptr),
      m_config_size(0),
      m_icy_owner(nullptr),
      m_icy_offset(0),
      m_library_initialized(false),
      m_rtp_source(false),
      m_previous_pts(AV_NOPTS_VALUE),
      m_previous_duration(0),
      m_observed_step(0) {
    set_name("CAudioSource");
    set_context("");
    set_timeout(kSourceTimeoutSec);
    m_resolver.SetAbortCheck(this);
}

// The owner closes first; anything still held is released rather than lost.
CAudioSource::~CAudioSource() {
    release_demuxer();
    av_packet_free(&m_packet);
}

void CAudioSource::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
    const std::string resolver_prefix = std::string(GetPrefix()) + kResolverTag;
    m_resolver.set_player_prefix(resolver_prefix.c_str());
}

void CAudioSource::SetPlayerId(int id) {
    APlayerInfoAdapter::SetPlayerId(id);
    m_resolver.SetPlayerId(id);
}

void CAudioSource::InitializeLibrary() {
    if (m_library_initialized) return;
    avformat_network_init();
    m_library_initialized = true;
}

void CAudioSource::Deinitialize() {
    release_demuxer();
    if (m_library_initialized) avformat_network_deinit();
    m_library_initialized = false;
}

void CAudioSource::SetNetworkOptions(const KorvelPlayer::NetworkOptions& options) {
    m_user_agent = options.user_agent;
    m_headers = options.headers;
    // libavformat ends the request at the first empty line: the text must end in exactly one line end.
    if (!m_headers.empty() && !ends_with(m_headers, kLineEnd)) m_headers += kLineEnd;
    m_resolver.SetNetworkOptions(options);
}

void CAudioSource::Interrupt() {
    KLOG_NOTICE("%s  Interrupting current AV format operation.", GetPrefix());
    interrupt();
}

int CAudioSource::GetTrackInfo(TrackInfo& info) {
    info.song_id = m_song_id;
    info.artist = m_artist;
    info.album = m_album;
    info.title = m_title;
    info.extra = m_extra;
    return 0;
}

int CAudioSource::GetCodecType() { return m_codec_type; }

const char* CAudioSource::GetIcyMetadata() { return m_last_icy.c_str(); }

int CAudioSource::GetAudioFormat(AudioFormat& format) {
    format = m_audio_format;
    return 0;
}

void CAudioSource::ResetTrackInfo() {
    m_song_id = -1;
    m_title.clear();
    m_album.clear();
    m_artist.clear();
    m_extra = 0;
}

std::string CAudioSource::GetPlaylistDigest() const {
    std::string hex;
    if (m_digest_valid) utils::convert_array_to_hex_string(m_digest, utils::kMd5DigestBytes, hex);
    return hex;
}

int CAudioSource::Initialize(const std::string& url, const std::string& item_name) {
    KLOG_NOTICE("%s  setting to: [%s]", GetPrefix(), url.c_str());
    // A source the owner did not close would otherwise be lost with all its handles.
    if (m_avformat_context != nullptr || m_file.GetFd() >= 0) Close();
    m_digest_valid = false;
    std::memset(m_digest, 0, sizeof m_digest);
    ResetTrackInfo();
    // The server repeats its current packet first after a reconnect: with the last packet kept, the
    // title it names would look unchanged and stay empty.
    m_last_icy.clear();
    m_duration_ms = 0;
    m_icy_owner = nullptr;
    m_output_accepted = false;
    m_refused_at_start = 0;
    m_selection_result = 0;
    m_rtp_source = strncasecmp(url.c_str(), kRtpScheme, std::strlen(kRtpScheme)) == 0;
    m_previous_pts = AV_NOPTS_VALUE;
    m_previous_duration = 0;
    m_observed_step = 0;

    AVDictionary* options = nullptr;
    av_dict_set(&options, "icy", "1", 0);
    // An empty agent would be sent as an empty header; libavformat's own agent is better than none.
    if (!m_user_agent.empty()) av_dict_set(&options, "user_agent", m_user_agent.c_str(), 0);
    if (!m_headers.empty()) av_dict_set(&options, "headers", m_headers.c_str(), 0);

    m_codec_type = CODEC_UNKNOWN;
    m_avformat_context = avformat_alloc_context();
    start_clock();

    int result;
    if (m_avformat_context == nullptr) {
        result = AVERROR(ENOMEM);
    } else if (utils::is_url(url)) {
        result = open_network(url, &options);
    } else {
        m_network_source = false;
        KLOG_NOTICE("%s Opening normal playback audio source %s.", GetPrefix(), url.c_str());
        set_context(url.c_str());
        result = m_file.Open(url, O_RDONLY);
        if (result < 0) {
            KLOG_ERROR("%s ERROR :CAudioSource::Initialize(): Error opening normal playback audio source %s.",
                       GetPrefix(), url.c_str());
            av_dict_free(&options);
            release_demuxer();
            return result;
        }
        result = init_avcontext_with_custom_io(url);
    }
    av_dict_free(&options);

    if (result < 0) {
        char text[kOpenErrorChars];
        av_strerror(result, text, sizeof text);
        KLOG_ERROR("%s ERROR :CAudioSource::Initialize(): Could not initialize player for audio source %s: (%d) %s",
                   GetPrefix(), url.c_str(), result, text);
        Close();
        return result;
    }

    select_stream(url, item_name);
    if (m_stream == nullptr) {
        KLOG_ERROR("%s ERROR :CAudioSource::Initialize(): No audio stream detected in %s", GetPrefix(), url.c_str());
        return AVERROR(EINVAL);
    }

    const AVCodecParameters* params = m_stream->codecpar;
    m_config_bytes.assign(params->extradata, params->extradata + (params->extradata != nullptr ? params->extradata_size : 0));
    m_config = m_config_bytes.empty() ? nullptr : m_config_bytes.data();
    m_config_size = static_cast<uint32_t>(m_config_bytes.size());
    m_audio_format = AudioFormat{};
    if (m_output != nullptr) {
        m_selection_result = m_output->SetDecoderId(m_codec_type);
        if (m_selection_result < 0)
            KLOG_ERROR("%s ERROR :CAudioSource::Initialize(): no decoder for codec type %d of %s", GetPrefix(),
                       m_codec_type, url.c_str());
        m_output->SetExtraData(&m_config, &m_config_size, kDemuxerSource);
    }
    KLOG_INFO("%s  Opened %s with AVContext = 0x%x and stream 0x%x ret is %d\n", GetPrefix(), url.c_str(),
              low_bits(m_avformat_context), low_bits(m_stream), result);
    if (m_output != nullptr) m_output->SetAudioFormat(m_audio_format);

    m_url = url;
    if (m_network_source) find_icy_option();
    read_tags();
    KLOG_NOTICE("%s  audio source '%s', song name '%s', album name '%s' artist name '%s'", GetPrefix(), url.c_str(),
                m_title.c_str(), m_album.c_str(), m_artist.c_str());
    KLOG_NOTICE("%s  Setting audio source to %s is OK.", GetPrefix(), url.c_str());
    return result;
}

int CAudioSource::open_network(const std::string& url, AVDictionary** options) {
    m_network_source = true;
    KORVEL_ASSERT(kSource, m_libav_callback.callback != nullptr);
    m_avformat_context->interrupt_callback.callback = m_libav_callback.callback;
    m_avformat_context->interrupt_callback.opaque = m_libav_callback.opaque;
    // A radio stream arrives in real time: every probed byte is time before the first sound.
    av_dict_set(options, "probesize", kNetworkProbeSize, 0);
    av_dict_set(options, "analyzeduration", kNetworkAnalyzeMicroseconds, 0);

    std::string resolved;
    const char* target = url.c_str();
    const AVInputFormat* format = nullptr;
    // Only HTTP can carry a playlist; any other protocol would only fail the resolver's download.
    const int resolution = is_http(url) ? m_resolver.ExtractURL(url.c_str(), resolved, m_digest)
                                        : CURLPlaylistAudioSource::kFailed;
    // The peer names the stream: only ever another HTTP address, never a local file or another protocol.
    if (resolution == CURLPlaylistAudioSource::kResolved && !is_http(resolved)) {
        KLOG_ERROR("%s ERROR :CAudioSource::open_network(): %s leads to %s: refused", GetPrefix(), url.c_str(),
                   resolved.c_str());
        return AVERROR(EPERM);
    }
    // A peer that let the resolver's limit run out (or an interrupt) would only be asked again, and
    // the open would take twice its time.
    if (resolution == CURLPlaylistAudioSource::kFailed && m_resolver.WasAborted()) return AVERROR_EXIT;
    if (resolution == CURLPlaylistAudioSource::kResolved) {
        m_digest_valid = true;
        KLOG_NOTICE("%s Opening play list stream audio source %s.", GetPrefix(), resolved.c_str());
        target = resolved.c_str();
    } else {
        m_digest_valid = false;
        std::memset(m_digest, 0, sizeof m_digest);
        KLOG_NOTICE("%s Opening URL playback audio source %s.", GetPrefix(), url.c_str());
        if (resolution == CURLPlaylistAudioSource::kNotPlaylist) format = format_of(m_resolver.GetContentType());
    }
    if (format == nullptr) av_dict_set(options, "formatprobesize", kNetworkFormatProbeSize, 0);
    set_context(target);
    // The resolution may have taken longer than the limit; the demuxer gets its own full period.
    start_clock();
    int result = avformat_open_input(&m_avformat_context, target, format, options);
    // A demuxer that reads its header itself may report the aborted read as a damaged stream.
    if (result < 0 && timed_out()) result = AVERROR_EXIT;
    if (result >= 0) {
        // The stream information comes from the first frames: a stream without any fails here.
        m_read_start = m_avformat_context->pb != nullptr ? m_avformat_context->pb->pos : -1;
        GetCurrentSourceBitrate();
        if (ReadOverrun()) result = AVERROR_INVALIDDATA;
        m_read_start = -1;
    }
    return result;
}

int CAudioSource::init_avcontext_with_custom_io(const std::string& url) {
    KORVEL_ASSERT(kSource, m_avformat_context);
    m_avformat_context->pb = nullptr;

    int result = 0;
    uint8_t* io_buffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
    if (io_buffer != nullptr)
        m_avio = avio_alloc_context(io_buffer, kIoBufferBytes, 0, this, &_read_callback, nullptr, &_seek_callback);
    if (m_avio == nullptr) {
        av_free(io_buffer);
        result = AVERROR(ENOMEM);
    }

    if (result == 0) {
        if (!m_probe) m_probe.reset(static_cast<uint8_t*>(av_malloc(kProbeBytes + kProbePaddingBytes)));
        if (!m_probe) result = AVERROR(ENOMEM);
    }
    if (result == 0) {
        std::memset(m_probe.get(), 0, kProbeBytes + kProbePaddingBytes);
        int filled = 0;
        while (filled < kProbeBytes) {
            const ssize_t got = m_file.Read(m_probe.get() + filled, static_cast<size_t>(kProbeBytes - filled));
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) break;
            filled += static_cast<int>(got);
        }
        m_file.Seek(0, SEEK_SET);
        AVProbeData probe{};
        probe.filename = "";
        probe.buf = m_probe.get();
        probe.buf_size = kProbeBytes;
        const AVInputFormat* format = av_probe_input_format(&probe, 1);
        if (format == nullptr) {
            KLOG_ERROR("%s ERROR :CAudioSource::init_avcontext_with_custom_io(): Can not guess the audio format from %s",
                       GetPrefix(), url.c_str());
            result = -1;
        } else {
            m_avformat_context->iformat = format;
        }
    }

    if (result == 0) {
        m_avformat_context->flags |= AVFMT_FLAG_CUSTOM_IO;
        m_avformat_context->pb = m_avio;
        result = avformat_open_input(&m_avformat_context, nullptr, nullptr, nullptr);
        if (result < 0) KLOG_ERROR("%s ERROR : Can not open audio source %s", GetPrefix(), url.c_str());
    }

    if (result == 0) {
        avformat_find_stream_info(m_avformat_context, nullptr);
        av_dump_format(m_avformat_context, 0, url.c_str(), 0);
        const int64_t duration = m_avformat_context->duration;
        m_duration_ms = duration == AV_NOPTS_VALUE ? 0 : duration / kMicrosecondsPerMs;
        KLOG_NOTICE("%s PLAYER: Audio input is initialized successfully : %s, duration is %lld[ms]", GetPrefix(),
                    url.c_str(), static_cast<long long>(m_duration_ms));
        return 0;
    }

    // A failed open has already freed the context; one that never got that far is freed here.
    avformat_close_input(&m_avformat_context);
    if (m_avio != nullptr) {
        av_freep(&m_avio->buffer);
        avio_context_free(&m_avio);
    }
    return result;
}

void CAudioSource::select_stream(const std::string& url, const std::string& item_name) {
    m_stream = nullptr;
    for (unsigned i = 0; i < m_avformat_context->nb_streams && m_stream == nullptr; ++i) {
        AVStream* stream = m_avformat_context->streams[i];
        const AVCodecID id = stream->codecpar->codec_id;
        if (id == AV_CODEC_ID_AAC) {
            KLOG_INFO("%s  AAC codec type detected for %s.", GetPrefix(), url.c_str());
            m_codec_type = CODEC_AAC;
            m_stream = stream;
        } else if (id == AV_CODEC_ID_MP3 || id == AV_CODEC_ID_MP2) {
            KLOG_INFO("%s  MP3 codec type detected for %s.", GetPrefix(), url.c_str());
            m_codec_type = CODEC_MP3;
            m_stream = stream;
        }
    }
    if (m_codec_type != CODEC_AAC || m_stream->codecpar->extradata_size != 0) return;

    // Only an .m4a item (named exactly so) is trusted to be raw AAC without a config.
    const std::string& name = item_name.size() > kExtensionChars ? item_name : url;
    if (name.size() > kExtensionChars && !ends_with(name, ".m4a") && !ends_with(name, ".M4A")) {
        KLOG_INFO("%s  No codec extra data found for item %s. Assuming AAC ADTS.", GetPrefix(), name.c_str());
        m_codec_type = CODEC_AAC_ADTS;
    }
}

void CAudioSource::find_icy_option() {
    void* owner = nullptr;
    const AVOption* option =
        av_opt_find2(m_avformat_context, kIcyOption, nullptr, 0, AV_OPT_SEARCH_CHILDREN, &owner);
    if (option == nullptr || owner == nullptr || option->type != AV_OPT_TYPE_STRING) return;
    m_icy_owner = owner;
    m_icy_offset = option->offset;
}

void CAudioSource::read_tags() {
    std::string* fields[] = {&m_title, &m_album, &m_artist};
    const char* keys[] = {"title", "album", "artist"};
    for (size_t i = 0; i < 3; ++i) {
        const AVDictionaryEntry* entry = av_dict_get(m_avformat_context->metadata, keys[i], nullptr, AV_DICT_IGNORE_SUFFIX);
        if (entry != nullptr && entry->value != nullptr) *fields[i] = entry->value;
        utils::trim(*fields[i]);
    }
}

int64_t CAudioSource::GetCurrentSourceBitrate() {
    if (m_avformat_context == nullptr) {
        KLOG_ERROR("%s ERROR :CAudioSource::GetCurrentSourceBitrate(): No AV context found! Returning 0 bitrate",
                   GetPrefix());
        return 0;
    }
    if (avformat_find_stream_info(m_avformat_context, nullptr) < 0) {
        KLOG_ERROR("%s ERROR :CAudioSource::GetCurrentSourceBitrate(): Can not find stream information for audio "
                   "source! Returning 0 bitrate",
                   GetPrefix());
        return 0;
    }
    return m_avformat_context->bit_rate;
}

namespace {
// A title may itself hold "';" (an artist's apostrophe, a quoted word): only a quote that ends the
// packet (its NUL padding included) or is followed by the next field, letters then "='", ends it.
bool ends_field(const std::string& packet, size_t after) {
    size_t i = after;
    while (i < packet.size() && packet[i] == '\0') ++i;
    if (i == packet.size()) return true;
    const size_t key = i;
    while (i < packet.size() && std::isalpha(static_cast<unsigned char>(packet[i]))) ++i;
    return i > key && packet.compare(i, std::strlen(kFieldStart), kFieldStart) == 0;
}
}  // namespace

bool CAudioSource::ParseIcyTitle(const std::string& packet, std::string& title) {
    size_t start = packet.find(kTitleKey);
    if (start == std::string::npos) return false;
    start += std::strlen(kTitleKey);
    size_t end = packet.find(kValueEnd, start);
    while (end != std::string::npos && !ends_field(packet, end + std::strlen(kValueEnd)))
        end = packet.find(kValueEnd, end + 1);
    if (end == std::string::npos) return false;
    std::string candidate = utils::title_to_utf8(packet.substr(start, end - start));
    if (candidate == title) return false;
    title.swap(candidate);
    return true;
}

// Worker thread only.
int CAudioSource::ProcessPacket(bool& metadata_changed) {
    if (m_avformat_context == nullptr) {
        KLOG_WARNING("%s  The player context is not initialized", GetPrefix());
        return -1;
    }
    if (m_stream == nullptr) {
        KLOG_ERROR("%s ERROR : No stream selected for playback", GetPrefix());
        Close();
        return -1;
    }
    metadata_changed = false;
    if (m_icy_owner != nullptr) {
        const char* icy = *reinterpret_cast<char* const*>(static_cast<const uint8_t*>(m_icy_owner) + m_icy_offset);
        if (icy != nullptr && m_last_icy != icy) {
            m_last_icy = icy;
            metadata_changed = ParseIcyTitle(m_last_icy, m_title);
            if (metadata_changed) KLOG_NOTICE("%s  new icy meta data packet: %s", GetPrefix(), m_last_icy.c_str());
        }
    }

    if (m_packet == nullptr && (m_packet = av_packet_alloc()) == nullptr) {
        KLOG_ERROR("%s ERROR : Audio processing returned %d (%s)\n", GetPrefix(), AVERROR(ENOMEM), "no packet");
        return AVERROR(ENOMEM);
    }
    start_clock();
    m_read_start = m_network_source && m_avformat_context->pb != nullptr ? m_avformat_context->pb->pos : -1;
    int result = av_read_frame(m_avformat_context, m_packet);
    if (timed_out()) {
        result = AVERROR_EXIT;
    } else if (ReadOverrun()) {
        KLOG_ERROR("%s ERROR : no frame in the last %lld bytes of %s", GetPrefix(),
                   static_cast<long long>(m_avformat_context->pb->pos - m_read_start), m_url.c_str());
        result = AVERROR_INVALIDDATA;
    }
    m_read_start = -1;

    if (result == 0) {
        result = forward_packet(m_packet);
        if (result < 0) log_processing_error(result);
    } else if (result == AVERROR_EOF) {
        KLOG_INFO("%s  AV format detected end of track for %s", GetPrefix(), m_url.c_str());
    } else if (result == AVERROR_EXIT) {
        KLOG_INFO("%s  AV format requested to exit immediatly.", GetPrefix());
    } else if (result != AVERROR(EAGAIN)) {
        log_processing_error(result);
    }
    av_packet_unref(m_packet);
    return result;
}

bool CAudioSource::ReadOverrun() const {
    return m_read_start >= 0 && m_avformat_context != nullptr && m_avformat_context->pb != nullptr &&
           m_avformat_context->pb->pos - m_read_start > kMaxReadBytes;
}

void CAudioSource::log_processing_error(int result) {
    char text[kReadErrorChars];
    av_strerror(result, text, sizeof text);
    KLOG_ERROR("%s ERROR : Audio processing returned %d (%s)\n", GetPrefix(), result, text);
}

int CAudioSource::forward_packet(const AVPacket* packet) {
    if (m_stream != nullptr && packet->stream_index != m_stream->index) {
        KLOG_WARNING("%s  packet stream index mismatch. packet index %x, while stream index is %x", GetPrefix(),
                     static_cast<unsigned>(packet->stream_index), static_cast<unsigned>(m_stream->index));
        return packet->size;
    }
    if (packet->size < 1 || m_output == nullptr) return packet->size;
    if (!m_output_accepted && m_selection_result < 0) return m_selection_result;
    unsigned lost = 0;
    if (m_rtp_source && packet->pts != AV_NOPTS_VALUE) {
        const int64_t step = m_previous_duration > 0 ? m_previous_duration : m_observed_step;
        if (m_previous_pts != AV_NOPTS_VALUE && step > 0)
            lost = CountLostPackets(m_previous_pts, packet->pts, step);
        else if (m_previous_pts != AV_NOPTS_VALUE && packet->pts > m_previous_pts)
            m_observed_step = packet->pts - m_previous_pts;
        m_previous_pts = packet->pts;
        m_previous_duration = packet->duration;
    }
    // The output takes 16-bit lengths; a larger packet goes in pieces rather than being cut short.
    // The first piece tells whether the output takes the packet; the rest of a refused one is dropped.
    const size_t size = static_cast<size_t>(packet->size);
    size_t piece = size < kMaxWriteBytes ? size : kMaxWriteBytes;
    const int result = m_output->WriteBuffer(packet->data, static_cast<uint16_t>(piece), lost);
    if (result < 0) return m_output_accepted || ++m_refused_at_start < kMaxRefusedAtStart ? packet->size : result;
    m_output_accepted = true;
    for (size_t done = piece; done < size; done += piece) {
        piece = size - done < kMaxWriteBytes ? size - done : kMaxWriteBytes;
        m_output->WriteBuffer(packet->data + done, static_cast<uint16_t>(piece), 0);
    }
    return packet->size;
}

unsigned CAudioSource::CountLostPackets(int64_t previous_pts, int64_t pts, int64_t step) {
    if (step <= 0 || pts <= previous_pts) return 0;
    const int64_t gap = pts - previous_pts;
    if (gap / step > kMaxLostPerGap) return 0;
    const int64_t missing = (gap + step / 2) / step - 1;
    return missing > 0 ? static_cast<unsigned>(missing) : 0;
}

void CAudioSource::release_demuxer() {
    avformat_close_input(&m_avformat_context);
    // libavformat may have swapped the I/O buffer for one of its own: free the one it holds now.
    if (m_avio != nullptr) {
        av_freep(&m_avio->buffer);
        avio_context_free(&m_avio);
    }
    m_stream = nullptr;
    m_icy_owner = nullptr;
}

void CAudioSource::Close() {
    ResetTrackInfo();
    release_demuxer();
    m_probe.reset();
    m_file.Close();
    ResetTrackInfo();
}

int64_t CAudioSource::_seek_callback(void* opaque, int64_t offset, int whence) {
    KORVEL_ASSERT(kSource, opaque != nullptr);
    auto* self = static_cast<CAudioSource*>(opaque);
    KLOG_INFO("%s Seek pos=%llu, whence=%d", self->GetPrefix(), static_cast<unsigned long long>(offset), whence);
    if ((whence & AVSEEK_SIZE) != 0) return self->m_file.GetSize();
    const int64_t position = self->m_file.Seek(offset, whence & ~AVSEEK_FORCE);
    if (position < 0) {
        KLOG_WARNING("%s Seek, return error.", self->GetPrefix());
        return -1;
    }
    return position;
}

// libavformat takes 0 for a short read, not for the end: the end (and a failed read) must be
// AVERROR_EOF, on this and every later call, or the tail of the stream is lost.
int CAudioSource::_read_callback(void* opaque, uint8_t* buf, int size) {
    KORVEL_ASSERT(kSource, opaque != nullptr);
    auto* self = static_cast<CAudioSource*>(opaque);
    ssize_t got;
    do {
        got = self->m_file.Read(buf, static_cast<size_t>(size));
    } while (got < 0 && errno == EINTR);
    return got > 0 ? static_cast<int>(got) : AVERROR_EOF;
}
