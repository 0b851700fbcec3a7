#ifndef KORVEL_CMP3DECODER_H
#define KORVEL_CMP3DECODER_H

#include <mpg123.h>

#include "CAudioOutput.h"

// Decodes MP3 packets with libmpg123 in feed mode: each packet is fed in and every PCM block it
// makes possible is sent on, the stream's format always announced before the first block in it.
// One fixed output buffer serves every block. Worker thread only.
class CMP3Decoder : public CAudioOutput {
public:
    static constexpr size_t kOutputBufferBytes = 32768;

    CMP3Decoder();
    ~CMP3Decoder() override;

    int SetDecoderId(int id) override;
    int RestartFeed() override;
    int GetType() override;
    int SetAudioFormat(const AudioFormat& format) override;
    int SetBufferSize(int ms) override;
    int Reserved() override;
    int WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) override;
    void SetExtraData(uint8_t** data, uint32_t* size, int source) override;
    void set_player_prefix(const char* prefix) override;

    int Initialize();
    int DeInitialize();

private:
    // Reads the decoder's format and announces it; the output's result, or mpg123's error.
    int update_format();
    int frame_bytes() const { return m_format.bits * m_format.channels / 8; }
    void send_pcm(size_t bytes, unsigned int& lost_packets);

    mpg123_handle* m_handle;
    uint8_t* m_outbuf;  // kOutputBufferBytes, owned
    AudioFormat m_format;
};

#endif
