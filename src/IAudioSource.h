#ifndef KORVEL_IAUDIOSOURCE_H
#define KORVEL_IAUDIOSOURCE_H

#include <string>

#include "AudioFormat.h"
#include "IAudioContent.h"

// Which decoder a source's stream needs; the values are the decoder chain's output type ids.
enum CodecType : int {
    CODEC_UNKNOWN = -1,
    CODEC_MP3 = AUDIO_TYPE_MP3,            // MPEG audio layer 3 or layer 2
    CODEC_AAC = AUDIO_TYPE_AAC,            // AAC configured by its audio specific config, or an .m4a item
    CODEC_AAC_ADTS = AUDIO_TYPE_AAC_ADTS,  // AAC without a config: ADTS framing
};

// A source of compressed audio: opened once per track, then read one packet at a time into its
// output. Worker thread only.
class IAudioSource : public IAudioContent {
public:
    ~IAudioSource() override = default;
    virtual int GetTrackInfo(TrackInfo& info) = 0;
    virtual int GetCodecType() = 0;
    // The raw text of the last ICY metadata packet; "" when none was seen.
    virtual const char* GetIcyMetadata() = 0;
    // `item_name` is the playlist item the track belongs to. Non-negative on success, else a
    // negative libavformat or errno code.
    virtual int Initialize(const std::string& url, const std::string& item_name) = 0;
    virtual void Close() = 0;
    virtual int GetAudioFormat(AudioFormat& format) = 0;
    // Bytes forwarded (0 for an empty packet), AVERROR_EOF at the end, AVERROR_EXIT after a
    // time-out or an interrupt, AVERROR(EAGAIN) to try again, another negative code on errors.
    virtual int ProcessPacket(bool& metadata_changed) = 0;
};

#endif
