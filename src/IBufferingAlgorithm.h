#ifndef KORVEL_IBUFFERINGALGORITHM_H
#define KORVEL_IBUFFERINGALGORITHM_H

#include <cstdint>

namespace BufferingAlgorithm {

// What the buffered output does with a block, as WriteFrame answers.
enum Action : int {
    ACTION_WRITE = 0,    // store *count samples of the block (repeated when longer, cut when shorter)
    ACTION_SILENCE = 1,  // store *count samples of silence instead of the block
    ACTION_DROP = 2,     // the resampler drops the block's length of pending output
};

// Decides, for every block the buffered output is about to store, how many samples to store and
// whether they are the block's own or silence. Counts in ticks: samples at its sample rate.
// Worker thread only.
class IBufferingAlgorithm {
public:
    static constexpr int kDefaultRate = 48000;
    static constexpr int64_t kMillisPerSecond = 1000;

    virtual ~IBufferingAlgorithm() = default;
    virtual void SetSampleRate(int rate) { m_rate = rate; }
    virtual void SetParams(uint32_t level_ms, uint32_t acc_ms) = 0;
    // `delay` is the buffer level in ticks (ring plus device); `running` says the device plays.
    virtual int WriteFrame(int64_t delay, int frames, bool running, int64_t* count, unsigned int lost_packets) = 0;
    virtual int64_t MsToSamples(int ms) const { return static_cast<int64_t>(m_rate) * ms / kMillisPerSecond; }
    virtual int64_t SamplesToMs(int64_t samples) const { return samples * kMillisPerSecond / m_rate; }
    virtual void set_player_prefix(const char* prefix) = 0;

    int GetSampleRate() const { return m_rate; }

protected:
    int m_rate = kDefaultRate;
};

}  // namespace BufferingAlgorithm

#endif
