#include "CAudioDecoderChain.h"

#include "CAACADTSDecoder.h"
#include "CAACDecoder.h"
#include "CMP3Decoder.h"
#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " DECODER CHAIN:";
}

CAudioDecoderChain::CAudioDecoderChain()
    : m_current(nullptr), m_mp3(nullptr), m_aac(nullptr), m_adts(nullptr), m_fourth(nullptr) {}

CAudioDecoderChain::~CAudioDecoderChain() { DestroyChain(); }

int CAudioDecoderChain::CreateChain(const std::string& prefix) {
    DestroyChain();
    m_mp3 = new CMP3Decoder();
    m_mp3->set_player_prefix(prefix.c_str());
    m_mp3->SetPlayerId(GetPlayerId());
    if (m_mp3->Initialize() == 0) m_current = m_mp3;

    m_aac = new CAACDecoder();
    m_aac->set_player_prefix(prefix.c_str());
    m_aac->SetPlayerId(GetPlayerId());
    const int result = m_aac->Initialize();
    if (result != 0) KLOG_ERROR("CAudioDecoderChain::CreateChain(): Error: Failed to initialize m4a codec\n");

    m_adts = new CAACADTSDecoder();
    m_adts->set_player_prefix(prefix.c_str());
    m_adts->SetPlayerId(GetPlayerId());
    if (m_adts->Initialize() != 0) KLOG_ERROR("CAudioDecoderChain::CreateChain(): Error: Failed to initialize adts codec\n");
    return result;
}

void CAudioDecoderChain::SetOutput(IAudioOutput* output) {
    if (m_mp3 != nullptr) m_mp3->SetOutput(output);
    if (m_aac != nullptr) m_aac->SetOutput(output);
    if (m_adts != nullptr) m_adts->SetOutput(output);
}

void CAudioDecoderChain::DestroyChain() {
    m_current = nullptr;
    if (m_mp3 != nullptr) {
        m_mp3->DeInitialize();
        delete m_mp3;
        m_mp3 = nullptr;
    }
    if (m_aac != nullptr) {
        m_aac->DeInitialize();
        delete m_aac;
        m_aac = nullptr;
    }
    if (m_adts != nullptr) {
        m_adts->DeInitialize();
        delete m_adts;
        m_adts = nullptr;
    }
}

void CAudioDecoderChain::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
    if (m_aac != nullptr) m_aac->set_player_prefix(prefix);
    if (m_adts != nullptr) m_adts->set_player_prefix(prefix);
    if (m_mp3 != nullptr) m_mp3->set_player_prefix(prefix);
}

int CAudioDecoderChain::SetDecoderId(int id) {
    m_current = nullptr;
    IAudioOutput* selected = nullptr;
    switch (id) {
        case AUDIO_TYPE_MP3: selected = m_mp3; break;
        case AUDIO_TYPE_AAC: selected = m_aac; break;
        case AUDIO_TYPE_AAC_ADTS: selected = m_adts; break;
        case AUDIO_TYPE_PCM: selected = m_fourth; break;
        default: return -1;
    }
    if (selected == nullptr) return -1;
    m_current = selected;
    return 0;
}

int CAudioDecoderChain::RestartFeed() { return m_current != nullptr ? m_current->RestartFeed() : -1; }

int CAudioDecoderChain::GetType() {
    if (m_current != nullptr) m_current->GetType();
    return -1;
}

int CAudioDecoderChain::SetAudioFormat(const AudioFormat& format) {
    return m_current != nullptr ? m_current->SetAudioFormat(format) : -1;
}

int CAudioDecoderChain::SetBufferSize(int ms) { return m_current != nullptr ? m_current->SetBufferSize(ms) : 0; }

int CAudioDecoderChain::Reserved() { return m_current != nullptr ? m_current->Reserved() : -1; }

int CAudioDecoderChain::WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) {
    return m_current != nullptr ? m_current->WriteBuffer(data, size, lost_packets) : -1;
}

void CAudioDecoderChain::SetExtraData(uint8_t** data, uint32_t* size, int source) {
    if (m_current != nullptr) m_current->SetExtraData(data, size, source);
}
