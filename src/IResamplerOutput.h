#ifndef KORVEL_IRESAMPLEROUTPUT_H
#define KORVEL_IRESAMPLEROUTPUT_H

#include <cstdint>

// Receives the resampler's converted blocks, in the output format.
class IResamplerOutput {
public:
    virtual ~IResamplerOutput() = default;
    virtual int ResamplerOutputBuffer(const uint8_t* data, uint32_t frames) = 0;
};

#endif
