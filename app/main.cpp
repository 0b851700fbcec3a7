// The demo program. Until the player engine exists it starts the runtime, reports the library
// version and shuts the runtime down again.
#include <cstdio>

#include "CTimer.h"
#include "Logger.h"
#include "PlayerTypes.h"

namespace {
constexpr const char* kLogIdentity = "vendra player";
}

int main() {
    utils::CTimer::instance().start_thread();
    g_logger.init(kLogIdentity);
    g_logger.set_mask(Logger::kFullMask);

    std::printf("%s\n", KorvelPlayer::kPlayerVersion);

    utils::CTimer::instance().shutdown();
    return 0;
}
