#ifndef KORVEL_TESTS_SOURCEFIXTURES_H
#define KORVEL_TESTS_SOURCEFIXTURES_H

#include <string>
#include <vector>

#include "CAudioSource.h"
#include "IAudioOutput.h"
#include "ScratchDir.h"

// Where make_source_media.sh put its files.
inline std::string SourceMediaPath(const std::string& name) { return std::string(KORVEL_SOURCE_MEDIA_DIR) + "/" + name; }

// Stands in for the decoder chain: records the set-up calls in order and every packet's bytes it
// takes. It can refuse the decoder selection or writes in a row, as a chain without a working decoder does.
class PacketSink : public IAudioOutput {
public:
    static constexpr int kRefused = -7;

    int SetDecoderId(int id) override {
        m_calls.push_back("SetDecoderId(" + std::to_string(id) + ")");
        return m_decoder_result;
    }
    int RestartFeed() override { return 0; }
    int GetType() override { return AUDIO_TYPE_MP3; }
    int SetAudioFormat(const AudioFormat& format) override {
        m_calls.push_back(format.IsValid() || format.bits != 0 ? "SetAudioFormat(set)" : "SetAudioFormat(zero)");
        return 0;
    }
    int SetBufferSize(int) override { return 0; }
    int Reserved() override { return 0; }
    int WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) override {
        const int write = m_writes++;
        if (write >= m_refused_write && write < m_refused_write + m_refused_count) return kRefused;
        m_packets.emplace_back(data, data + size);
        m_lost += lost_packets;
        return 0;
    }
    void SetExtraData(uint8_t** data, uint32_t* size, int source) override {
        m_calls.push_back(source != 0 ? "SetExtraData" : "SetExtraData(no source)");
        m_config.assign(*data, *data + *size);
    }

    std::vector<std::string> m_calls;
    std::vector<std::vector<uint8_t>> m_packets;
    std::vector<uint8_t> m_config;
    unsigned m_lost = 0;
    int m_decoder_result = 0;
    int m_refused_write = -1;  // counted over the sink's life, from 0
    int m_refused_count = 1;   // writes refused in a row from there
    int m_writes = 0;
};

// The owner's demuxer interrupt: abort once the source's time-out handler says so.
inline void InstallInterrupt(CAudioSource& source) {
    source.m_libav_callback = {[](void* s) { return static_cast<CAudioSource*>(s)->timed_out() ? 1 : 0; }, &source};
}

// Reads packets until the source reports anything but a packet; that code.
inline int DrainSource(CAudioSource& source, int max_packets = 100000) {
    int result = 0;
    bool changed = false;
    for (int i = 0; i < max_packets && result >= 0; ++i) result = source.ProcessPacket(changed);
    return result;
}

#endif
