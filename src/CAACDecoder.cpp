#include "CAACDecoder.h"

#include <cstdlib>

#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " DECODER AAC+:";
constexpr UINT kSingleLayer = 1;
constexpr int kPcmBits = 16;
constexpr UINT kNoFlags = 0;
}  // namespace

CAACDecoder::CAACDecoder()
    : m_config_result(0),
      m_config(nullptr),
      m_config_length(nullptr),
      m_handle(nullptr),
      m_outbuf(nullptr),
      m_source(0) {}

CAACDecoder::~CAACDecoder() { DeInitialize(); }

void CAACDecoder::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

int CAACDecoder::SetDecoderId(int) { return 0; }
int CAACDecoder::GetType() { return AUDIO_TYPE_AAC; }
int CAACDecoder::SetBufferSize(int) { return 0; }
int CAACDecoder::Reserved() { return 0; }

int CAACDecoder::SetAudioFormat(const AudioFormat& format) {
    m_format = format;
    return AssignAudioFormat(m_format);
}

bool CAACDecoder::open_handle(TRANSPORT_TYPE transport, const char* class_name, const char* method) {
    if (m_handle != nullptr) aacDecoder_Close(m_handle);
    m_handle = aacDecoder_Open(transport, kSingleLayer);
    if (m_handle == nullptr) {
        KLOG_ERROR("%s ERROR :%s::%s(): Error: Failed to open AAC handle.\n", GetPrefix(), class_name, method);
        return false;
    }
    return true;
}

bool CAACDecoder::allocate_output(const char* class_name) {
    if (m_outbuf == nullptr) m_outbuf = static_cast<INT_PCM*>(std::calloc(kOutputSamples, sizeof(INT_PCM)));
    if (m_outbuf == nullptr) {
        KLOG_ERROR("%s ERROR :%s::Initialize(): Error: Failed to allocate output buffer.\n", GetPrefix(), class_name);
        return false;
    }
    return true;
}

int CAACDecoder::Initialize() {
    if (!open_handle(TT_MP4_RAW, "CAACDecoder", "Initialize")) return -1;
    return allocate_output("CAACDecoder") ? 0 : -1;
}

int CAACDecoder::DeInitialize() {
    if (m_handle != nullptr) aacDecoder_Close(m_handle);
    m_handle = nullptr;
    std::free(m_outbuf);
    m_outbuf = nullptr;
    return 0;
}

int CAACDecoder::apply_config(const char* method) {
    if (m_handle == nullptr || m_config == nullptr || m_config_length == nullptr)
        m_config_result = AAC_DEC_INVALID_HANDLE;
    else
        m_config_result = aacDecoder_ConfigRaw(m_handle, m_config, m_config_length);
    if (m_config_result != 0)
        KLOG_ERROR("%s ERROR :CAACDecoder::%s(): Error: Unable to decode the ASC\n", GetPrefix(), method);
    return m_config_result;
}

void CAACDecoder::SetExtraData(uint8_t** config, uint32_t* length, int source) {
    m_config = config;
    m_config_length = length;
    m_source = source;
    apply_config("SetExtraData");
}

int CAACDecoder::RestartFeed() {
    if (!open_handle(TT_MP4_RAW, "CAACDecoder", "RestartFeed")) return -1;
    return apply_config("RestartFeed");
}

int CAACDecoder::deliver_frame(unsigned int lost_packets) {
    const CStreamInfo* info = aacDecoder_GetStreamInfo(m_handle);
    if (info == nullptr || info->sampleRate <= 0) {
        m_format.rate = 0;
        m_format.channels = 0;
        KLOG_ERROR("%s ERROR :CAACDecoder::WriteBuffer(): Error: No stream info\n", GetPrefix());
        return -1;
    }
    if (info->sampleRate != m_format.rate || info->numChannels != m_format.channels) {
        KLOG_INFO("%s CAACDecoder::WriteBuffer(): New format [%d,16,%d] detected changing...\n", GetPrefix(),
                  info->numChannels, info->sampleRate);
        if (SetAudioFormat(AudioFormat{kPcmBits, info->sampleRate, info->numChannels}) != 0) {
            KLOG_ERROR("%s ERROR :CAACDecoder::WriteBuffer(): Error: unable to change to new format.", GetPrefix());
            return -1;
        }
    }
    SendAudio(reinterpret_cast<const uint8_t*>(m_outbuf), static_cast<uint16_t>(info->frameSize), lost_packets);
    return 0;
}

// The library copies at most its own input buffer per fill and hands back what it did not take.
// Whatever is left is filled again once decoding has made room, so no byte of a packet is dropped;
// an ADTS packet may also carry more than one frame, and all of them are decoded here.
int CAACDecoder::WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) {
    if (m_source == 0) {
        KLOG_ERROR("%s ERROR :CAACDecoder::WriteBuffer(): Error: no source. Call SetExtraData() first!\n", GetPrefix());
        return -1;
    }
    if (m_handle == nullptr) {
        KLOG_ERROR("%s ERROR :CAACDecoder::WriteBuffer(): Fill failed: %x\n", GetPrefix(),
                   static_cast<unsigned>(AAC_DEC_INVALID_HANDLE));
        return -1;
    }
    UCHAR* input = const_cast<UCHAR*>(data);
    UINT remaining = data != nullptr ? size : 0;
    int frames = 0;
    for (;;) {
        if (remaining > 0) {
            const UINT length = remaining;
            UINT valid = remaining;
            if (AAC_DECODER_ERROR err = aacDecoder_Fill(m_handle, &input, &length, &valid); err != AAC_DEC_OK) {
                KLOG_ERROR("%s ERROR :CAACDecoder::WriteBuffer(): Fill failed: %x\n", GetPrefix(),
                           static_cast<unsigned>(err));
                return -1;
            }
            input += remaining - valid;
            remaining = valid;
        }
        const AAC_DECODER_ERROR err = aacDecoder_DecodeFrame(m_handle, m_outbuf, kOutputSamples, kNoFlags);
        if (err == AAC_DEC_NOT_ENOUGH_BITS) {
            if (frames > 0) return 0;
            KLOG_WARNING("%s CAACDecoder::WriteBuffer(): Insufficient bits on a first fill\n", GetPrefix());
            return 1;
        }
        if (err != AAC_DEC_OK) {
            KLOG_ERROR("%s ERROR :Decode failed: %x. Restarting the feed.\n", GetPrefix(), static_cast<unsigned>(err));
            return -1;
        }
        if (deliver_frame(frames == 0 ? lost_packets : 0) < 0) return -1;
        ++frames;
        if (remaining == 0 && !may_hold_several_frames()) return 0;
    }
}
