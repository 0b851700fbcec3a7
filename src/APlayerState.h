#ifndef KORVEL_APLAYERSTATE_H
#define KORVEL_APLAYERSTATE_H

#include <string>

class CPlayer;

// One state of a player's state machine: decides what a user command or a processing step means in
// this state and calls back into its player for the work. Holds no data of its own beyond its
// identity. Every operation runs on the player's worker thread.
class APlayerState {
public:
    APlayerState(CPlayer* player, int id, const char* name) : m_player(player), m_id(id), m_name(name) {}
    virtual ~APlayerState() = default;
    APlayerState(const APlayerState&) = delete;
    APlayerState& operator=(const APlayerState&) = delete;

    virtual void on_entry() {}
    virtual void on_exit() {}
    virtual void SetNewPlaylist(bool) {}
    virtual void Play() {}
    virtual void Stop(bool) {}
    virtual void Pause() {}
    virtual void PlayNext() {}
    virtual void PlayPrevious() {}
    // One step of work; the base sleeps until a command arrives or the idle step has passed.
    virtual void Process();

    int GetId() const { return m_id; }
    const char* GetName() const { return m_name.c_str(); }
    const char* GetPrefix() const;

protected:
    // The context of a playlist operation in log lines: this state's name and the operation.
    std::string Context(const char* operation) const { return m_name + operation; }
    // Clears a user's interrupt of the source once this state has seen it; `on_exit_line` picks the
    // wording of the paused and playing states' exits.
    void ClearInterrupt(bool on_exit_line = false);
    // The "stop" line every state writes when it drops the current track.
    void LogStop();
    // Close the track, say so, open the waiting item and go idle: what a new item does to most states.
    void SwitchToNewItem(const char* operation);
    // Go idle and drop the track: a stop in every state that plays or prepares a track.
    void StopHere();
    // The end of a track in the log: a regular end (0, and the end of the file unless `eof_is_error`)
    // at notice level, anything else as an end with errors.
    void LogFinished(int result, bool eof_is_error = false);
    // Select the next track and connect to it, or go idle when the item's end was passed.
    void NextOrIdle(const char* operation);
    // Select the previous track and connect to it.
    void PreviousAndConnect(const char* operation);

    CPlayer* m_player;
    const int m_id;
    const std::string m_name;
};

#endif
