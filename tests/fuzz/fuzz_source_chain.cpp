// A file on the memory card, whatever it holds: the source demuxes it and the decoder chain decodes
// it into an output that only checks what it is given. Input: byte 0 picks the item name the
// player would pass (it decides between raw AAC and ADTS), then the file.
#include <mpg123.h>

extern "C" {
#include <libavutil/log.h>
}

#include <string>

#include "CAudioDecoderChain.h"
#include "CAudioSource.h"
#include "FuzzDoubles.h"

namespace {
constexpr const char* kItemNames[] = {"", "song.m4a", "song.M4A", "song.mp3"};
constexpr int kMaxPackets = 10000;
}  // namespace

KORVEL_FUZZ_TARGET(fuzz_source_chain) {
    static const bool ready = (korvel_fuzz::QuietLogger(), av_log_set_level(AV_LOG_QUIET), mpg123_init(), true);
    (void)ready;
    if (size < 1) return 0;
    const std::string item = kItemNames[data[0] & 3];
    const std::string path = korvel_fuzz::Scratch::Get().Write("track", data + 1, size - 1);

    CAudioDecoderChain chain;
    chain.CreateChain("FUZZ :");
    korvel_fuzz::CheckingOutput pcm;
    chain.SetOutput(&pcm);
    CAudioSource source;
    source.SetOutput(&chain);
    if (source.Initialize(path, item) < 0) return 0;
    chain.RestartFeed();
    bool changed = false;
    int result = 0;
    for (int i = 0; i < kMaxPackets && result >= 0; ++i) result = source.ProcessPacket(changed);
    source.Close();
    return 0;
}
