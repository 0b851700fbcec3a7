#ifndef KORVEL_CAACDECODER_H
#define KORVEL_CAACDECODER_H

#include <fdk-aac/aacdecoder_lib.h>

#include "CAudioOutput.h"

// Decodes raw AAC access units with libfdk-aac, configured by the container's audio specific
// config (ASC). Each decoded frame's format is checked and a change is announced to the output
// before the frame. Also the base of the ADTS decoder. Worker thread only.
class CAACDecoder : public CAudioOutput {
public:
    // The output buffer in 16-bit samples across all channels: room for the largest frame
    // (2048 samples per channel for SBR) on up to 8 channels.
    static constexpr int kOutputSamples = 16384;
    // What DecodeFrame answers when the buffered input does not complete a frame.
    static constexpr int kNotEnoughBits = AAC_DEC_NOT_ENOUGH_BITS;

    CAACDecoder();
    ~CAACDecoder() override;

    int SetDecoderId(int id) override;
    int RestartFeed() override;
    int GetType() override;
    int SetAudioFormat(const AudioFormat& format) override;
    int SetBufferSize(int ms) override;
    int Reserved() override;
    int WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) override;
    // Keeps the config arrays (they must stay valid: RestartFeed applies them again) and arms decoding.
    void SetExtraData(uint8_t** config, uint32_t* length, int source) override;

    virtual int Initialize();
    void set_player_prefix(const char* prefix) override;
    int DeInitialize();

protected:
    // Opens a decoder handle for `transport`, replacing any open one; logs against `method`.
    bool open_handle(TRANSPORT_TYPE transport, const char* class_name, const char* method);
    bool allocate_output(const char* class_name);
    // Whether one packet may hold further frames after the first (a raw access unit never does).
    virtual bool may_hold_several_frames() const { return false; }

    int m_config_result;
    uint8_t** m_config;         // not owned
    uint32_t* m_config_length;  // not owned
    HANDLE_AACDECODER m_handle;
    INT_PCM* m_outbuf;          // kOutputSamples, owned
    AudioFormat m_format;
    int m_source;

private:
    int apply_config(const char* method);
    int deliver_frame(unsigned int lost_packets);
};

#endif
