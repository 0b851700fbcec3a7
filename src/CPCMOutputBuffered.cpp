#include "CPCMOutputBuffered.h"

#include <algorithm>
#include <cerrno>

#include "Assert.h"
#include "Logger.h"

namespace {
constexpr const char* kSource = "src/CPCMOutputBuffered";
constexpr const char* kPrefixTag = " BUFFERED AUDIO OUT:";
constexpr const char* kResamplerTag = " RESAMPLER:";
constexpr int kDeviceBits = 16;
constexpr int kSampleFormat8 = 0;
constexpr int kSampleFormat16 = 1;
constexpr int kSampleFormat32 = 2;
constexpr int kRecoverSilently = 0;
constexpr uint8_t kUnsignedSilence = 0x80;
constexpr int kLevelAvailShift = 32;
constexpr uint64_t kLevelMsMask = 0xFFFFFFFFu;

uint64_t PackLevel(int avail, uint32_t ms) {
    return (static_cast<uint64_t>(static_cast<uint32_t>(avail)) << kLevelAvailShift) | ms;
}

// Runs an action on every exit of the scope it lives in.
template <class Action>
class OnExit {
public:
    explicit OnExit(Action action) : m_action(action) {}
    ~OnExit() { m_action(); }
    OnExit(const OnExit&) = delete;
    OnExit& operator=(const OnExit&) = delete;

private:
    Action m_action;
};
}  // namespace

CPCMOutputBuffered::CPCMOutputBuffered(BufferingAlgorithm::IBufferingAlgorithm* algorithm, int buffer_ms,
                                       int accuracy_ms)
    : m_algorithm(algorithm),
      m_resampler(this),
      m_sample_format(kSampleFormat16),
      m_threshold(0),
      m_accuracy_ms(accuracy_ms),
      m_period_size(0),
      m_start_threshold(kNeverStartThreshold),
      m_rate(kDeviceRate),
      m_channels(kDeviceChannels),
      m_frame_bytes(kDeviceFrameBytes),
      m_max_buffer_ms(kMaxBufferMs),
      m_playing(false),
      m_level(PackLevel(-EBADF, 0)) {
    KORVEL_ASSERT(kSource, m_algorithm);
    m_threshold = std::min(m_algorithm->MsToSamples(buffer_ms), m_algorithm->MsToSamples(kMaxBufferMs));
    m_algorithm->SetParams(static_cast<uint32_t>(m_algorithm->SamplesToMs(m_threshold)),
                           static_cast<uint32_t>(accuracy_ms));
}

CPCMOutputBuffered::~CPCMOutputBuffered() { DeInitialize(); }

void CPCMOutputBuffered::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
    m_resampler.set_player_prefix(prefix);
    m_resampler.AppendPrefix(kResamplerTag);
}

bool CPCMOutputBuffered::NeedsBuffering() { return !m_playing.load(); }

int CPCMOutputBuffered::Initialize() {
    const OnExit publish([this] { publish_level(); });
    m_ring.Free();
    if (int err = m_ring.Init(static_cast<uint32_t>(m_frame_bytes),
                              static_cast<uint32_t>(m_algorithm->MsToSamples(m_max_buffer_ms)));
        err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::Initialize(): failed to initialize SW buffer\n", GetPrefix());
        return err;
    }
    const AudioFormat device{kDeviceBits, m_rate, m_channels};
    m_resampler.DeInitialize();
    m_resampler.SetInputFormat(device);
    m_resampler.SetOutputFormat(device);
    if (m_resampler.Initialize() < 0) return -1;
    m_input_format = device;
    const int err = alsa_initialize();
    return err < 0 ? err : 0;
}

int CPCMOutputBuffered::alsa_initialize() {
    if (m_handle != nullptr) return 0;
    if (int err = snd_pcm_open(&m_handle, m_device.c_str(), SND_PCM_STREAM_PLAYBACK, 0); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::alsa_initialize(): cannot open audio device %s (%s)\n", GetPrefix(),
                   m_device.c_str(), snd_strerror(err));
        m_handle = nullptr;
        return -1;
    }
    if (int err = set_alsa_hw_params(); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::alsa_initialize(): cannot set HW params (%s)\n", GetPrefix(),
                   snd_strerror(err));
        return abandon_setup(-1);
    }
    if (set_alsa_sw_params() < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::alsa_initialize(): cannot allocate minimal pcm playback threshold of 4096B frames\n",
                   GetPrefix());
        return abandon_setup(-1);
    }
    if (int err = snd_pcm_prepare(m_handle); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::alsa_initialize(): cannot prepare audio interface for use (%s)\n",
                   GetPrefix(), snd_strerror(err));
        return abandon_setup(-1);
    }
    return 0;
}

int CPCMOutputBuffered::set_alsa_hw_params() {
    return apply_hw_params("CPCMOutputBuffered::set_alsa_hw_params", static_cast<unsigned>(m_rate),
                           static_cast<unsigned>(m_channels), kMinDeviceBufferUs, kMinDevicePeriodUs);
}

int CPCMOutputBuffered::set_alsa_sw_params() {
    snd_pcm_sw_params_t* params = nullptr;
    snd_pcm_sw_params_alloca(&params);
    if (int err = snd_pcm_sw_params_current(m_handle, params); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::set_alsa_sw_params(): Unable to determine current swparams for playback: %s\n",
                   GetPrefix(), snd_strerror(err));
        return err;
    }
    KLOG_INFO("%s CPCMOutputBuffered::set_alsa_sw_params(): Setting start threshold to %lu samples...\n", GetPrefix(),
              static_cast<unsigned long>(m_start_threshold));
    if (int err = snd_pcm_sw_params_set_start_threshold(m_handle, params, m_start_threshold); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::set_alsa_swparams(): Unable to set start threshold mode for playback: %s\n",
                   GetPrefix(), snd_strerror(err));
        return err;
    }
    snd_pcm_uframes_t buffer_size = 0;
    snd_pcm_uframes_t period_size = 0;
    if (int err = snd_pcm_get_params(m_handle, &buffer_size, &period_size); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::set_alsa_sw_params(): cannot get audio params (%s)\n", GetPrefix(),
                   snd_strerror(err));
        return -1;
    }
    KLOG_INFO("%s CPCMOutputBuffered::set_alsa_sw_params(): buf_size: %d, period_size: %d \n", GetPrefix(),
              static_cast<int>(buffer_size), static_cast<int>(period_size));
    m_period_size = static_cast<int>(period_size);
    m_transfer.resize(static_cast<size_t>(m_frame_bytes) * period_size);
    if (int err = snd_pcm_sw_params(m_handle, params); err < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::set_alsa_swparams(): Unable to set sw params for playback: %s\n",
                   GetPrefix(), snd_strerror(err));
        return err;
    }
    return 0;
}

int CPCMOutputBuffered::SetAudioFormat(const AudioFormat& format) {
    if (!format.IsValid()) {
        KLOG_DEBUG("Improper audio format provided: bits=%d,channels=%d,rate=%d. Clearing audio format values.",
                   format.bits, format.channels, format.rate);
        m_format = AudioFormat();
        return -1;
    }
    m_format = format;
    if (format.channels == m_input_format.channels && format.bits == m_input_format.bits &&
        format.rate == m_input_format.rate)
        return 0;
    m_input_format = format;
    switch (format.bits) {
        case 8: m_sample_format = kSampleFormat8; break;
        case 16: m_sample_format = kSampleFormat16; break;
        case 32: m_sample_format = kSampleFormat32; break;
        default: KORVEL_ASSERT(kSource, 0 && "Unsupported audio format");
    }
    return m_resampler.SetInputFormat(format);
}

int CPCMOutputBuffered::reset_thresholds(int ms) {
    m_threshold = m_algorithm->MsToSamples(ms);
    m_algorithm->SetParams(static_cast<uint32_t>(m_algorithm->SamplesToMs(m_threshold)),
                           static_cast<uint32_t>(m_accuracy_ms));
    m_ring.Free();
    if (m_ring.Init(static_cast<uint32_t>(m_frame_bytes), static_cast<uint32_t>(m_threshold + m_threshold / 2)) < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::reset_thresholds(): failed to initialize SW buffer\n", GetPrefix());
        return -1;
    }
    return 0;
}

int CPCMOutputBuffered::SetBufferSize(int ms) {
    const OnExit publish([this] { publish_level(); });
    KLOG_INFO("%s CPCMOutputBuffered::SetBufferSize(): setting new buffer size of %d ms\n", GetPrefix(), ms);
    if (StopAudio() < 0) {
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::SetBufferSize(): Could not Stop audio.\n", GetPrefix());
        return -1;
    }
    m_ring.Free();
    KLOG_INFO("%s CPCMOutputBuffered::SetBufferSize() setting ring buffer for %u ms", GetPrefix(),
              static_cast<unsigned>(ms));
    if (reset_thresholds(ms) < 0) return -1;
    if (StartAudio() == 0) return 0;
    m_ring.Free();
    KLOG_ERROR("%s ERROR :CPCMOutputBuffered::SetBufferSize(): Could not Start audio.\n", GetPrefix());
    return -1;
}

int CPCMOutputBuffered::GetBufferedDelay(int64_t* samples) {
    snd_pcm_sframes_t device = 0;
    const int result = m_handle != nullptr ? snd_pcm_delay(m_handle, &device) : -EBADF;
    *samples = static_cast<int64_t>(m_ring.Count()) + (result == 0 ? device : 0);
    return result;
}

int CPCMOutputBuffered::GetBufferLevel(uint32_t* ms) {
    const uint64_t level = m_level.load(std::memory_order_acquire);
    *ms = static_cast<uint32_t>(level & kLevelMsMask);
    return static_cast<int32_t>(static_cast<uint32_t>(level >> kLevelAvailShift));
}

int CPCMOutputBuffered::UpdateBufferLevel() {
    alsa_write_audio_poll();
    uint32_t ms = 0;
    return GetBufferLevel(&ms);
}

// One query for both figures, so that they describe the same moment of the device.
void CPCMOutputBuffered::publish_level() {
    snd_pcm_sframes_t avail = -EBADF;
    snd_pcm_sframes_t device = 0;
    if (m_handle != nullptr) {
        if (int err = snd_pcm_avail_delay(m_handle, &avail, &device); err < 0) {
            avail = err;
            device = 0;
        }
    }
    const int64_t samples = static_cast<int64_t>(m_ring.Count()) + device;
    m_level.store(PackLevel(static_cast<int>(avail), static_cast<uint32_t>(m_algorithm->SamplesToMs(samples))),
                  std::memory_order_release);
}

// Silence is a block in the stream's own format, as the resampler reads it: as wide as an input
// frame, and at the unsigned midpoint for 8-bit samples.
const uint8_t* CPCMOutputBuffered::silence(uint16_t frames) {
    const size_t frame_bytes = static_cast<size_t>(std::max(m_input_format.bits / 8, 1) * std::max(m_input_format.channels, 1));
    const size_t bytes = std::max(frame_bytes, static_cast<size_t>(m_frame_bytes)) * frames;
    const uint8_t zero = m_sample_format == kSampleFormat8 ? kUnsignedSilence : 0;
    if (m_silence.size() < bytes || (!m_silence.empty() && m_silence[0] != zero)) m_silence.assign(bytes, zero);
    return m_silence.data();
}

int CPCMOutputBuffered::resample_repeated(const uint8_t* block, uint16_t frames, int64_t count) {
    while (count >= 1 && frames > 0) {
        const uint32_t piece = static_cast<uint32_t>(std::min<int64_t>(count, frames));
        if (int err = m_resampler.Resample(block, piece); err < 0) return err;
        count -= frames;
    }
    return 0;
}

int CPCMOutputBuffered::WriteBuffer(const uint8_t* data, uint16_t frames, unsigned int lost_packets) {
    const OnExit publish([this] { publish_level(); });
    if (m_handle == nullptr) {
        KLOG_ERROR("%s ERROR :CPCMOutput::WriteBuffer(): NULL handle (0x%x) detected! Reinitilize PCMOutput!%s\n",
                   GetPrefix(), 0u, "");
        return -1;
    }
    int64_t delay = 0;
    if (int err = GetBufferedDelay(&delay); err < 0) {
        KLOG_WARNING("%s CPCMOutputBuffered::WriteBuffer() get delay failed: %s. Trying to recover\n", GetPrefix(),
                     snd_strerror(err));
        if (int rec = xrun_recovery(m_handle, err); rec < 0) {
            KLOG_ERROR("%s ERROR :CPCMOutputBuffered::WriteBuffer() recovery failed: %s\n", GetPrefix(),
                       snd_strerror(rec));
            return -1;
        }
        // The device was prepared again: it no longer plays, so the output buffers up to the
        // threshold before it starts again, as after an underrun seen by the transfer.
        m_playing = false;
        KLOG_INFO("%s CPCMOutputBuffered::WriteBuffer(): Recovery successful, getting delays", GetPrefix());
        if (int again = GetBufferedDelay(&delay); again < 0) {
            m_playing = false;
            KLOG_ERROR("%s ERROR :CPCMOutputBuffered::WriteBuffer() get delay failed 2nd time: %s, giving up\n",
                       GetPrefix(), snd_strerror(again));
            return -1;
        }
        KLOG_NOTICE("%s Delay after recovery is %lld ticks", GetPrefix(), static_cast<long long>(delay));
    }
    const bool running = snd_pcm_state(m_handle) == SND_PCM_STATE_RUNNING;

    int64_t count = 0;
    const int action = m_algorithm->WriteFrame(delay, frames, running, &count, lost_packets);
    int result = 0;
    switch (action) {
        case BufferingAlgorithm::ACTION_WRITE: result = resample_repeated(data, frames, count); break;
        case BufferingAlgorithm::ACTION_SILENCE: result = resample_repeated(silence(frames), frames, count); break;
        case BufferingAlgorithm::ACTION_DROP: m_resampler.DropOutput(frames); break;
        default: KORVEL_ASSERT(kSource, 0 && "Unknown buffering action");
    }
    if (result < 0) return result;

    int64_t buffered = 0;
    if (!running && GetBufferedDelay(&buffered) == 0 && buffered >= m_threshold) {
        m_playing = true;
        transfer_periods();
        KLOG_NOTICE("%s  id=%d, CPCMOutputBuffered::WriteBuffer(): Audio threshold of %llu samples reached (current %llu). Starting playback",
                    GetPrefix(), GetPlayerId(), static_cast<unsigned long long>(m_threshold),
                    static_cast<unsigned long long>(buffered));
        if (int err = snd_pcm_start(m_handle); err < 0) {
            KLOG_ERROR("%s ERROR :CPCMOutputBuffered::WriteBuffer(): snd_pcm_start() failed: %s\n", GetPrefix(),
                       snd_strerror(err));
            m_playing = false;
        }
    }
    transfer_periods();
    return 0;
}

int CPCMOutputBuffered::ResamplerOutputBuffer(const uint8_t* data, uint32_t frames) {
    const uint32_t stored = std::min(frames, m_ring.FreeSpace());
    m_ring.Write(data, stored);
    if (stored < frames)
        KLOG_ERROR("%s ERROR :CPCMOutputBuffered::ResamplerOutputBuffer() Audio buffer full! Dropping %u samples...\n",
                   GetPrefix(), frames - stored);
    return 0;
}

void CPCMOutputBuffered::alsa_write_audio_poll() {
    transfer_periods();
    publish_level();
}

void CPCMOutputBuffered::transfer_periods() {
    if (m_handle == nullptr || !m_playing || m_period_size <= 0) return;
    snd_pcm_sframes_t avail = snd_pcm_avail_update(m_handle);
    if (avail == -EPIPE) {
        m_playing = false;
        snd_pcm_prepare(m_handle);
        avail = snd_pcm_avail_update(m_handle);
        if (avail == -EPIPE)
            KLOG_ERROR("%s ERROR :CPCMOutputBuffered::alsa_write_audio_poll(): unable to read available frames for writing, because of broken pipe",
                       GetPrefix());
    }
    const uint32_t period = static_cast<uint32_t>(m_period_size);
    while (avail >= m_period_size) {
        if (m_ring.Count() < period) break;
        m_ring.Read(m_transfer.data(), period);
        snd_pcm_sframes_t written = snd_pcm_writei(m_handle, m_transfer.data(), period);
        bool prepared_again = false;
        if (written < 0 && snd_pcm_recover(m_handle, static_cast<int>(written), kRecoverSilently) == 0) {
            prepared_again = snd_pcm_state(m_handle) == SND_PCM_STATE_PREPARED;
            written = snd_pcm_writei(m_handle, m_transfer.data(), period);
        }
        if (written < 0) KLOG_ERROR("%s ERROR :snd_pcm_writei() failed with err=%d", GetPrefix(), static_cast<int>(written));
        // A device prepared again stays silent until it is started: the output buffers up to the
        // threshold once more, and WriteBuffer starts it, rather than report playing meanwhile.
        if (prepared_again) {
            m_playing = false;
            break;
        }
        avail = snd_pcm_avail_update(m_handle);
    }
}

int CPCMOutputBuffered::StopAudio() {
    KLOG_INFO("%s CPCMOutputBuffered::StopAudio(): StopAudio() called.\n", GetPrefix());
    int result = 0;
    if (m_handle != nullptr) {
        result = snd_pcm_drop(m_handle);
        if (result < 0)
            KLOG_ERROR("%s ERROR :CPCMOutputBuffered::StopAudio(): cannot drain audio (%s)\n", GetPrefix(),
                       snd_strerror(result));
    }
    m_ring.Reset();
    m_playing = false;
    publish_level();
    KLOG_INFO("%s CPCMOutputBuffered::StopAudio() End.\n", GetPrefix());
    return result;
}

int CPCMOutputBuffered::DeInitialize() {
    m_resampler.DeInitialize();
    KLOG_INFO("%s CPCMOutputBuffered::DeInitialize(): DeInitialize() called.\n", GetPrefix());
    int result = 0;
    if (m_handle != nullptr) {
        result = snd_pcm_close(m_handle);
        if (result < 0)
            KLOG_ERROR("%s ERROR :CPCMOutputBuffered::DeInitialize(): cannot close handle (%s)\n", GetPrefix(),
                       snd_strerror(result));
        m_playing = false;
        m_handle = nullptr;
    }
    m_ring.Free();
    m_transfer.clear();
    m_transfer.shrink_to_fit();
    m_input_format = AudioFormat();
    m_level.store(PackLevel(-EBADF, 0), std::memory_order_release);
    KLOG_INFO("%s CPCMOutputBuffered::DeInitialize() End.\n", GetPrefix());
    return result;
}

int CPCMOutputBuffered::DeInitWithDrain() { return DeInitialize(); }
