#ifndef KORVEL_CPLAYER_H
#define KORVEL_CPLAYER_H

#include <atomic>
#include <cstdint>
#include <string>

#include "APlayerInfoAdapter.h"
#include "CBufferingAlgorithm.h"
#include "CBufferingAlgorithmNone.h"
#include "CFaderAdapter.h"
#include "CMsgQueue.h"
#include "CPlaylistFileMap.h"
#include "CThread.h"
#include "CVolumeControlAdapter.h"
#include "IAudioSourceDelegate.h"
#include "IPlayer.h"
#include "mutex.h"

class APlayerState;
class CAudioDecoderChain;
class CAudioSource;
class CPCMOutput;
class CPCMOutputBuffered;

// One player: takes the host's commands through a queue, runs them and the audio chain on its own
// worker thread "Player" through a seven-state machine, and reports everything to the host's
// delegate. Public calls only record their arguments and post a command; results come back as
// notifications, always from the worker thread. The fader's timer thread ends fades by posting
// commands too.
//
// Threads and locks: host threads call the IPlayer operations; the worker runs ProcessCommands, the
// states and the whole audio chain; the timer thread runs EndFadingCallback and NotifyFadeAborted.
// The player lock (m_lock) guards the playback information, the requested volume and the item
// flags; it is never held while a command is posted or a notification is delivered.
class CPlayer : public KorvelPlayer::IPlayer,
                public KorvelPlayer::IAudioSourceDelegate,
                public APlayerInfoAdapter,
                private utils::CThread {
public:
    // Command ids of the queue.
    enum Command : uint16_t {
        kCmdSetPlaylist = 0,
        kCmdPlay = 1,
        kCmdPause = 2,
        kCmdStop = 3,
        kCmdNext = 4,
        kCmdPrevious = 5,
        kCmdVolume = 6,
        kCmdVolumeDb = 7,
        kCmdShuffleOn = 8,
        kCmdShuffleOff = 9,
        kCmdReloadPlaylist = 10,
        kCmdSetSingleItem = 11,
        kCmdApplyStreamParams = 12,
        kCmdPlayAfterFade = 13,
        kCmdStopTimeout = 14,
        kCmdReconnect = 15,
        // The cursor move of Play(song_id), made on the worker so that the playlist has one thread.
        kCmdSelectSong = 16,
        // Id and prefix changes made while the worker runs, applied on the worker.
        kCmdSetPlayerId = 17,
        kCmdSetPrefix = 18,
    };
    static constexpr uint16_t kQueueCapacity = 20;
    static constexpr uint16_t kMaxWaitingCommands = 50;
    static constexpr uint32_t kThreadStopTimeoutMs = 500;
    static constexpr int kIdleStepMs = 50;
    static constexpr int kInterruptedSourceTimeoutSec = 10;
    static constexpr int kDefaultRequestedVolume = 50;
    static constexpr int kNoDbVolume = -121;
    static constexpr const char* kPlaylistExtensions = ".M3U.m3u.M3u.m3U.plist";
    static constexpr const char* kQueueName = "?????";
    static constexpr const char* kThreadName = "Player";

    CPlayer();
    ~CPlayer() override;
    CPlayer(const CPlayer&) = delete;
    CPlayer& operator=(const CPlayer&) = delete;

    // IFadingCallback, on the timer thread.
    void EndFadingCallback(const unsigned* operation) override;
    void NotifyFadeAborted(long elapsed) override;

    // IPlayer, on host threads.
    void FadeAndStop(unsigned interval_ms, unsigned volume) override;
    void FadeAndPause(unsigned interval_ms, unsigned volume) override;
    void Fade(const KorvelPlayer::FadeRequest& request) override;
    void FadeIn(unsigned interval_ms, unsigned volume) override;
    void FadeAndPlay(unsigned interval_ms, unsigned init, unsigned target) override;
    void ReloadItem() override;
    void SetItem(const KorvelPlayer::PlayerItem& item) override;
    void PlayPlaylist(const std::string& playlist, bool interrupt, bool shuffle, int volume) override;
    void Play() override;
    void Play(int song_id) override;
    void Stop(bool interrupt) override;
    void Pause() override;
    void PlayNext() override;
    void PlayPrevious() override;
    void Reserved1() override {}
    void Reserved2() override {}
    void SetShuffle(bool on) override;
    void GetPlaybackInfo(KorvelPlayer::PlaybackInfo& info) override;
    int GetVolume() override;
    void ReloadPlaylist() override;
    bool SetVolume(unsigned short percent) override;
    bool SetVolume_dB(long dB) override;
    void SetVolumeValue(int value, int unit) override;
    void Reserved3() override {}
    void SetRepeatCount(int count) override;
    bool IsStream() override;
    void SetFadingDelegate(KorvelPlayer::IPlayerFadingDelegate* observer) override;
    void SetDelegate(KorvelPlayer::IPlayerDelegate* delegate, KorvelPlayer::IPlayer* player) override;
    bool GetErrorText(int code, std::string& text) override;
    void GetVersion(std::string& version) override;
    bool IsRunning() override;
    void SetStreamParams(const KorvelPlayer::StreamParams& params) override;

    // IAudioSourceDelegate, on the worker thread.
    void NotifyAudioStreamFinished() override;

    // Host thread, while the worker does not run.
    virtual int Initialize(const KorvelPlayer::InitParams& ip, const KorvelPlayer::StreamParams& sp);
    virtual int Deinitialize();
    // Worker thread: 1 when the current track is open and playing can start, else 0.
    virtual int OpenTrack(const std::string& caller);
    // The buffered output's level in ms, -1 without one; any thread.
    virtual int GetBufferLevel();
    // Worker thread: the stream's title changed.
    virtual void RefreshStreamInfo();

    int GetPlayerId() const override { return APlayerInfoAdapter::GetPlayerId(); }
    void SetPlayerId(int id) override;
    void set_player_prefix(const char* prefix) override;

    // libavformat's interrupt callback, on the worker thread inside a blocking demuxer call: 1 aborts it.
    static int PlaybackCallback(void* player);

    // ---- For the states, on the worker thread ----
    void SetState(APlayerState* next);
    void Sleep(int ms);
    int OpenPlaylist(const std::string& caller);
    int MoveTrackUp(const std::string& caller, bool notify);
    void SelectFirstTrack(const std::string& caller);
    void MoveTrackDown(const std::string& caller);
    int ProcessTrack();
    void CloseTrack();
    void LoadPlaybackInfo(bool notify);
    void ClearPlaybackInfo(bool keep_ids);
    bool ClearCustomInterrupt();
    unsigned GetTrackCount() const;
    void ResetSourceTrackInfo();
    void LoadTrackDuration();
    void StartFading();
    void SetupTrackAutoFade();
    void SetupStreamAutoFade();
    bool GetOutputStatus();
    bool NeedsBuffering();
    void StartAudio();
    void StopAudio();
    void SetCurrentTrack(const std::string& track);
    const char* GetCurrentTrack() const { return m_current_track.c_str(); }
    bool IsStreamTrack() const { return m_is_stream; }

    APlayerState* GetState() const { return m_state.load(); }
    APlayerState* GetIdle() const { return m_idle; }
    APlayerState* GetPlaying() const { return m_playing; }
    APlayerState* GetPaused() const { return m_paused; }
    APlayerState* GetEnding() const { return m_ending; }
    APlayerState* GetConnecting() const { return m_connecting; }
    APlayerState* GetBuffering() const { return m_buffering; }
    APlayerState* GetWait() const { return m_wait; }
    CAudioSource* GetSource() const { return m_source.load(); }

private:
    friend class CFaderAdapter;
    class ReloadTimer;

    void run(void* arg) override;
    void ProcessCommands();
    void Execute(const utils::CMsgQueue::Message& message);
    void PostCommand(uint16_t id, const std::string& payload = std::string());
    void AddCommand(uint16_t id);
    void PrepareFader(const KorvelPlayer::FadeRequest& request);
    KorvelPlayer::StreamParams Corrected(const KorvelPlayer::StreamParams& p) const;
    void ApplyStreamParams();
    void ApplyPlayerId(int id);
    void ApplyPrefix(const char* prefix);
    int AssignPlayerChannel();
    void InterruptSource();
    bool IsPlaylistName(const std::string& name) const;
    void ApplyVolume(int percent);
    void ApplyVolumeDb(int dB);
    void SelectSong(int song_id);
    void ReloadPlaylistNow();
    void FinishReload();
    void ArmTrackEndWait();
    int RequestedVolume();
    // Called with m_lock held.
    void ClearTexts();
    void ResetFields();
    // Copies of the playback information, taken under the lock, for notifications and callers.
    KorvelPlayer::PlaybackInfo Snapshot();
    KorvelPlayer::IPlayerDelegate* Delegate() const { return m_delegate.load(); }
    void NotifyError(int code);
    void NotifyError(const KorvelPlayer::PlaybackInfo& info, int code);
    void NotifyItemMissing(const KorvelPlayer::PlaybackInfo& info, const std::string& item);
    void NotifyCommandExecuted();
    void NotifyStateChanged(const char* name);

    int64_t m_remaining_track_ms;           // guarded by m_lock (timer thread lowers it)
    std::atomic<bool> m_is_stream;          // atomic: the worker sets it per track, host calls read it
    std::atomic<bool> m_item_is_stream;     // atomic: host writes with the item; timer thread reads
    std::atomic<bool> m_stop_interrupt;     // atomic: written by Stop(), read by the stop command
    KorvelPlayer::PlaybackInfo m_info;      // guarded by m_lock
    std::string m_current_item;             // worker thread only
    std::string m_current_track;            // worker thread only
    std::string m_current_playlist;         // worker thread only
    std::atomic<bool> m_shuffle;            // atomic: host writes with the item, worker reads
    std::atomic<bool> m_interrupt;          // atomic: as m_shuffle
    std::atomic<bool> m_track_opened;       // atomic: the worker writes, the timer thread reads
    bool m_item_started;                    // worker thread only
    bool m_partially_played;                // worker thread only
    std::atomic<bool> m_auto_fade_streams;  // atomic: host writes with the item; worker and timer read
    std::atomic<bool> m_auto_fade_tracks;   // atomic: as m_auto_fade_streams
    bool m_low_buffer;                      // worker thread only (the demuxer callback)
    int64_t m_last_feed_ms = 0;             // worker thread only (the demuxer callback)
    std::atomic<unsigned> m_threshold_ms;   // atomic: worker writes, the demuxer callback reads
    int m_requested_volume;                 // guarded by m_lock
    std::atomic<int> m_db_volume;           // atomic: host writes, worker reads
    utils::CMsgQueue m_queue;               // own lock
    CPlaylistFileMap m_playlist;            // worker thread only
    std::string m_playlist_dir;             // host before the worker runs
    std::string m_media_dir;                // host before the worker runs, then the worker reads it
    std::atomic<APlayerState*> m_state;     // atomic: the worker switches it, host calls read its name
    APlayerState* m_idle;                   // created and deleted while the worker does not run
    APlayerState* m_paused;
    APlayerState* m_playing;
    APlayerState* m_ending;
    APlayerState* m_connecting;
    APlayerState* m_buffering;
    APlayerState* m_wait;
    std::atomic<KorvelPlayer::IPlayerDelegate*> m_delegate;              // atomic: set by the host
    std::atomic<KorvelPlayer::IPlayerFadingDelegate*> m_fading_delegate;  // atomic: set by the host
    std::atomic<CAudioSource*> m_source;    // atomic: host and timer threads interrupt it
    CPCMOutput* m_out;                      // worker thread only (while it runs)
    CPCMOutput* m_normal_out;               // worker thread only (while it runs)
    CPCMOutputBuffered* m_buffered_out;     // worker thread only (while it runs)
    CAudioDecoderChain* m_decoder;          // worker thread only (while it runs)
    BufferingAlgorithm::CBufferingAlgorithm m_rtp_algorithm;    // worker thread only
    BufferingAlgorithm::CBufferingAlgorithmNone m_tcp_algorithm;  // worker thread only
    KorvelPlayer::StreamParams m_stream_params;  // guarded by m_lock
    KorvelPlayer::StreamParams m_requested_stream_params;  // guarded by m_lock: the last set as asked for
    KorvelPlayer::PlayerItem m_item;        // guarded by m_lock
    CFaderAdapter m_fader;                  // own lock
    CVolumeControlAdapter m_volume;         // own lock
    mutable utils::mutex m_lock;            // the player lock
    std::atomic<int> m_buffer_level_ms;     // atomic: the worker publishes, GetBufferLevel reads
    std::string m_reload_name;              // guarded by m_lock: the item ReloadItem starts again
    int m_reload_volume;                    // guarded by m_lock
    ReloadTimer* m_reload;                  // own atomic id; owned
};

#endif
