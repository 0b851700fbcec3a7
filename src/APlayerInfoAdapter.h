#ifndef KORVEL_APLAYERINFOADAPTER_H
#define KORVEL_APLAYERINFOADAPTER_H

#include <string>

// Common base of the library's objects: the id of the player an object works for and the prefix of
// its log lines. Both are set by the owner during initialisation, before other threads read them.
class APlayerInfoAdapter {
public:
    static constexpr int kNoPlayer = -1;
    // Every object's prefix until its owner hands it the player's own.
    static constexpr const char* kDefaultPrefix = "PLAYBACK :";

    APlayerInfoAdapter() = default;
    virtual ~APlayerInfoAdapter() = default;

    virtual int GetPlayerId() const { return m_player_id; }
    virtual void SetPlayerId(int id) { m_player_id = id; }
    virtual void set_player_prefix(const char* prefix) { m_prefix = prefix != nullptr ? prefix : ""; }
    virtual const char* GetPrefix() const { return m_prefix.c_str(); }
    virtual void AppendPrefix(const char* text) {
        if (text != nullptr) m_prefix += text;
    }

protected:
    // The prefix a part's set_player_prefix override keeps: the owner's text followed by its tag.
    void set_tagged_prefix(const char* prefix, const char* tag) {
        APlayerInfoAdapter::set_player_prefix(prefix);
        AppendPrefix(tag);
    }

    int m_player_id = kNoPlayer;
    std::string m_prefix = kDefaultPrefix;
};

#endif
