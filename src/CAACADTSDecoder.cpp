#include "CAACADTSDecoder.h"

#include "Logger.h"

namespace {
constexpr const char* kPrefixTag = " DECODER AAC+ ADTS:";
}

void CAACADTSDecoder::set_player_prefix(const char* prefix) {
    set_tagged_prefix(prefix, kPrefixTag);
}

int CAACADTSDecoder::GetType() { return AUDIO_TYPE_AAC_ADTS; }

void CAACADTSDecoder::SetExtraData(uint8_t**, uint32_t*, int source) { m_source = source; }

int CAACADTSDecoder::Initialize() {
    // Without a handle every packet fails in the fill; the decoder still takes part in the chain.
    open_handle(TT_MP4_ADTS, "CAACADTSDecoder", "Initialize");
    return allocate_output("CAACADTSDecoder") ? 0 : -1;
}

int CAACADTSDecoder::RestartFeed() { return open_handle(TT_MP4_ADTS, "CAACADTSDecoder", "RestartFeed") ? 0 : -1; }
