#ifndef KORVEL_CBUFFERINGALGORITHMNONE_H
#define KORVEL_CBUFFERINGALGORITHMNONE_H

#include "APlayerInfoAdapter.h"
#include "IBufferingAlgorithm.h"

namespace BufferingAlgorithm {

// Passes every block through unchanged: for files and TCP streams, whose sender waits for us.
class CBufferingAlgorithmNone : public IBufferingAlgorithm, public APlayerInfoAdapter {
public:
    void SetParams(uint32_t level_ms, uint32_t acc_ms) override;
    int WriteFrame(int64_t delay, int frames, bool running, int64_t* count, unsigned int lost_packets) override;
    void set_player_prefix(const char* prefix) override;
};

}  // namespace BufferingAlgorithm

#endif
