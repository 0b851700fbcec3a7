#ifndef KORVEL_CAUDIOSOURCE_H
#define KORVEL_CAUDIOSOURCE_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "APlayerInfoAdapter.h"
#include "CFileIOStandard.h"
#include "CTimeout_handler.h"
#include "CURLPlaylistAudioSource.h"
#include "IAudioOutput.h"
#include "IAudioSource.h"
#include "PlayerTypes.h"
#include "utils.h"

struct AVDictionary;
struct AVFormatContext;
struct AVIOContext;
struct AVPacket;
struct AVStream;

// The player's one source of compressed audio: opens a local file, a network stream or a playlist
// URL through libavformat, picks the MPEG or AAC stream, tells the decoder chain which decoder to
// build and then pushes one demuxed packet per call into it. Also yields the tags, the live ICY
// title, the duration and the digest of a playlist the stream was found through.
// Initialize, ProcessPacket and Close run on the player's worker thread; Interrupt and SetTimeout
// may be called from any thread and only write the time-out limit.
class CAudioSource : public IAudioSource, public CTimeout_handler, public APlayerInfoAdapter {
public:
    // libavformat's demuxer interrupt: `callback(opaque)` returns non-zero to abort a blocking call.
    struct InterruptCallback {
        int (*callback)(void*) = nullptr;
        void* opaque = nullptr;
    };

    static constexpr int kSourceTimeoutSec = 15;
    // A listener joins a radio anywhere in a frame, and the decoder may refuse the first units it
    // is given before it finds a clean one; a track refused this many times in a row from its start
    // cannot be played.
    static constexpr int kMaxRefusedAtStart = 4;
    static constexpr int kProbeBytes = 262144;
    static constexpr int kProbePaddingBytes = 32;
    static constexpr int kIoBufferBytes = 4096;
    // Far more than any frame of the codecs played: a read that takes in more found no frame at all,
    // and libavformat would keep the whole of it as one packet.
    static constexpr int64_t kMaxReadBytes = 1 << 20;

    CAudioSource();
    ~CAudioSource() override;
    CAudioSource(const CAudioSource&) = delete;
    CAudioSource& operator=(const CAudioSource&) = delete;

    int GetTrackInfo(TrackInfo& info) override;
    int GetCodecType() override;
    const char* GetIcyMetadata() override;
    int Initialize(const std::string& url, const std::string& item_name) override;
    void Close() override;
    int GetAudioFormat(AudioFormat& format) override;
    int ProcessPacket(bool& metadata_changed) override;
    void set_player_prefix(const char* prefix) override;
    // True while a read of ProcessPacket has taken in more than kMaxReadBytes (for the interrupt callback).
    bool ReadOverrun() const;
    // The resolver downloads into a file of this player's own.
    void SetPlayerId(int id) override;

    // Once per process user, before the first network open.
    void InitializeLibrary();
    // Releases a demuxer still held and the network layer taken by InitializeLibrary().
    void Deinitialize();
    void SetOutput(IAudioOutput* output) { m_output = output; }
    void SetNetworkOptions(const KorvelPlayer::NetworkOptions& options);
    // Any thread.
    void SetTimeout(int seconds) { set_timeout(seconds); }
    int GetTimeout() const { return get_timeout(); }
    // Any thread: the blocking demuxer call in progress, and the next read, end with AVERROR_EXIT.
    void Interrupt();
    // Runs libavformat's stream-information probe; bits per second, 0 when unknown.
    int64_t GetCurrentSourceBitrate();
    // 32 lower-case hex digits when the stream was found through a playlist file, else "".
    std::string GetPlaylistDigest() const;
    // Song id -1, no tags, extra value 0.
    void ResetTrackInfo();
    CURLPlaylistAudioSource& GetResolver() { return m_resolver; }

    // Whether the ICY packet changes the stream title (and so `title`, in UTF-8).
    static bool ParseIcyTitle(const std::string& packet, std::string& title);

    // The packets an RTP stream lost between two consecutive ones, from the gap of their pts against
    // the expected `step`; 0 for a step or gap that is not positive and for a jump too long to be a
    // loss (the sender restarted or its clock wrapped).
    static unsigned CountLostPackets(int64_t previous_pts, int64_t pts, int64_t step);

    static int _read_callback(void* opaque, uint8_t* buf, int size);
    static int64_t _seek_callback(void* opaque, int64_t offset, int whence);

    int64_t m_duration_ms;                // worker thread only; 0 for network sources
    InterruptCallback m_libav_callback;   // set by the owner before the first network open

private:
    int init_avcontext_with_custom_io(const std::string& url);
    int open_network(const std::string& url, AVDictionary** options);
    void select_stream(const std::string& url, const std::string& item_name);
    void find_icy_option();
    void read_tags();
    int forward_packet(const AVPacket* packet);
    void log_processing_error(int result);
    void release_demuxer();

    struct AvFree {
        void operator()(uint8_t* buffer) const;
    };

    // Everything below is used on the worker thread only (and before it starts); the time-out limit
    // in CTimeout_handler is the one value other threads write.
    std::string m_user_agent;
    std::string m_headers;
    bool m_digest_valid;
    uint8_t m_digest[utils::kMd5DigestBytes];
    AVFormatContext* m_avformat_context;
    AVStream* m_stream;
    int m_codec_type;
    IAudioOutput* m_output;  // not owned
    // A track the output cannot take at all must fail rather than play as silence, while one bad
    // frame later in a track costs only that frame: until the output has accepted a packet of this
    // open, the kMaxRefusedAtStart-th refused packet (or a refused decoder selection) ends the
    // track with its error.
    bool m_output_accepted;
    int m_refused_at_start;
    int m_selection_result;  // the output's SetDecoderId() result for this open
    AudioFormat m_audio_format;
    std::string m_last_icy;
    std::string m_url;
    CURLPlaylistAudioSource m_resolver;
    bool m_network_source;
    CFileIOStandard m_file;
    std::unique_ptr<uint8_t[], AvFree> m_probe;  // kProbeBytes + kProbePaddingBytes
    int32_t m_song_id;
    std::string m_artist;
    std::string m_album;
    std::string m_title;
    int64_t m_extra;

    AVIOContext* m_avio;  // the custom I/O of a local file; owned while open
    int64_t m_read_start = -1;  // the stream position where the current read began; -1 outside one
    AVPacket* m_packet;   // reused for every read
    // The stream's codec config, kept for the life of the source: the AAC decoder holds on to these
    // two addresses and applies them again whenever its feed restarts, also after a Close.
    std::vector<uint8_t> m_config_bytes;
    uint8_t* m_config;
    uint32_t m_config_size;
    // Where the network protocol keeps its last ICY packet, found once per open so that reading it
    // per packet neither searches nor allocates.
    void* m_icy_owner;
    int m_icy_offset;
    bool m_library_initialized;
    // libavformat puts RTP packets back in sequence order but leaves the gaps: the next packet tells
    // the chain how many to conceal.
    bool m_rtp_source;
    int64_t m_previous_pts;       // AV_NOPTS_VALUE before the first packet of an open
    int64_t m_previous_duration;  // of the packet before, 0 when the demuxer gave none
    int64_t m_observed_step;      // pts step of the first two packets, for a stream without durations
};

#endif
