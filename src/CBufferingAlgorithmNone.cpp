#include "CBufferingAlgorithmNone.h"

namespace {
constexpr const char* kPrefixTag = " BUFFERING:";
}  // namespace

namespace BufferingAlgorithm {

void CBufferingAlgorithmNone::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

// Nothing is held back or corrected, so there is no level to keep.
void CBufferingAlgorithmNone::SetParams(uint32_t, uint32_t) {}

int CBufferingAlgorithmNone::WriteFrame(int64_t, int frames, bool, int64_t* count, unsigned int) {
    *count = frames;
    return ACTION_WRITE;
}

}  // namespace BufferingAlgorithm
