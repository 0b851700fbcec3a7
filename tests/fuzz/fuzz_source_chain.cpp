// A file on the memory card, whatever it holds: the source demuxes it and the decoder chain decodes
// it into an output that only checks what it is given. Input: byte 0 picks the item name the
// player would pass (it decides between raw AAC and ADTS), then the file.
#include <mpg123.h>

extern "C" {
#include <libavutil/log.h>
}

#include <string>

#include "CAudioDecoderChain.h"
#include "CAudioSource.h"
#include "FuzzTarget.h"

namespace {
constexpr const char* kItemNames[] = {"", "song.m4a", "song.M4A", "song.mp3"};
constexpr int kMaxPackets = 10000;
constexpr int kBytesPerSample = 2;
constexpr int kMaxChannels = 8;

// Takes the PCM and drops it, after reading every byte a block claims to hold, under the format
// announced before it.
class NullOutput : public IAudioOutput {
public:
    int SetDecoderId(int) override { return 0; }
    int RestartFeed() override { return 0; }
    int GetType() override { return AUDIO_TYPE_PCM; }
    int SetAudioFormat(const AudioFormat& format) override {
        m_format = format;
        return 0;
    }
    int SetBufferSize(int) override { return 0; }
    int Reserved() override { return 0; }
    int WriteBuffer(const uint8_t* data, uint16_t frames, unsigned int) override {
        if (data == nullptr || frames == 0) return 0;
        KORVEL_FUZZ_CHECK(m_format.IsValid() && m_format.channels <= kMaxChannels);
        const size_t bytes = static_cast<size_t>(frames) * static_cast<size_t>(m_format.channels) * kBytesPerSample;
        unsigned sum = 0;
        for (size_t i = 0; i < bytes; ++i) sum += data[i];
        m_checksum += sum;
        return 0;
    }
    void SetExtraData(uint8_t**, uint32_t*, int) override {}

private:
    AudioFormat m_format;
    unsigned m_checksum = 0;
};
}  // namespace

KORVEL_FUZZ_TARGET(fuzz_source_chain) {
    static const bool ready = (korvel_fuzz::QuietLogger(), av_log_set_level(AV_LOG_QUIET), mpg123_init(), true);
    (void)ready;
    if (size < 1) return 0;
    const std::string item = kItemNames[data[0] & 3];
    const std::string path = korvel_fuzz::Scratch::Get().Write("track", data + 1, size - 1);

    CAudioDecoderChain chain;
    chain.CreateChain("FUZZ :");
    NullOutput pcm;
    chain.SetOutput(&pcm);
    CAudioSource source;
    source.SetOutput(&chain);
    if (source.Initialize(path, item) < 0) return 0;
    chain.RestartFeed();
    bool changed = false;
    int result = 0;
    for (int i = 0; i < kMaxPackets && result >= 0; ++i) result = source.ProcessPacket(changed);
    source.Close();
    return 0;
}
