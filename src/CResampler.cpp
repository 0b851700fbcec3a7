#include "CResampler.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libavutil/mem.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include "Assert.h"
#include "Logger.h"

namespace {
constexpr const char* kSource = "src/CResampler";
constexpr int kDeviceBits = 16;
constexpr int kDeviceRate = 48000;
constexpr int kDeviceChannels = 2;
constexpr int kNoLogOffset = 0;
constexpr double kUnityGain = 1.0;
// Half the library's default filter length. Measured 44.1 -> 48 kHz: the resampler is the largest
// cost of a stream after the decoder (on the device's core 452 M instructions per minute of audio
// at 32 taps, 383 at 16), while a sine keeps 90 dB SNR up to 10 kHz and 60 dB at 15 kHz, above the
// low-pass of the bit rates radio is sent at; 8 taps would cost little less and fall to 44 dB at
// 10 kHz.
constexpr int64_t kFilterTaps = 16;

// Mono and stereo keep their usual layouts; a wider stream gets the standard layout of its channel
// count, so that its interleaved channels are read as what they are and mixed down properly.
void layout_for(int channels, AVChannelLayout* layout) {
    if (channels == 1)
        *layout = AV_CHANNEL_LAYOUT_MONO;
    else if (channels <= 2)
        *layout = AV_CHANNEL_LAYOUT_STEREO;
    else
        av_channel_layout_default(layout, channels);
}
}  // namespace

CResampler::CResampler(IResamplerOutput* output)
    : m_swr(nullptr),
      m_output(output),
      m_input_format{kDeviceBits, kDeviceRate, kDeviceChannels},
      m_output_format{kDeviceBits, kDeviceRate, kDeviceChannels},
      m_input_sample_format(AV_SAMPLE_FMT_S16),
      m_output_sample_format(AV_SAMPLE_FMT_S16),
      m_buffer(nullptr),
      m_buffer_samples(0),
      m_init_count(0) {}

CResampler::~CResampler() {
    DeInitialize();
    av_freep(&m_buffer);
}

AVSampleFormat CResampler::convert_fmt(int bits) {
    switch (bits) {
        case 8: return AV_SAMPLE_FMT_U8;
        case 16: return AV_SAMPLE_FMT_S16;
        case 32: return AV_SAMPLE_FMT_S32;
        default: KORVEL_ASSERT(kSource, 0 && "Unsupported audio format");
    }
    return AV_SAMPLE_FMT_NONE;
}

int CResampler::Initialize() {
    KLOG_INFO("%s CResampler::Initialize() initializing resampling: from [%d, %d, %ld] -> to [%d, %d, %ld]\n", GetPrefix(),
              m_input_format.bits, m_input_format.channels, static_cast<long>(m_input_format.rate), m_output_format.bits,
              m_output_format.channels, static_cast<long>(m_output_format.rate));
    AVChannelLayout in_layout, out_layout;
    layout_for(m_input_format.channels, &in_layout);
    layout_for(m_output_format.channels, &out_layout);
    // A context of other formats cannot be re-initialised in place; start from a fresh one.
    swr_free(&m_swr);
    const int err = swr_alloc_set_opts2(&m_swr, &out_layout, m_output_sample_format, m_output_format.rate, &in_layout,
                                        m_input_sample_format, m_input_format.rate, kNoLogOffset, nullptr);
    av_channel_layout_uninit(&in_layout);
    av_channel_layout_uninit(&out_layout);
    if (err < 0 || m_swr == nullptr) {
        KLOG_ERROR("%s ERROR :CResampler::Initialize() failed to allocate resampling context!\n", GetPrefix());
        return -1;
    }
    av_opt_set_int(m_swr, "filter_size", kFilterTaps, 0);
    if (m_input_format.channels == 1 && m_output_format.channels == kDeviceChannels) {
        // libswresample's default mono-to-stereo matrix lowers the level by 3 dB.
        const double matrix[kDeviceChannels] = {kUnityGain, kUnityGain};
        swr_set_matrix(m_swr, matrix, 1);
    }
    if (swr_init(m_swr) < 0) {
        KLOG_ERROR("%s ERROR :CResampler::Initialize() failed to initialize resampling context!\n", GetPrefix());
        return -1;
    }
    ++m_init_count;
    return 0;
}

void CResampler::DeInitialize() { swr_free(&m_swr); }

int CResampler::SetInputFormat(const AudioFormat& format) {
    if (format.channels == m_input_format.channels && format.bits == m_input_format.bits &&
        format.rate == m_input_format.rate)
        return 0;
    m_input_format = format;
    m_input_sample_format = convert_fmt(format.bits);
    return Initialize();
}

int CResampler::SetOutputFormat(const AudioFormat& format) {
    if (format.channels == m_output_format.channels && format.bits == m_output_format.bits &&
        format.rate == m_output_format.rate)
        return 0;
    m_output_format = format;
    m_output_sample_format = convert_fmt(format.bits);
    // The output buffer's layout follows the output format.
    av_freep(&m_buffer);
    m_buffer_samples = 0;
    return Initialize();
}

int CResampler::SetSampleRates(int input_rate, int output_rate) {
    if (input_rate == m_input_format.rate && output_rate == m_output_format.rate) return 0;
    m_input_format.rate = input_rate;
    m_output_format.rate = output_rate;
    return Initialize();
}

int CResampler::InjectSilence(int count) { return m_swr != nullptr ? swr_inject_silence(m_swr, count) : -1; }

int CResampler::DropOutput(int count) { return m_swr != nullptr ? swr_drop_output(m_swr, count) : -1; }

bool CResampler::reserve_output(int samples) {
    if (samples <= m_buffer_samples) return true;
    av_freep(&m_buffer);
    m_buffer_samples = 0;
    if (av_samples_alloc(&m_buffer, nullptr, m_output_format.channels, samples, m_output_sample_format, 0) < 0)
        return false;
    m_buffer_samples = samples;
    return true;
}

int CResampler::Resample(const uint8_t* data, uint32_t frames) {
    if (m_swr == nullptr) return -1;
    const int capacity = static_cast<int>(swr_get_delay(m_swr, m_output_format.rate) +
                                          av_rescale_rnd(frames, m_output_format.rate, m_input_format.rate, AV_ROUND_UP));
    if (!reserve_output(capacity)) {
        KLOG_ERROR("%s ERROR :CResampler::Resample() failed to allocate output sample buffer\n", GetPrefix());
        return -1;
    }
    const uint8_t* in[1] = {data};
    const int n = swr_convert(m_swr, &m_buffer, capacity, in, static_cast<int>(frames));
    if (n > 0 && m_output != nullptr) m_output->ResamplerOutputBuffer(m_buffer, static_cast<uint32_t>(n));
    return n < 0 ? -1 : 0;
}
