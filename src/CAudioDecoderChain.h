#ifndef KORVEL_CAUDIODECODERCHAIN_H
#define KORVEL_CAUDIODECODERCHAIN_H

#include <string>

#include "CAudioOutput.h"

class CMP3Decoder;
class CAACDecoder;
class CAACADTSDecoder;

// Owns the MP3, AAC and ADTS decoders and forwards each packet to the one selected for the current
// track; the decoders send their PCM straight to the PCM output. Worker thread only.
class CAudioDecoderChain : public CAudioOutput {
public:
    CAudioDecoderChain();
    ~CAudioDecoderChain() override;

    // Builds and initialises the three decoders; the MP3 decoder becomes the default when it
    // initialised. The AAC decoder's result.
    int CreateChain(const std::string& prefix);
    // Gives every decoder `output` as its only dependent.
    void SetOutput(IAudioOutput* output);
    void DestroyChain();

    int SetDecoderId(int id) override;
    int RestartFeed() override;
    int GetType() override;
    int SetAudioFormat(const AudioFormat& format) override;
    int SetBufferSize(int ms) override;
    int Reserved() override;
    int WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) override;
    void SetExtraData(uint8_t** data, uint32_t* size, int source) override;
    void set_player_prefix(const char* prefix) override;

    IAudioOutput* GetCurrent() const { return m_current; }

private:
    IAudioOutput* m_current;  // the selected decoder, or null
    CMP3Decoder* m_mp3;       // owned
    CAACDecoder* m_aac;       // owned
    CAACADTSDecoder* m_adts;  // owned
    IAudioOutput* m_fourth;   // the slot of type id 3; never filled
};

#endif
