#include "CMP3Decoder.h"

#include <cstdlib>
#include <cstring>

#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " DECODER MP3:";
constexpr int kBitsPerByte = 8;
}  // namespace

CMP3Decoder::CMP3Decoder() : m_handle(nullptr), m_outbuf(nullptr) {}

CMP3Decoder::~CMP3Decoder() { DeInitialize(); }

void CMP3Decoder::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

int CMP3Decoder::SetDecoderId(int) { return 0; }
int CMP3Decoder::GetType() { return AUDIO_TYPE_MP3; }
int CMP3Decoder::SetBufferSize(int) { return 0; }
int CMP3Decoder::Reserved() { return 0; }
void CMP3Decoder::SetExtraData(uint8_t**, uint32_t*, int) {}

int CMP3Decoder::RestartFeed() {
    if (m_handle == nullptr) return -1;
    return mpg123_open_feed(m_handle) == MPG123_OK ? 0 : -1;
}

int CMP3Decoder::SetAudioFormat(const AudioFormat& format) {
    m_format = format;
    return AssignAudioFormat(m_format);
}

int CMP3Decoder::Initialize() {
    if (m_handle != nullptr) return 0;
    int err = MPG123_OK;
    m_handle = mpg123_new(nullptr, &err);
    if (m_handle == nullptr) {
        KLOG_ERROR("%s ERROR :CMP3Decoder::Initialize(): Unable to create mpg123 handle: %s\n", GetPrefix(),
                   mpg123_plain_strerror(err));
        return -1;
    }
    if ((err = mpg123_open_feed(m_handle)) != MPG123_OK) {
        KLOG_ERROR("%s ERROR :CMP3Decoder::Initialize(): Unable to open mpg123 feed: %s\n", GetPrefix(),
                   mpg123_plain_strerror(err));
        return -1;
    }
    m_outbuf = static_cast<uint8_t*>(std::calloc(kOutputBufferBytes, 1));
    if (m_outbuf == nullptr) return -1;
    return 0;
}

int CMP3Decoder::DeInitialize() {
    KLOG_INFO("%s CMP3Decoder::DeInitialize() called.\n", GetPrefix());
    std::free(m_outbuf);
    m_outbuf = nullptr;
    if (m_handle != nullptr) mpg123_delete(m_handle);
    m_handle = nullptr;
    m_format = AudioFormat();
    KLOG_INFO("%s CMP3Decoder::DeInitialize() End.\n", GetPrefix());
    return 0;
}

int CMP3Decoder::update_format() {
    long rate = 0;
    int channels = 0;
    int encoding = 0;
    const int result = mpg123_getformat(m_handle, &rate, &channels, &encoding);
    KLOG_INFO("CMP3Decoder::WriteBuffer(): ------------------------> New format requested, rate=%ld, bits=%d,channs=%d\n",
              rate, mpg123_encsize(encoding) * kBitsPerByte, channels);
    if (result != MPG123_OK) {
        m_format.rate = 0;
        m_format.channels = 0;
        KLOG_INFO("CMP3Decoder::WriteBuffer() error on mpg123_getformat(): (%d) %s, leaving it up to the next decoded frame.",
                  result, mpg123_strerror(m_handle));
        return result;
    }
    m_format.bits = mpg123_encsize(encoding) * kBitsPerByte;
    m_format.rate = static_cast<int>(rate);
    m_format.channels = channels;
    return AssignAudioFormat(m_format);
}

// The packets lost before this packet are reported once, with its first block: the output conceals
// them once, however many blocks the packet decodes to.
void CMP3Decoder::send_pcm(size_t bytes, unsigned int& lost_packets) {
    const int frame = frame_bytes();
    if (frame == 0 || bytes == 0) return;
    SendAudio(m_outbuf, static_cast<uint16_t>(bytes / static_cast<size_t>(frame)), lost_packets);
    lost_packets = 0;
}

int CMP3Decoder::WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) {
    if (data == nullptr || size == 0) {
        SendAudio(nullptr, 0, 0);
        return 0;
    }
    if (m_handle == nullptr || m_outbuf == nullptr) return -1;

    size_t done = 0;
    int r = mpg123_decode(m_handle, data, size, nullptr, 0, &done);
    if (r == MPG123_ERR) {
        KLOG_ERROR("%s ERROR :CMP3Decoder::WriteBuffer() error on mpg123_decode(): (%d) %s, skipping frame.",
                   GetPrefix(), r, mpg123_strerror(m_handle));
        return -1;
    }
    if (frame_bytes() == 0 || r == MPG123_NEW_FORMAT) {
        const int result = update_format();
        if (result < 0 && result != MPG123_NEED_MORE) {
            KLOG_ERROR("%s ERROR :CMP3Decoder::WriteBuffer() error: %d, when assigning audio format to dependent audio out.",
                       GetPrefix(), result);
            return result;
        }
    }
    send_pcm(done, lost_packets);

    while (r != MPG123_ERR && r != MPG123_NEED_MORE) {
        r = mpg123_decode(m_handle, nullptr, 0, m_outbuf, kOutputBufferBytes, &done);
        // Any other answer than data, a new format or "need more" would repeat itself forever.
        if (r != MPG123_OK && r != MPG123_NEW_FORMAT && r != MPG123_NEED_MORE) {
            if (r != MPG123_ERR) break;
            send_pcm(done, lost_packets);
            break;
        }
        if (r == MPG123_NEW_FORMAT) {
            // Bytes that come with the new-format answer are the tail of the previous segment:
            // they go out in the old format, before the new one is announced.
            send_pcm(done, lost_packets);
            done = 0;
            const int result = update_format();
            if (result < 0 && result != MPG123_NEED_MORE) {
                KLOG_ERROR("%s ERROR :CMP3Decoder::WriteBuffer() error: %d, when assigning audio format to dependent audio out.",
                           GetPrefix(), result);
                return result;
            }
        }
        send_pcm(done, lost_packets);
    }
    return r == MPG123_NEED_MORE ? 0 : r;
}
