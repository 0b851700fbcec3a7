#ifndef KORVEL_IAUDIOOUTPUT_H
#define KORVEL_IAUDIOOUTPUT_H

#include <cstdint>

#include "AudioFormat.h"
#include "IOutputSelector.h"

// Anything that consumes audio: the decoder chain, the decoders and the PCM outputs. Used on the
// player's worker thread only.
class IAudioOutput : public IOutputSelector {
public:
    ~IAudioOutput() override = default;
    // The format of the PCM that follows; always announced before the first block in it.
    virtual int SetAudioFormat(const AudioFormat& format) = 0;
    // Buffer length in milliseconds; only a buffered output has one.
    virtual int SetBufferSize(int ms) = 0;
    // Reserved: 0 in every sink, forwarded by the chain.
    virtual int Reserved() = 0;
    // One packet: compressed bytes for a decoder, `size` frames for a PCM output. `lost_packets` is
    // how many packets went missing just before this one.
    virtual int WriteBuffer(const uint8_t* data, uint16_t size, unsigned int lost_packets) = 0;
    // Codec configuration; a non-zero `source` arms the AAC decoders.
    virtual void SetExtraData(uint8_t** data, uint32_t* size, int source) = 0;
};

#endif
