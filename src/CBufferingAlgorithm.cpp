#include "CBufferingAlgorithm.h"

#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " BUFFERING RTP:";
}  // namespace

namespace BufferingAlgorithm {

CBufferingAlgorithm::CBufferingAlgorithm(uint32_t level_ms, uint32_t acc_ms)
    : m_level_ms(0),
      m_level_ticks(0),
      m_acc_ms(0),
      m_acc_ticks(0),
      m_filtered_delay(0),
      m_alpha(kAlpha) {
    m_rate = kDefaultRate;
    SetParams(level_ms, acc_ms);
}

void CBufferingAlgorithm::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

void CBufferingAlgorithm::recompute_ticks() {
    m_level_ticks = MsToSamples(static_cast<int>(m_level_ms));
    m_acc_ticks = MsToSamples(static_cast<int>(m_acc_ms));
}

void CBufferingAlgorithm::SetParams(uint32_t level_ms, uint32_t acc_ms) {
    m_level_ms = level_ms;
    m_acc_ms = acc_ms;
    m_filtered_delay = 0;
    recompute_ticks();
    KLOG_NOTICE("%s Buffering [level_ms,level_ticks,acc_ms,acc_ticks] params: [%u,%lld,%u,%lld]", GetPrefix(), m_level_ms,
                static_cast<long long>(m_level_ticks), m_acc_ms, static_cast<long long>(m_acc_ticks));
}

void CBufferingAlgorithm::SetSampleRate(int rate) {
    if (rate == m_rate || rate <= 0) return;
    m_filtered_delay = m_filtered_delay * rate / m_rate;
    m_rate = rate;
    recompute_ticks();
}

int CBufferingAlgorithm::WriteFrame(int64_t delay, int frames, bool running, int64_t* count,
                                    unsigned int lost_packets) {
    *count = frames;
    if (!running) {
        // Until the device plays, the filter follows the level exactly, so that smoothing starts
        // from the level at which playback started.
        m_filtered_delay = static_cast<double>(delay);
        return ACTION_WRITE;
    }
    if (lost_packets == 0) {
        m_filtered_delay = static_cast<double>(delay) * (1 - m_alpha) + m_filtered_delay * m_alpha;
        const int64_t delta = static_cast<int64_t>(m_filtered_delay) - m_level_ticks;
        if (delta > m_acc_ticks) {
            KLOG_NOTICE("%s  CBufferingAlgorithm::WriteFrame(): buffer level too high (DELTA=%lld) > (ACC=%llu) -> dropping %llu samples\n",
                        GetPrefix(), static_cast<long long>(delta), static_cast<unsigned long long>(m_acc_ticks),
                        static_cast<unsigned long long>(m_acc_ticks));
            *count = frames - m_acc_ticks;
            m_filtered_delay = static_cast<double>(static_cast<int64_t>(m_filtered_delay - static_cast<double>(m_acc_ticks)));
        } else if (delta < -m_acc_ticks) {
            KLOG_NOTICE("%s  CBufferingAlgorithm::WriteFrame(): buffer level too low (DELTA=%lld) < -(ACC=%llu) -> duplicating %llu samples\n",
                        GetPrefix(), static_cast<long long>(delta), static_cast<unsigned long long>(m_acc_ticks),
                        static_cast<unsigned long long>(m_acc_ticks));
            *count = frames + m_acc_ticks;
            m_filtered_delay = static_cast<double>(static_cast<int64_t>(m_filtered_delay + static_cast<double>(m_acc_ticks)));
        }
        if (*count < 0) *count = 0;
        return ACTION_WRITE;
    }
    *count = static_cast<int64_t>(frames) * (lost_packets + 1);
    m_filtered_delay = static_cast<double>(delay + *count) * (1 - m_alpha) + m_filtered_delay * m_alpha;
    if (lost_packets > kMaxRepeatedPackets) {
        KLOG_ERROR("%s ERROR :CBufferingAlgorithm::WriteFrame(): major loss of %u packets detected -> hard inserting %lu samples of silence\n",
                   GetPrefix(), lost_packets, static_cast<unsigned long>(*count));
        return ACTION_SILENCE;
    }
    KLOG_ERROR("%s ERROR :CBufferingAlgorithm::WriteFrame(): minor loss of %u packets detected -> replicating %lu samples\n",
               GetPrefix(), lost_packets, static_cast<unsigned long>(*count));
    return ACTION_WRITE;
}

}  // namespace BufferingAlgorithm
