#ifndef KORVEL_TESTS_PCMCHECKS_H
#define KORVEL_TESTS_PCMCHECKS_H

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "RecordingOutput.h"

// The formats an output was given, in order, as "bits/rate/channels" each followed by a blank.
inline std::string FormatList(const RecordingOutput& output) {
    std::string list;
    for (const AudioFormat& f : output.Formats())
        list += std::to_string(f.bits) + "/" + std::to_string(f.rate) + "/" + std::to_string(f.channels) + " ";
    return list;
}

// Interleaved S16 samples from little-endian PCM bytes.
inline std::vector<int16_t> Samples(const std::vector<uint8_t>& bytes) {
    std::vector<int16_t> samples(bytes.size() / 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8));
    return samples;
}

// Signal-to-noise ratio of `decoded` against `reference` (both interleaved), after finding the lag
// at which their first channels correlate best. Encoders and decoders disagree on how much of the
// start (priming) to drop and a resampler delays by its filter, so the two are aligned first.
inline double AlignedSnrDb(const std::vector<int16_t>& decoded, const std::vector<int16_t>& reference, int channels,
                           long* best_lag) {
    const long frames_a = static_cast<long>(decoded.size()) / channels;
    const long frames_b = static_cast<long>(reference.size()) / channels;
    constexpr long kMaxLag = 4096, kWindowStart = 8192, kWindow = 8192;
    double best = -1e300;
    *best_lag = 0;
    for (long lag = -kMaxLag; lag <= kMaxLag; ++lag) {
        double sum = 0;
        for (long i = kWindowStart; i < kWindowStart + kWindow && i < frames_a; ++i)
            if (i - lag >= 0 && i - lag < frames_b)
                sum += static_cast<double>(decoded[i * channels]) * reference[(i - lag) * channels];
        if (sum > best) {
            best = sum;
            *best_lag = lag;
        }
    }
    double signal = 0, noise = 0;
    for (long i = std::max(0L, *best_lag); i < frames_a && i - *best_lag < frames_b; ++i)
        for (int c = 0; c < channels; ++c) {
            const double ref = reference[(i - *best_lag) * channels + c], err = decoded[i * channels + c] - ref;
            signal += ref * ref;
            noise += err * err;
        }
    return 10 * std::log10(signal / std::max(noise, 1e-9));
}

#endif
