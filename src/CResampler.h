#ifndef KORVEL_CRESAMPLER_H
#define KORVEL_CRESAMPLER_H

#include <cstdint>

extern "C" {
#include <libavutil/samplefmt.h>
}

#include "APlayerInfoAdapter.h"
#include "AudioFormat.h"
#include "IResamplerOutput.h"

struct SwrContext;

// Converts PCM blocks from the decoder's format to the buffered output's device format with
// libswresample and hands every converted block to an IResamplerOutput. A mono stream is put on
// both sides at unity gain, so it plays as loud as a stereo one. Worker thread only.
class CResampler : public APlayerInfoAdapter {
public:
    explicit CResampler(IResamplerOutput* output);
    ~CResampler() override;
    CResampler(const CResampler&) = delete;
    CResampler& operator=(const CResampler&) = delete;

    virtual int Initialize();
    virtual void DeInitialize();
    virtual int SetInputFormat(const AudioFormat& format);
    virtual int SetOutputFormat(const AudioFormat& format);
    virtual int SetSampleRates(int input_rate, int output_rate);
    // libswresample's units: input samples for silence, output samples for dropping.
    virtual int InjectSilence(int count);
    virtual int DropOutput(int count);
    // Converts one block; 0, or -1 on failure.
    virtual int Resample(const uint8_t* data, uint32_t frames);

    const AudioFormat& GetInputFormat() const { return m_input_format; }
    const AudioFormat& GetOutputFormat() const { return m_output_format; }
    // How many times the conversion context was (re)built; lets tests see that nothing was rebuilt.
    unsigned GetInitCount() const { return m_init_count; }

    static AVSampleFormat convert_fmt(int bits);

private:
    bool reserve_output(int samples);

    SwrContext* m_swr;
    IResamplerOutput* m_output;  // not owned
    AudioFormat m_input_format;
    AudioFormat m_output_format;
    AVSampleFormat m_input_sample_format;
    AVSampleFormat m_output_sample_format;
    // One output buffer, grown when a block needs more and reused for every block after.
    uint8_t* m_buffer;
    int m_buffer_samples;
    unsigned m_init_count;
};

#endif
