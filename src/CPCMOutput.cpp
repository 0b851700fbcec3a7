#include "CPCMOutput.h"

#include <cerrno>
#include <chrono>
#include <thread>

#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " AUDIO OUT:";
constexpr int kAllowAlsaResampling = 1;
constexpr std::chrono::milliseconds kResumeRetryInterval{100};
constexpr int kBlockingMode = 0;
// A block whose writes keep failing after recovery is given up after this many recoveries, so that a
// card that underruns on every write cannot hold the worker thread.
constexpr int kMaxRecoveriesPerBlock = 3;

// Releases a hardware parameter object on every exit of set_hwparams().
class HwParamsGuard {
public:
    explicit HwParamsGuard(snd_pcm_hw_params_t*& params) : m_params(params) {}
    ~HwParamsGuard() {
        if (m_params != nullptr) snd_pcm_hw_params_free(m_params);
        m_params = nullptr;
    }
    HwParamsGuard(const HwParamsGuard&) = delete;
    HwParamsGuard& operator=(const HwParamsGuard&) = delete;

private:
    snd_pcm_hw_params_t*& m_params;
};
}  // namespace

CPCMOutput::CPCMOutput() : m_hw_params(nullptr), m_device(kDefaultDevice), m_handle(nullptr) {
}

CPCMOutput::~CPCMOutput() {
    if (m_handle != nullptr) snd_pcm_close(m_handle);
}

void CPCMOutput::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

int CPCMOutput::SetDecoderId(int) { return 0; }
int CPCMOutput::RestartFeed() { return 0; }
int CPCMOutput::GetType() { return AUDIO_TYPE_PCM; }
int CPCMOutput::SetBufferSize(int) { return 0; }
int CPCMOutput::Reserved() { return 0; }
void CPCMOutput::SetExtraData(uint8_t**, uint32_t*, int) {}
bool CPCMOutput::NeedsBuffering() { return false; }

int CPCMOutput::Initialize() {
    if (m_handle != nullptr) {
        KLOG_WARNING("%s CPCMOutput::Initialize(): already initiliazed with audio interface %s \n", GetPrefix(),
                     m_device.c_str());
        return 0;
    }
    if (int err = snd_pcm_open(&m_handle, m_device.c_str(), SND_PCM_STREAM_PLAYBACK, 0); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::Initialize(): cannot open audio device %s (%s)\n", GetPrefix(),
                   m_device.c_str(), snd_strerror(err));
        m_handle = nullptr;
        return -1;
    }
    if (int err = set_hwparams(); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::Initialize(): cannot set HW params (%s)\n", GetPrefix(), snd_strerror(err));
        return abandon_setup(-1);
    }
    if (int err = snd_pcm_prepare(m_handle); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::Initialize(): cannot prepare audio interface for use (%s)\n", GetPrefix(),
                   snd_strerror(err));
        return abandon_setup(-1);
    }
    if (int err = set_swparams(); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::Initialize(): cannot allocate minimal pcm playback threshold of 4096B frames\n",
                   GetPrefix());
        return abandon_setup(err);
    }
    m_device_format = m_format;
    return 0;
}

int CPCMOutput::abandon_setup(int result) {
    snd_pcm_close(m_handle);
    m_handle = nullptr;
    m_device_format = AudioFormat();
    return result;
}

int CPCMOutput::set_hwparams() {
    return apply_hw_params("CPCMOutput::set_hwparams", static_cast<unsigned>(m_format.rate),
                           static_cast<unsigned>(m_format.channels));
}

int CPCMOutput::apply_hw_params(const char* where, unsigned rate, unsigned channels, unsigned min_buffer_us,
                                unsigned min_period_us) {
    HwParamsGuard guard(m_hw_params);
    if (int err = snd_pcm_hw_params_malloc(&m_hw_params); err < 0) {
        m_hw_params = nullptr;
        KLOG_ERROR("%s ERROR :%s(): cannot allocate hardware parameter structure (%s)\n", GetPrefix(), where,
                   snd_strerror(err));
        return -1;
    }
    if (int err = snd_pcm_hw_params_any(m_handle, m_hw_params); err < 0) {
        KLOG_ERROR("%s ERROR :%s(): cannot initialize hardware parameter structure (%s)\n", GetPrefix(), where,
                   snd_strerror(err));
        return -1;
    }
    if (int err = snd_pcm_hw_params_set_rate_resample(m_handle, m_hw_params, kAllowAlsaResampling); err < 0) {
        KLOG_ERROR("%s ERROR :%s(): Resampling setup failed for playback: %s\n", GetPrefix(), where, snd_strerror(err));
        return err;
    }
    if (int err = snd_pcm_hw_params_set_access(m_handle, m_hw_params, SND_PCM_ACCESS_RW_INTERLEAVED); err < 0) {
        KLOG_ERROR("%s ERROR :%s(): cannot set access type (%s)\n", GetPrefix(), where, snd_strerror(err));
        return -1;
    }
    // Every decoder here delivers 16-bit samples, whatever the format record says about bits.
    if (int err = snd_pcm_hw_params_set_format(m_handle, m_hw_params, SND_PCM_FORMAT_S16_LE); err < 0) {
        KLOG_ERROR("%s ERROR :%s(): cannot set sample format (%s)\n", GetPrefix(), where, snd_strerror(err));
        return -1;
    }
    KLOG_INFO("%s %s(): Setting samplerate to %d...\n", GetPrefix(), where, static_cast<int>(rate));
    unsigned int granted = rate;
    if (int err = snd_pcm_hw_params_set_rate_near(m_handle, m_hw_params, &granted, nullptr); err < 0) {
        KLOG_ERROR("%s ERROR :%s(): cannot set sample rate (%s)\n", GetPrefix(), where, snd_strerror(err));
        return -1;
    }
    if (granted != rate) {
        KLOG_ERROR("%s ERROR :%s(): Rate doesn't match (requested %iHz, get %iHz)\n", GetPrefix(), where,
                   static_cast<int>(rate), static_cast<int>(granted));
        return -EINVAL;
    }
    if (int err = snd_pcm_hw_params_set_channels(m_handle, m_hw_params, channels); err < 0) {
        KLOG_ERROR("%s ERROR :%s(): cannot set channel count to %d (%s)\n", GetPrefix(), where,
                   static_cast<int>(channels), snd_strerror(err));
        return -1;
    }
    // Wishes, not conditions: a device that cannot meet one keeps the sizes it has.
    using SetMin = int (*)(snd_pcm_t*, snd_pcm_hw_params_t*, unsigned int*, int*);
    const struct {
        unsigned us;
        SetMin set;
        const char* what;
    } wishes[] = {{kMaxDeviceBufferUs, &snd_pcm_hw_params_set_buffer_time_max, "buffer"},
                  {min_buffer_us, &snd_pcm_hw_params_set_buffer_time_min, "buffer"},
                  {min_period_us, &snd_pcm_hw_params_set_period_time_min, "period"}};
    for (const auto& wish : wishes) {
        if (wish.us == 0) continue;
        snd_pcm_hw_params_t* before = nullptr;
        snd_pcm_hw_params_alloca(&before);
        snd_pcm_hw_params_copy(before, m_hw_params);
        unsigned int time = wish.us;
        int direction = 0;
        if (int err = wish.set(m_handle, m_hw_params, &time, &direction); err < 0) {
            KLOG_WARNING("%s %s(): the device cannot take a %s of %u us (%s)\n", GetPrefix(), where, wish.what, wish.us,
                         snd_strerror(err));
            snd_pcm_hw_params_copy(m_hw_params, before);
        }
    }
    if (int err = snd_pcm_hw_params(m_handle, m_hw_params); err < 0) {
        KLOG_ERROR("%s ERROR :%s(): cannot set parameters (%s)\n", GetPrefix(), where, snd_strerror(err));
        return -1;
    }
    return 0;
}

int CPCMOutput::set_swparams() {
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_alloca(&params);
    if (int err = snd_pcm_sw_params_current(m_handle, params); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::set_swparams(): Unable to determine current swparams for playback: %s\n",
                   GetPrefix(), snd_strerror(err));
        return err;
    }
    if (int err = snd_pcm_sw_params_set_start_threshold(m_handle, params, kStartThresholdFrames); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::set_swparams(): Unable to set start threshold mode for playback: %s\n",
                   GetPrefix(), snd_strerror(err));
        return err;
    }
    if (int err = snd_pcm_sw_params(m_handle, params); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::set_swparams(): Unable to set sw params for playback: %s\n", GetPrefix(),
                   snd_strerror(err));
        return err;
    }
    return 0;
}

int CPCMOutput::SetAudioFormat(const AudioFormat& format) {
    if (!format.IsValid()) {
        KLOG_DEBUG("%s Improper audio format provided: bits=%d,channels=%d,rate=%d. Clearing audio format values.",
                   GetPrefix(), format.bits, format.channels, format.rate);
        m_format = AudioFormat();
        return -1;
    }
    m_format = format;
    // Tracks of one format play back to back: the device keeps running rather than being drained,
    // closed and opened again between them, which the listener would hear as a gap.
    if (m_handle != nullptr && format.bits == m_device_format.bits && format.rate == m_device_format.rate &&
        format.channels == m_device_format.channels)
        return 0;
    int result = DeInitWithDrain();
    if (result != 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::SetAudioFormat(): Error iitilaizing with format(): format:[%d,%d,%d]\n",
                   GetPrefix(), format.bits, format.channels, format.rate);
    } else {
        result = Initialize();
    }
    if (result < 0) m_format = AudioFormat();
    return result;
}

int CPCMOutput::WriteBuffer(const uint8_t* data, uint16_t frames, unsigned int) {
    if (m_handle == nullptr) {
        KLOG_ERROR("%s ERROR :CPCMOutput::WriteBuffer(): NULL handle (0x%x) detected! Reinitilize PCMOutput!%s\n",
                   GetPrefix(), 0u, "");
        return -1;
    }
    snd_pcm_uframes_t done = 0;
    int recoveries = 0;
    // A blocking write ends short when a signal arrives, and fails whole after an underrun: in both
    // cases the rest of the block is still due, or the listener hears a hole.
    while (done < frames) {
        // Counted in the device's own frames: an improper format clears m_format, not the device.
        const snd_pcm_sframes_t written =
            snd_pcm_writei(m_handle, data + snd_pcm_frames_to_bytes(m_handle, done), frames - done);
        if (written > 0) {
            done += static_cast<snd_pcm_uframes_t>(written);
            continue;
        }
        if (written == -EINTR) continue;
        if (written == -EAGAIN || written == 0) return static_cast<int>(done);
        if (xrun_recovery(m_handle, static_cast<int>(written)) < 0) {
            KLOG_ERROR("%s ERROR :CPCMOutput::WriteBuffer() Write error: %s\n", GetPrefix(),
                       snd_strerror(static_cast<int>(written)));
            return -1;
        }
        if (++recoveries > kMaxRecoveriesPerBlock) {
            KLOG_ERROR("%s ERROR :CPCMOutput::WriteBuffer() giving up the rest of the block after %d recoveries: %s\n",
                       GetPrefix(), kMaxRecoveriesPerBlock, snd_strerror(static_cast<int>(written)));
            return static_cast<int>(done);
        }
    }
    return static_cast<int>(done);
}

int CPCMOutput::xrun_recovery(snd_pcm_t* handle, int err) {
    if (err == -EPIPE) {
        const int result = snd_pcm_prepare(handle);
        if (result < 0)
            KLOG_ERROR("%s ERROR :CPCMOutput::xrun_recovery(): Can't recovery from underrun, prepare failed: %s\n",
                       GetPrefix(), snd_strerror(result));
        return result;
    }
    if (err == -ESTRPIPE) {
        int result = snd_pcm_resume(handle);
        for (int attempt = 1; result == -EAGAIN && attempt < kResumeAttempts; ++attempt) {
            std::this_thread::sleep_for(kResumeRetryInterval);
            result = snd_pcm_resume(handle);
        }
        if (result == 0) return 0;
        result = snd_pcm_prepare(handle);
        if (result < 0)
            KLOG_ERROR("%s ERROR :CPCMOutput::xrun_recovery(): Can't recovery from suspend, prepare failed: %s\n",
                       GetPrefix(), snd_strerror(result));
        return 0;
    }
    return err;
}

int CPCMOutput::StartAudio() {
    KLOG_INFO("%s CPCMOutput::StartAudio(): called.", GetPrefix());
    if (m_handle == nullptr) {
        KLOG_WARNING("%s CPCMOutput::StartAudio(): NULL Audio handle found.", GetPrefix());
        return 0;
    }
    if (int err = snd_pcm_prepare(m_handle); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::StartAudio(): cannot prepare audio interface for use (%s)\n", GetPrefix(),
                   snd_strerror(err));
        return -1;
    }
    KLOG_INFO("%s CPCMOutput::StartAudio(): End.", GetPrefix());
    return 0;
}

int CPCMOutput::StopAudio() {
    KLOG_INFO("%s CPCMOutput::StopAudio(): CPCMOutput::StopAudio() called.\n", GetPrefix());
    if (m_handle == nullptr) return 0;
    int result = snd_pcm_nonblock(m_handle, kBlockingMode);
    if (result < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutput::StopAudio(): cannot set non-blocking mode (%s)\n", GetPrefix(),
                   snd_strerror(result));
    } else {
        result = snd_pcm_drain(m_handle);
        if (result < 0)
            KLOG_ERROR("%s ERROR :CPCMOutput::StopAudio(): cannot drain audio (%s)\n", GetPrefix(), snd_strerror(result));
    }
    KLOG_INFO("%s CPCMOutput::StopAudio() End.\n", GetPrefix());
    return result;
}

int CPCMOutput::close_handle(bool drain, const char* method) {
    if (drain) {
        if (int err = snd_pcm_drain(m_handle); err < 0)
            KLOG_ERROR("%s ERROR :CPCMOutput::%s(): cannot drain handle (%s)\n", GetPrefix(), method, snd_strerror(err));
    }
    const int result = snd_pcm_close(m_handle);
    m_device_format = AudioFormat();
    if (result < 0)
        KLOG_ERROR("%s ERROR :CPCMOutput::%s(): cannot close handle (%s)\n", GetPrefix(), method, snd_strerror(result));
    else
        m_handle = nullptr;
    return result;
}

int CPCMOutput::DeInitWithDrain() {
    KLOG_INFO("%s CPCMOutput::DeInitWithDrain(): CPCMOutput::DeInitWithDrain() called.\n", GetPrefix());
    if (m_handle == nullptr) return 0;
    const int result = close_handle(true, "DeInitWithDrain");
    KLOG_INFO("%s CPCMOutput::DeInitWithDrain() End.\n", GetPrefix());
    return result;
}

int CPCMOutput::DeInitialize() {
    KLOG_INFO("%s CPCMOutput::DeInitialize(): CPCMOutput::DeInitialize() called.\n", GetPrefix());
    if (m_handle == nullptr) return 0;
    const int result = close_handle(false, "DeInitialize");
    KLOG_INFO("%s CPCMOutput::DeInitialize() End.\n", GetPrefix());
    return result;
}

int CPCMOutput::GetDelay(int64_t* frames) {
    if (m_handle == nullptr) return -EBADF;
    snd_pcm_sframes_t delay = 0;
    const int result = snd_pcm_delay(m_handle, &delay);
    if (frames != nullptr) *frames = static_cast<int64_t>(delay);
    return result;
}
