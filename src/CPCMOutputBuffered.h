#ifndef KORVEL_CPCMOUTPUTBUFFERED_H
#define KORVEL_CPCMOUTPUTBUFFERED_H

#include <atomic>
#include <cstdint>
#include <vector>

#include "CPCMOutput.h"
#include "CResampler.h"
#include "CRingBuffer.h"
#include "IBufferingAlgorithm.h"
#include "IResamplerOutput.h"

// The PCM output for network streams: converts every decoded block to 48000 Hz stereo S16, keeps it
// in a ring sized in milliseconds, holds playback back until enough audio is buffered and then moves
// the ring into ALSA period by period. A buffering algorithm decides per block whether it is stored
// as it is, repeated, replaced by silence or cut, which absorbs clock drift and packet loss.
// Runs on the player's worker thread; only GetBufferLevel() and NeedsBuffering() may be called
// from other threads, and they read values the worker publishes, never the device.
class CPCMOutputBuffered : public CPCMOutput, public IResamplerOutput {
public:
    static constexpr int kDeviceRate = 48000;
    static constexpr int kDeviceChannels = 2;
    static constexpr int kDeviceFrameBytes = 4;
    static constexpr int kMaxBufferMs = 9000;
    // While the network stalls, the ring is moved into the card only from the demuxer's interrupt
    // callback, which libavformat calls about every 100 ms: the device must hold more than that gap.
    static constexpr unsigned kMinDeviceBufferUs = 250000;
    static constexpr unsigned kMinDevicePeriodUs = 10000;
    // So large that the device never starts by itself: playback starts explicitly at the threshold.
    static constexpr snd_pcm_uframes_t kNeverStartThreshold = 0x7FFFFFFF;

    CPCMOutputBuffered(BufferingAlgorithm::IBufferingAlgorithm* algorithm, int buffer_ms, int accuracy_ms);
    ~CPCMOutputBuffered() override;

    int SetAudioFormat(const AudioFormat& format) override;
    int SetBufferSize(int ms) override;
    int WriteBuffer(const uint8_t* data, uint16_t frames, unsigned int lost_packets) override;
    int Initialize() override;
    int DeInitialize() override;
    int DeInitWithDrain() override;
    int StopAudio() override;
    bool NeedsBuffering() override;
    void set_player_prefix(const char* prefix) override;

    virtual int reset_thresholds(int ms);
    // Ring plus device, in samples; the ALSA result of the delay query. Worker thread only.
    virtual int GetBufferedDelay(int64_t* samples);
    // Any thread: the buffered delay in milliseconds and the device's available frames (-EBADF
    // without a device), both as the worker last saw them.
    virtual int GetBufferLevel(uint32_t* ms);
    // Worker thread only: moves whole periods from the ring into a playing device and publishes the
    // level afresh, so that the card keeps being fed while no new block arrives; returns what
    // GetBufferLevel() will.
    int UpdateBufferLevel();
    int ResamplerOutputBuffer(const uint8_t* data, uint32_t frames) override;
    // Worker thread only: the period transfer, then a fresh level.
    virtual void alsa_write_audio_poll();

    int64_t GetThreshold() const { return m_threshold; }
    uint32_t GetRingCapacity() { return m_ring.Capacity(); }
    uint32_t GetRingCount() { return m_ring.Count(); }
    int GetPeriodSize() const { return m_period_size; }
    CResampler& GetResampler() { return m_resampler; }

protected:
    int alsa_initialize();
    int set_alsa_hw_params();
    int set_alsa_sw_params();

private:
    // Feeds `count` samples of `block` (`frames` long) to the resampler: repeated while the count
    // exceeds the block, cut when it is shorter.
    int resample_repeated(const uint8_t* block, uint16_t frames, int64_t count);
    const uint8_t* silence(uint16_t frames);
    // Moves whole periods from the ring into a playing device; callers publish the level after.
    void transfer_periods();
    // Takes the level from the ring and the device and stores it for GetBufferLevel().
    void publish_level();

    BufferingAlgorithm::IBufferingAlgorithm* m_algorithm;  // not owned
    CRingBuffer m_ring;            // own lock; filled and drained on the worker thread
    CResampler m_resampler;
    AudioFormat m_input_format;
    int m_sample_format;
    int64_t m_threshold;
    int m_accuracy_ms;
    int m_period_size;
    snd_pcm_uframes_t m_start_threshold;
    int m_rate;
    int m_channels;
    int m_frame_bytes;
    int m_max_buffer_ms;
    std::atomic<bool> m_playing;   // written by the worker, read by NeedsBuffering from any thread
    // Atomic: written by the worker, read by GetBufferLevel from any thread. The device's avail
    // result in the high half, the level in ms in the low half: one value, so that a reader never
    // pairs a level with an avail from another moment.
    std::atomic<uint64_t> m_level;
    std::vector<uint8_t> m_transfer;  // one period, allocated with the device
    std::vector<uint8_t> m_silence;   // zeros, grown to the longest block asked for
};

#endif
