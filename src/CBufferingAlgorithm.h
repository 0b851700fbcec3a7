#ifndef KORVEL_CBUFFERINGALGORITHM_H
#define KORVEL_CBUFFERINGALGORITHM_H

#include "APlayerInfoAdapter.h"
#include "IBufferingAlgorithm.h"

namespace BufferingAlgorithm {

// Keeps an RTP stream's buffer level around a target: when a smoothed level leaves the tolerance
// band (the sender's and the sound card's clocks drift apart) one band's worth of samples is
// dropped or duplicated; gaps left by lost packets are filled by repeating the block (a few
// packets) or by silence (more). Worker thread only.
class CBufferingAlgorithm : public IBufferingAlgorithm, public APlayerInfoAdapter {
public:
    static constexpr double kAlpha = 0.9992;
    // More lost packets than this in a row are filled with silence rather than repetitions.
    static constexpr unsigned kMaxRepeatedPackets = 3;

    CBufferingAlgorithm(uint32_t level_ms, uint32_t acc_ms);
    void SetSampleRate(int rate) override;
    void SetParams(uint32_t level_ms, uint32_t acc_ms) override;
    int WriteFrame(int64_t delay, int frames, bool running, int64_t* count, unsigned int lost_packets) override;
    void set_player_prefix(const char* prefix) override;

    int64_t GetLevelTicks() const { return m_level_ticks; }
    int64_t GetAccuracyTicks() const { return m_acc_ticks; }
    double GetFilteredDelay() const { return m_filtered_delay; }

private:
    void recompute_ticks();

    uint32_t m_level_ms;
    int64_t m_level_ticks;
    uint32_t m_acc_ms;
    int64_t m_acc_ticks;
    double m_filtered_delay;
    double m_alpha;
};

}  // namespace BufferingAlgorithm

#endif
