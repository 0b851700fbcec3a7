#ifndef KORVEL_CAUDIOOUTPUT_H
#define KORVEL_CAUDIOOUTPUT_H

#include <vector>

#include "APlayerInfoAdapter.h"
#include "IAudioOutput.h"

// Base of every decoder and PCM output: keeps the dependent outputs (in practice one, the PCM
// output) and passes formats and decoded blocks on to them. Worker thread only.
class CAudioOutput : public IAudioOutput, public APlayerInfoAdapter {
public:
    CAudioOutput() = default;
    ~CAudioOutput() override = default;

    int SetDecoderId(int id) override;
    void SetExtraData(uint8_t** data, uint32_t* size, int source) override;
    // Writes the block to every dependent; a dependent that fails is told to restart its feed and
    // the others still get the block.
    virtual void SendAudio(const uint8_t* data, uint16_t frames, unsigned int lost_packets);

    // Makes `output` the only dependent (not owned).
    void SetOutput(IAudioOutput* output);
    // Announces `format` to every dependent; the last result, 0 without dependents.
    int AssignAudioFormat(const AudioFormat& format);

protected:
    std::vector<IAudioOutput*> m_outputs;  // not owned
};

#endif
