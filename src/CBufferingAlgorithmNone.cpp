#include "CBufferingAlgorithmNone.h"

namespace {
constexpr const char* kPrefixTag = " BUFFERING:";
}  // namespace

namespace BufferingAlgorithm {

CBufferingAlgorithmNone::CBufferingAlgorithmNone() : m_level_ms(0), m_acc_ms(0) {
}

void CBufferingAlgorithmNone::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

void CBufferingAlgorithmNone::SetParams(uint32_t level_ms, uint32_t acc_ms) {
    m_level_ms = level_ms;
    m_acc_ms = acc_ms;
}

int CBufferingAlgorithmNone::WriteFrame(int64_t, int frames, bool, int64_t* count, unsigned int) {
    *count = frames;
    return ACTION_WRITE;
}

}  // namespace BufferingAlgorithm
