#ifndef KORVEL_CPCMOUTPUT_H
#define KORVEL_CPCMOUTPUT_H

#include <alsa/asoundlib.h>
#include <cstdint>
#include <string>

#include "AudioFormat.h"
#include "CAudioOutput.h"
#include "CVolumeConvertion.h"

// The end of the audio chain for local files: writes interleaved 16-bit PCM to an ALSA playback
// device with blocking writes, which pace the whole decode chain. Opens the device for the format
// the decoder announces, reopens it when the format changes, recovers from underruns and suspends,
// and stops by draining or dropping. Worker thread only; it has no lock of its own.
class CPCMOutput : public CAudioOutput, public CVolumeConvertion {
public:
    static constexpr const char* kDefaultDevice = "plug:dmix";
    // Playback starts by itself once this many frames are queued.
    static constexpr snd_pcm_uframes_t kStartThresholdFrames = 4096;
    // A device that lets its buffer grow without bound (software devices do) would otherwise be
    // given the largest it allows: memory for nothing, and a stop that must drop seconds of audio.
    static constexpr unsigned kMaxDeviceBufferUs = 1000000;
    // A suspended card that has not resumed after this many tries is prepared afresh instead: a card
    // that never comes back must not hold the worker thread.
    static constexpr int kResumeAttempts = 10;

    CPCMOutput();
    ~CPCMOutput() override;

    int SetDecoderId(int id) override;
    int RestartFeed() override;
    int GetType() override;
    int SetAudioFormat(const AudioFormat& format) override;
    int SetBufferSize(int ms) override;
    int Reserved() override;
    int WriteBuffer(const uint8_t* data, uint16_t frames, unsigned int lost_packets) override;
    void SetExtraData(uint8_t** data, uint32_t* size, int source) override;

    virtual int Initialize();
    virtual int DeInitialize();
    virtual int DeInitWithDrain();
    virtual int StopAudio();
    virtual int StartAudio();
    virtual int GetDelay(int64_t* frames);
    virtual bool NeedsBuffering();
    void set_player_prefix(const char* prefix) override;

    const char* GetDevice() const { return m_device.c_str(); }
    void SetDevice(const char* name) { m_device = name != nullptr ? name : ""; }
    const AudioFormat& GetFormat() const { return m_format; }
    bool IsOpen() const { return m_handle != nullptr; }

protected:
    int set_hwparams();
    // The hardware set-up shared with the buffered output; `where` names the caller in log lines.
    // A non-zero `min_buffer_us` asks the device to hold at least that much audio (kept when the
    // device cannot: a smaller buffer plays, it only needs feeding more often).
    // `min_period_us` likewise keeps the periods from being so short that moving audio period by
    // period costs more than the audio itself.
    int apply_hw_params(const char* where, unsigned rate, unsigned channels, unsigned min_buffer_us = 0,
                        unsigned min_period_us = 0);
    int set_swparams();
    int xrun_recovery(snd_pcm_t* handle, int err);
    int close_handle(bool drain, const char* method);
    // Closes a device whose set-up failed and returns `result`: a half-configured handle left behind
    // would make the next Initialize report success on a device every write fails on.
    int abandon_setup(int result);

    snd_pcm_hw_params_t* m_hw_params;  // only within one set_hwparams() call
    std::string m_device;
    AudioFormat m_format;
    AudioFormat m_device_format;  // worker thread only: the format the open device was set up for
    // Worker thread only: the buffered output answers level queries from other threads from a
    // snapshot the worker publishes, never through this handle.
    snd_pcm_t* m_handle;
};

#endif
