#ifndef KORVEL_CAUDIOOUTPUTDUMMY_H
#define KORVEL_CAUDIOOUTPUTDUMMY_H

#include "IAudioOutput.h"

// A sink that accepts everything and plays nothing: stands in where an output is required but
// none is wanted.
class CAudioOutputDummy : public IAudioOutput {
public:
    int SetDecoderId(int) override { return 0; }
    int RestartFeed() override { return 0; }
    int GetType() override { return AUDIO_TYPE_MP3; }
    int SetAudioFormat(const AudioFormat&) override { return 0; }
    int SetBufferSize(int) override { return 0; }
    int Reserved() override { return 0; }
    int WriteBuffer(const uint8_t*, uint16_t, unsigned int) override { return 0; }
    void SetExtraData(uint8_t**, uint32_t*, int) override {}
};

#endif
