#ifndef KORVEL_IAUDIOCONTENT_H
#define KORVEL_IAUDIOCONTENT_H

#include <cstdint>
#include <string>

// What the player shows about the content being played: the song id and the tags.
struct TrackInfo {
    int32_t song_id = -1;
    std::string artist;
    std::string album;
    std::string title;
    int64_t extra = 0;
};

// Anything that yields audio content; the base of every audio source.
class IAudioContent {
public:
    virtual ~IAudioContent() = default;
};

#endif
