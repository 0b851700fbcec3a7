#ifndef KORVEL_CAACADTSDECODER_H
#define KORVEL_CAACADTSDECODER_H

#include "CAACDecoder.h"

// Decodes AAC with ADTS headers, which carry their own configuration; SetExtraData only arms it.
// Worker thread only.
class CAACADTSDecoder : public CAACDecoder {
public:
    int RestartFeed() override;
    int GetType() override;
    void SetExtraData(uint8_t** config, uint32_t* length, int source) override;
    int Initialize() override;
    void set_player_prefix(const char* prefix) override;

protected:
    bool may_hold_several_frames() const override { return true; }
};

#endif
