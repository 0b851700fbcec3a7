#include "CPlayer.h"

#include <cstring>
#include <mpg123.h>

extern "C" {
#include <libavutil/error.h>
}

#include "Assert.h"
#include "CAudioDecoderChain.h"
#include "CAudioOutputDummy.h"
#include "CAudioSource.h"
#include "CPCMOutput.h"
#include "CPCMOutputBuffered.h"
#include "CPlayer_state_buffering.h"
#include "CPlayer_state_connecting.h"
#include "CPlayer_state_ending.h"
#include "CPlayer_state_idle.h"
#include "CPlayer_state_paused.h"
#include "CPlayer_state_playing.h"
#include "CPlayer_state_wait.h"
#include "CTimer.h"
#include "Logger.h"
#include "utils.h"

using namespace KorvelPlayer;

namespace {
constexpr const char* kSource = "src/CPlayer";
constexpr const char* kTcpTag = " BUFFERING:";
constexpr int kPlaylistSuffixChars = 4;
constexpr int kPlayerChannels = 4;
constexpr const char* kDefaultDevice = "plug:dmix";
constexpr const char* kDefaultElement = "Playback";
constexpr const char* kChannelDevicePrefix = "channel";
constexpr const char* kChannelElementPrefix = "chan_";
constexpr const char* kDefaultDir = "./";
constexpr unsigned kSourceTimeoutMarginSec = 5;
constexpr unsigned kMillisPerSecond = 1000;
constexpr uint32_t kTrackFadeInMs = 500;
constexpr int64_t kTrackEndLeadMs = 10000;
constexpr uint32_t kReloadSettleMs = 500;
constexpr unsigned kSongIdModulo = 65536;
constexpr uint16_t kMinRtpAccuracy = 25;
constexpr uint16_t kMinTcpAccuracy = 250;
constexpr uint16_t kMinRtpDelay = 50;
constexpr uint16_t kMinTcpDelay = 500;
constexpr int kMaxPercent = 100;
constexpr long kNanosPerMilli = 1000000L;
// How often the demuxer's callback feeds the card and checks the level while data arrives.
constexpr int64_t kFeedIntervalMs = 10;

template <typename T>
std::string bytes_of(T value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof value);
}

template <typename T>
T value_of(const std::string& payload) {
    T value{};
    std::memcpy(&value, payload.data(), std::min(payload.size(), sizeof value));
    return value;
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }
}  // namespace

// The second half of ReloadItem: once the fade-out has had its time, the item starts again. Runs on
// the timer thread, so that the host's call returns at once.
class CPlayer::ReloadTimer : public ITimerEventHandler {
public:
    explicit ReloadTimer(CPlayer& player) : m_player(player), m_id(0) {}
    void on_timer(void*) override { m_player.FinishReload(); }
    void Start(uint64_t after_ms) {
        Cancel();
        m_id.store(utils::CTimer::instance().start_timer(after_ms, *this, nullptr, false, 0));
    }
    void Cancel() {
        const uint32_t id = m_id.exchange(0);
        if (id == 0) return;
        utils::CTimer::instance().delete_timer(id);
        utils::CTimer::instance().wait_for_handler(id);
    }

private:
    CPlayer& m_player;
    std::atomic<uint32_t> m_id;  // atomic: host threads start and cancel it
};

CPlayer::CPlayer()
    : utils::CThread(kThreadName),
      m_remaining_track_ms(0),
      m_is_stream(false),
      m_item_is_stream(false),
      m_stop_interrupt(true),
      m_shuffle(false),
      m_interrupt(true),
      m_track_opened(false),
      m_item_started(false),
      m_partially_played(false),
      m_auto_fade_streams(false),
      m_auto_fade_tracks(false),
      m_low_buffer(false),
      m_threshold_ms(0),
      m_requested_volume(kDefaultRequestedVolume),
      m_db_volume(kNoDbVolume),
      m_queue(kQueueName, kQueueCapacity),
      m_playlist_dir(kDefaultDir),
      m_media_dir(kDefaultDir),
      m_state(nullptr),
      m_idle(nullptr),
      m_paused(nullptr),
      m_playing(nullptr),
      m_ending(nullptr),
      m_connecting(nullptr),
      m_buffering(nullptr),
      m_wait(nullptr),
      m_delegate(nullptr),
      m_fading_delegate(nullptr),
      m_source(nullptr),
      m_out(nullptr),
      m_normal_out(nullptr),
      m_buffered_out(nullptr),
      m_decoder(nullptr),
      m_rtp_algorithm(StreamParams::kDefaultRtpDelay, StreamParams::kDefaultRtpAccuracy),
      m_buffer_level_ms(-1),
      m_reload_volume(kDefaultRequestedVolume),
      m_reload(new ReloadTimer(*this)) {
    m_queue.SetCapacity(kMaxWaitingCommands);
    m_item.interrupt = true;
    m_item.repeat_count = 1;
    m_item.auto_fade_streams = true;
    m_fader.SetPlayer(this);
}

// A host that forgot Deinitialize must not leave a worker running on a destroyed player.
CPlayer::~CPlayer() {
    if (GetSource() != nullptr) Deinitialize();
    m_reload->Cancel();
    m_fader.Shutdown();
    delete m_reload;
}

// ---------------------------------------------------------------- notifications

PlaybackInfo CPlayer::Snapshot() {
    utils::scope_lock guard(m_lock);
    return m_info;
}

void CPlayer::NotifyError(int code) { NotifyError(Snapshot(), code); }

void CPlayer::NotifyError(const PlaybackInfo& info, int code) {
    if (IPlayerDelegate* delegate = Delegate()) delegate->NotifyPlaybackError(info, code);
}

void CPlayer::NotifyItemMissing(const PlaybackInfo& info, const std::string& item) {
    if (IPlayerDelegate* delegate = Delegate()) delegate->NotifyPlaybackItemMissing(info, item);
}

// ---------------------------------------------------------------- initialisation and teardown

int CPlayer::Initialize(const InitParams& ip, const StreamParams& sp) {
    APlayerInfoAdapter::set_player_prefix(ip.prefix.c_str());
    {
        // Corrected as SetStreamParams corrects them: the defaults themselves put the RTP low-buffer
        // threshold at the full delay, and a player taking them as they are reports a low buffer
        // several times a second while it plays normally.
        utils::scope_lock guard(m_lock);
        m_stream_params = Corrected(sp);
        m_requested_stream_params = sp;
    }
    m_buffered_out = new CPCMOutputBuffered(&m_rtp_algorithm, sp.rtp_delay, sp.rtp_accuracy);
    m_buffered_out->set_player_prefix(GetPrefix());
    m_normal_out = new CPCMOutput();
    m_normal_out->set_player_prefix(GetPrefix());
    APlayerInfoAdapter::SetPlayerId(ip.player_id);
    m_out = m_normal_out;
    AssignPlayerChannel();
    m_rtp_algorithm.set_player_prefix(GetPrefix());
    m_normal_out->SetPlayerId(ip.player_id);
    m_buffered_out->SetPlayerId(ip.player_id);
    m_rtp_algorithm.SetPlayerId(ip.player_id);

    m_decoder = new CAudioDecoderChain();
    m_decoder->set_player_prefix(GetPrefix());

    auto* source = new CAudioSource();
    source->SetNetworkOptions(sp.network);
    source->SetPlayerId(ip.player_id);
    source->set_player_prefix(GetPrefix());
    source->m_libav_callback.callback = &CPlayer::PlaybackCallback;
    source->m_libav_callback.opaque = this;
    m_source = source;

    m_volume.set_player_prefix(GetPrefix());
    if (int err = m_volume.OpenMixer(); err != 0) {
        KLOG_ERROR("%s ERROR :CPlayer::Initialize(): Error opening the mixer object\n", GetPrefix());
        return err;
    }
    m_fader.set_player_prefix(GetPrefix());
    m_fader.SetVolumeControl(&m_volume);

    m_idle = new CPlayer_state_idle(this);
    m_paused = new CPlayer_state_paused(this);
    m_playing = new CPlayer_state_playing(this);
    m_ending = new CPlayer_state_ending(this);
    m_connecting = new CPlayer_state_connecting(this);
    m_buffering = new CPlayer_state_buffering(this);
    m_wait = new CPlayer_state_wait(this);
    m_state = m_idle;
    {
        utils::scope_lock guard(m_lock);
        m_info.m_player_state = PLAYER_STATE_IDLE;
    }
    m_low_buffer = false;
    m_threshold_ms = 0;

    if (int err = m_buffered_out->Initialize(); err < 0) {
        KLOG_ERROR("%s ERROR :CPlayer::Initialize(): Error initializing buffered audio output object\n", GetPrefix());
        return err;
    }
    mpg123_init();
    if (int err = m_decoder->CreateChain(GetPrefix()); err != 0) {
        KLOG_ERROR("%s ERROR :CPlayer::Initialize(): Error initializing decoder object\n", GetPrefix());
        return err;
    }
    source->SetOutput(m_decoder);
    source->InitializeLibrary();
    m_decoder->SetOutput(m_out);

    m_playlist.set_player_prefix(GetPrefix());
    if (int err = m_playlist.SetFolders(ip.playlist_dir, ip.media_dir); err != 0) {
        KLOG_ERROR("%s ERROR :CPlayer::Initialize(): Error initializing playlist parser, check directories: %s, %s\n",
                   GetPrefix(), ip.playlist_dir.c_str(), ip.media_dir.c_str());
        return err;
    }
    m_playlist.SetPlayerId(ip.player_id);
    m_playlist_dir = ip.playlist_dir;
    m_media_dir = ip.media_dir;
    return start(nullptr, SCHED_OTHER, 0);
}

int CPlayer::Deinitialize() {
    KLOG_INFO("%s CPlayer::Deinitialize(): called.\n", GetPrefix());
    Stop(true);
    stop(kThreadStopTimeoutMs);
    // Nothing of the timer thread may reach the parts deleted below.
    m_reload->Cancel();
    m_fader.SetVolumeControl(nullptr);
    KLOG_INFO("%s CPlayer::Deinitialize(): Thread stopped.\n", GetPrefix());
    if (int err = m_volume.CloseMixer(); err != 0) KLOG_ERROR("%s ERROR :Closing the mixer returned %d\n", GetPrefix(), err);
    for (CPCMOutput* output : {m_normal_out, static_cast<CPCMOutput*>(m_buffered_out)}) {
        if (output != nullptr && output->DeInitialize() < 0)
            KLOG_ERROR("%s ERROR :CPlayer::Deinitialize(): Error deinitializing PCM audio.\n", GetPrefix());
    }
    CAudioSource* source = m_source.exchange(nullptr);
    if (source != nullptr) {
        source->Close();
        source->Deinitialize();
    }
    if (m_decoder != nullptr) {
        m_decoder->DestroyChain();
        mpg123_exit();
    }
    delete m_normal_out;
    delete m_buffered_out;
    delete m_decoder;
    delete source;
    for (APlayerState** state : {&m_idle, &m_paused, &m_playing, &m_ending, &m_connecting, &m_buffering, &m_wait}) {
        delete *state;
        *state = nullptr;
    }
    m_normal_out = nullptr;
    m_buffered_out = nullptr;
    m_decoder = nullptr;
    m_out = nullptr;
    m_state = nullptr;
    m_playlist.Clear();
    ResetFields();
    return 0;
}

void CPlayer::ResetFields() {
    utils::scope_lock guard(m_lock);
    m_current_item.clear();
    m_current_track.clear();
    m_current_playlist.clear();
    m_db_volume = kNoDbVolume;
    m_shuffle = false;
    m_track_opened = false;
    m_item_started = false;
    m_partially_played = false;
    m_interrupt = true;
    m_requested_volume = kDefaultRequestedVolume;
    m_playlist_dir = kDefaultDir;
    m_media_dir = kDefaultDir;
    const int32_t margin = m_stream_params.track_fade_margin;
    const NetworkOptions network = m_stream_params.network;
    m_stream_params = StreamParams();
    m_requested_stream_params = StreamParams();
    m_stream_params.track_fade_margin = margin;
    m_stream_params.network = network;
    m_stop_interrupt = true;
    const IPlayer* player = m_info.m_player;
    m_info = PlaybackInfo();
    m_info.m_player = const_cast<IPlayer*>(player);
    m_is_stream = false;
    m_low_buffer = false;
    m_threshold_ms = 0;
}

int CPlayer::AssignPlayerChannel() {
    KORVEL_ASSERT(kSource, m_out);
    const std::string old_device = m_out->GetDevice();
    const int id = GetPlayerId();
    const bool channel = id >= 1 && id <= kPlayerChannels;
    const std::string device = channel ? kChannelDevicePrefix + std::to_string(id) : std::string(kDefaultDevice);
    const std::string element = channel ? kChannelElementPrefix + std::to_string(id) : std::string(kDefaultElement);
    m_volume.set_element_name(element.c_str());
    m_out->SetDevice(device.c_str());
    if (channel) {
        KLOG_NOTICE("%s  id=%d, CPlayer::AssignPlayerChannel(): PCMOutput[%s] set to %s.\n", GetPrefix(), id,
                    old_device.c_str(), device.c_str());
        return 0;
    }
    KLOG_WARNING("%s  id=1, CPlayer::AssignPlayerChannel(): unsupported mixer channel chan_%d. Valid values are in [1..4]. Deafalting to plug:dmix on Playabck mixer channel.\n",
                 GetPrefix(), id);
    return -1;
}

// While the worker runs, every part reads its id and prefix on the worker thread: a change made
// from the host's thread is handed to the worker instead of racing with it.
void CPlayer::SetPlayerId(int id) {
    if (is_running()) {
        PostCommand(kCmdSetPlayerId, bytes_of<int32_t>(id));
        return;
    }
    ApplyPlayerId(id);
}

void CPlayer::set_player_prefix(const char* prefix) {
    if (is_running()) {
        PostCommand(kCmdSetPrefix, prefix != nullptr ? prefix : "");
        return;
    }
    ApplyPrefix(prefix);
}

void CPlayer::ApplyPlayerId(int id) {
    if (m_out == nullptr) {
        KLOG_ERROR("%s ERROR :NULL AUDIO OUTPUT. Failed to set new Player id/channel. The call should be used after Player Init!",
                   GetPrefix());
        return;
    }
    APlayerInfoAdapter::SetPlayerId(id);
    m_out->SetPlayerId(id);
    AssignPlayerChannel();
    m_fader.SetPlayerId(id);
    m_volume.SetPlayerId(id);
    m_rtp_algorithm.SetPlayerId(id);
    m_tcp_algorithm.SetPlayerId(id);
    m_playlist.SetPlayerId(id);
    if (CAudioSource* source = GetSource()) source->SetPlayerId(id);
    if (m_decoder != nullptr) m_decoder->SetPlayerId(id);
}

void CPlayer::ApplyPrefix(const char* prefix) {
    APlayerInfoAdapter::set_player_prefix(prefix);
    if (CAudioSource* source = GetSource())
        source->set_player_prefix(prefix);
    else
        KLOG_WARNING("%s CPlayer::set_player_prefix() did not take effect with NULL AUDIO SOURCE. Consider initilizing Player?",
                     GetPrefix());
    if (m_out != nullptr)
        m_out->set_player_prefix(prefix);
    else
        KLOG_WARNING("%s CPlayer::set_player_prefix() did not take effect with NULL AUDIO OUTPUT. Consider initilizing Player?",
                     GetPrefix());
    if (m_decoder != nullptr)
        m_decoder->set_player_prefix(prefix);
    else
        KLOG_WARNING("%s CPlayer::set_player_prefix() did not take effect with NULL DECODER. Consider initilizing Player?",
                     GetPrefix());
    m_fader.set_player_prefix(prefix);
    m_volume.set_player_prefix(prefix);
    m_rtp_algorithm.set_player_prefix(prefix);
    m_tcp_algorithm.APlayerInfoAdapter::set_player_prefix((std::string(prefix) + kTcpTag).c_str());
    m_playlist.set_player_prefix(prefix);
    KLOG_NOTICE("%s  CPlayer::set_player_prefix(): Player channel set to %d\n", GetPrefix(), GetPlayerId());
}

void CPlayer::StartAudio() {
    KORVEL_ASSERT(kSource, m_out);
    if (m_out->StartAudio() < 0) NotifyError(EPLAYER_PCMAUDIO_OUT);
}

void CPlayer::StopAudio() {
    if (m_out != nullptr && m_out->StopAudio() < 0) NotifyError(EPLAYER_PCMAUDIO_OUT);
}

// ---------------------------------------------------------------- commands and the worker

void CPlayer::PostCommand(uint16_t id, const std::string& payload) {
    m_queue.Push(id, payload);
    if (m_queue.Count() > kMaxWaitingCommands) {
        utils::CMsgQueue::Message dropped;
        m_queue.Get(dropped);
    }
    resume();
}

// The fader's end-of-job posts: Add never lets the queue grow past its capacity.
void CPlayer::AddCommand(uint16_t id) {
    m_queue.Add(id);
    resume();
}

void CPlayer::run(void*) {
    while (m_run) {
        ProcessCommands();
        if (!m_run) break;
        m_state.load()->Process();
    }
}

void CPlayer::Sleep(int ms) { suspend(static_cast<uint64_t>(ms)); }

void CPlayer::ProcessCommands() {
    if (m_queue.Count() == 0) return;
    for (;;) {
        utils::CMsgQueue::Message message;
        m_queue.Get(message);
        Execute(message);
        if (m_queue.Count() != 0) continue;
        if (IPlayerDelegate* delegate = Delegate()) {
            KLOG_NOTICE("%s id=%d, state=%s, NotifyPlaybackCommandExecuted() called\n", GetPrefix(), GetPlayerId(),
                        m_state.load()->GetName());
            delegate->NotifyPlaybackCommandExecuted(Snapshot());
        }
        return;
    }
}

void CPlayer::Execute(const utils::CMsgQueue::Message& message) {
    APlayerState* state = m_state.load();
    switch (message.id) {
        case kCmdSetPlaylist:
        case kCmdSetSingleItem:
            m_fader.Abort();
            {
                utils::scope_lock guard(m_lock);
                m_info.m_cnt = m_item.repeat_count;
                m_info.m_request_id = m_item.request_id;
            }
            if (message.id == kCmdSetPlaylist) {
                m_current_item = message.payload;
            } else {
                m_current_item.clear();
                m_current_playlist = message.payload;
            }
            {
                utils::scope_lock guard(m_lock);
                m_reload_name = m_current_item;
            }
            m_state.load()->SetNewPlaylist(m_interrupt);
            break;
        case kCmdPlay:
            m_fader.Abort();
            m_state.load()->Play();
            break;
        case kCmdPlayAfterFade:
            state->Play();
            break;
        case kCmdPause:
            m_fader.Abort();
            m_state.load()->Pause();
            break;
        case kCmdStop:
            m_fader.Abort();
            m_state.load()->Stop(m_stop_interrupt);
            break;
        case kCmdNext:
            m_fader.Abort();
            m_state.load()->PlayNext();
            break;
        case kCmdPrevious:
            m_fader.Abort();
            m_state.load()->PlayPrevious();
            break;
        case kCmdVolume:
            m_fader.Abort();
            ApplyVolume(value_of<uint16_t>(message.payload));
            break;
        case kCmdVolumeDb:
            m_fader.Abort();
            ApplyVolumeDb(value_of<int32_t>(message.payload));
            break;
        case kCmdShuffleOn:
        case kCmdShuffleOff:
            m_shuffle = message.id == kCmdShuffleOn;
            if (m_shuffle)
                m_playlist.Shuffle();
            else
                m_playlist.DontShuffle();
            break;
        case kCmdReloadPlaylist:
            ReloadPlaylistNow();
            break;
        case kCmdApplyStreamParams:
            ApplyStreamParams();
            break;
        case kCmdStopTimeout: {
            if (CAudioSource* source = GetSource()) source->Close();
            PlaybackInfo info;
            info.m_playlist_name = m_current_item;
            info.m_curr_music_file = m_current_track;
            NotifyError(info, EPLAYER_SOURCE_TIMEOUT);
            break;
        }
        case kCmdReconnect:
            if (CAudioSource* source = GetSource()) source->Close();
            SetState(m_connecting);
            break;
        case kCmdSetPlayerId:
            ApplyPlayerId(value_of<int32_t>(message.payload));
            break;
        case kCmdSetPrefix:
            ApplyPrefix(message.payload.c_str());
            break;
        case kCmdSelectSong:
            m_fader.Abort();
            SelectSong(value_of<int32_t>(message.payload));
            break;
        default:
            break;
    }
}

void CPlayer::SetState(APlayerState* next) {
    APlayerState* current = m_state.load();
    if (current != nullptr) current->on_exit();
    if (next == nullptr) return;
    const std::string old_name = current != nullptr ? current->GetName() : "";
    m_state = next;
    {
        utils::scope_lock guard(m_lock);
        m_info.m_player_state = next->GetId();
    }
    next->on_entry();
    // A state that moved on at its entry is reported as the newest state.
    APlayerState* now = m_state.load();
    if (IPlayerDelegate* delegate = Delegate()) delegate->NotifyPlaybackStateChanged(Snapshot(), now->GetName());
    KLOG_NOTICE("%s id=%d, state=%s, CPlayer::SetState(): State changed from %s\n", GetPrefix(), GetPlayerId(),
                now->GetName(), old_name.c_str());
}

int CPlayer::PlaybackCallback(void* opaque) {
    auto* player = static_cast<CPlayer*>(opaque);
    CAudioSource* source = player != nullptr ? player->GetSource() : nullptr;
    if (source == nullptr) {
        KLOG_NOTICE("%s PLAYBACK callback: player or audio source is NULL, quitting!\n",
                    player != nullptr ? player->GetPrefix() : APlayerInfoAdapter::kDefaultPrefix);
        return 1;
    }
    if (source->timed_out()) {
        KLOG_NOTICE("%s PLAYBACK callback: time out detected, quitting!\n", player->GetPrefix());
        return 1;
    }
    if (source->ReadOverrun()) return 1;
    if (player->m_out == nullptr || player->m_out != player->m_buffered_out) return 0;
    // libavformat asks at every read of the socket; the card and the level need a look only as often
    // as a period can pass, not thousands of times a second while data pours in.
    timespec now;
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const int64_t now_ms = static_cast<int64_t>(now.tv_sec) * kMillisPerSecond + now.tv_nsec / kNanosPerMilli;
    if (now_ms - player->m_last_feed_ms < kFeedIntervalMs) return 0;
    player->m_last_feed_ms = now_ms;
    CPCMOutputBuffered* buffered = player->m_buffered_out;
    buffered->UpdateBufferLevel();
    uint32_t level_ms = 0;
    const bool read = buffered->GetBufferLevel(&level_ms) >= 0;
    player->m_buffer_level_ms = static_cast<int>(level_ms);
    if (!read || player->GetOutputStatus()) return 0;
    const unsigned threshold = player->m_threshold_ms;
    if (level_ms < threshold) {
        if (!player->m_low_buffer) {
            player->NotifyError(EPLAYER_STREAM_LOW_BUFFER_REACHED);
            KLOG_WARNING("%s audio buffer reached low level: current=%ums, threshold=%ums", player->GetPrefix(), level_ms,
                         threshold);
        }
        player->m_low_buffer = true;
    } else {
        player->m_low_buffer = false;
    }
    return 0;
}

int CPlayer::GetBufferLevel() { return m_buffer_level_ms.load(); }

// ---------------------------------------------------------------- items and navigation

bool CPlayer::IsPlaylistName(const std::string& name) const {
    if (utils::is_url(name)) return false;
    const std::string tail =
        name.size() > static_cast<size_t>(kPlaylistSuffixChars) ? name.substr(name.size() - kPlaylistSuffixChars) : name;
    return std::strstr(kPlaylistExtensions, tail.c_str()) != nullptr;
}

void CPlayer::SetItem(const PlayerItem& item) {
    if (GetSource() == nullptr) {
        KLOG_ERROR("%s ERROR :CPlayer::SetItem() called without being initialized.\n", GetPrefix());
        return;
    }
    m_item_is_stream = utils::is_url(item.name);
    InterruptSource();
    {
        utils::scope_lock guard(m_lock);
        m_item = item;
        KLOG_INFO(">>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>> CPlayer::SetItem(): Interrupt is %s\n", item.interrupt ? "ON" : "OFF");
        m_interrupt = item.interrupt;
        m_requested_volume = item.volume;
        ClearTexts();
        m_info.m_cnt = 0;
        m_info.m_song_id = -1;
        APlayerState* state = m_state.load();
        KLOG_NOTICE("%s  CPlayer::SetItem() : id=%d, state=%s, SetItem %s, Repeat Count = %d , Shuffle = %d, Volume = %d, auto fade streams=%d\n",
                    GetPrefix(), GetPlayerId(), state != nullptr ? state->GetName() : "", item.name.c_str(),
                    item.repeat_count, item.shuffle, item.volume, item.auto_fade_streams);
        m_shuffle = item.shuffle;
        m_auto_fade_streams = item.auto_fade_streams;
        m_auto_fade_tracks = item.auto_fade_tracks;
    }
    PostCommand(IsPlaylistName(item.name) ? kCmdSetPlaylist : kCmdSetSingleItem, item.name);
}

void CPlayer::PlayPlaylist(const std::string& playlist, bool interrupt, bool shuffle, int volume) {
    KLOG_INFO("%s >>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>> CPlayer::PlayPlaylist() called for playlist {%s}\n", GetPrefix(),
              playlist.c_str());
    InterruptSource();
    {
        utils::scope_lock guard(m_lock);
        if (interrupt)
            KLOG_INFO(">>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>> CPlayer::PlayPlaylist(): Interrupt is ON\n");
        else
            KLOG_INFO("%s >>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>> CPlayer::PlayPlaylist(): Interrupt is OFF\n", GetPrefix());
        m_interrupt = interrupt;
        KLOG_INFO("%s >>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>> CPlayer::PlayPlaylist(): Requested volume %d\n", GetPrefix(), volume);
        m_requested_volume = volume;
        m_shuffle = shuffle;
    }
    m_item_is_stream = false;
    PostCommand(kCmdSetPlaylist, playlist);
    PostCommand(kCmdPlay);
    KLOG_INFO("%s >>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>>> CPlayer::PlayPlaylist(): END\n", GetPrefix());
}

void CPlayer::Play() { PostCommand(kCmdPlay); }

void CPlayer::Play(int song_id) {
    KLOG_INFO("%s CPlayer::Play() song %d: START\n", GetPrefix(), song_id);
    Stop(true);
    PostCommand(kCmdSelectSong, bytes_of<int32_t>(song_id));
    PostCommand(kCmdPlay);
}

// Worker thread: the cursor move of Play(song_id).
void CPlayer::SelectSong(int song_id) {
    if (song_id < 0 || static_cast<unsigned>(song_id) >= m_playlist.GetCount()) {
        KLOG_WARNING("%s CPlayer::Play() song id=%d is out of playlist range. Playing the first track", GetPrefix(), song_id);
        song_id = 0;
    }
    std::string track;
    m_playlist.MoveTo(static_cast<unsigned>(song_id) % kSongIdModulo, track);
    utils::scope_lock guard(m_lock);
    m_current_track = track;
    ClearTexts();
    m_info.m_playlist_name = m_current_item;
    m_info.m_song_id = song_id;
    m_info.m_curr_song_name = track;
}

void CPlayer::Stop(bool interrupt) {
    m_stop_interrupt = interrupt;
    if (interrupt) InterruptSource();
    PostCommand(kCmdStop);
}

void CPlayer::Pause() {
    InterruptSource();
    PostCommand(kCmdPause);
}

void CPlayer::PlayNext() {
    InterruptSource();
    PostCommand(kCmdNext);
}

void CPlayer::PlayPrevious() {
    InterruptSource();
    PostCommand(kCmdPrevious);
}

void CPlayer::SetShuffle(bool on) { PostCommand(on ? kCmdShuffleOn : kCmdShuffleOff); }

void CPlayer::ReloadPlaylist() { PostCommand(kCmdReloadPlaylist); }

// Worker thread: the playlist file is read again from the start, in the current shuffle mode.
void CPlayer::ReloadPlaylistNow() {
    if (m_current_item.empty()) return;
    m_playlist.Clear();
    if (m_playlist.ParsePlaylist(m_current_item, false) > 0 && m_shuffle) m_playlist.Shuffle();
}

void CPlayer::ReloadItem() {
    int requested;
    {
        utils::scope_lock guard(m_lock);
        m_info.m_playlist_digest.clear();
        requested = m_requested_volume;
    }
    InterruptSource();
    uint32_t fade_ms;
    {
        utils::scope_lock guard(m_lock);
        fade_ms = m_stream_params.stream_fade;
        m_reload_volume = requested;
    }
    FadeIn(fade_ms, 0);
    m_reload->Start(fade_ms + kReloadSettleMs);
}

// Timer thread: the reload's fade-out has had its time.
void CPlayer::FinishReload() {
    {
        utils::scope_lock guard(m_lock);
        m_requested_volume = m_reload_volume;
        m_info.m_curr_volume = static_cast<int16_t>(m_reload_volume);
    }
    std::string item;
    {
        utils::scope_lock guard(m_lock);
        item = m_reload_name;
    }
    PostCommand(kCmdSetPlaylist, item);
}

void CPlayer::SetRepeatCount(int count) {
    utils::scope_lock guard(m_lock);
    m_info.m_cnt = count < 0 ? -1 : count;
}

bool CPlayer::IsStream() { return m_item_is_stream; }

void CPlayer::InterruptSource() {
    // Only a network read or open can block the worker; a local file's next packet comes at once,
    // and interrupting it would turn a pause or a waiting item into a stop.
    CAudioSource* source = GetSource();
    if (source != nullptr && m_is_stream) source->Interrupt();
}

int CPlayer::OpenPlaylist(const std::string& caller) {
    StopAudio();
    m_playlist.Clear();
    // A new item starts once, whatever became of the one before it.
    m_item_started = false;
    APlayerState* state = m_state.load();
    if (m_current_item.empty()) {
        if (!m_current_playlist.empty()) {
            m_playlist.SetSingleItem(m_current_playlist, m_current_playlist, true);
            KLOG_NOTICE("%s %s id=%d, state=%s, %s : ITEM [%s] start\n", GetPrefix(), GetPrefix(), GetPlayerId(),
                        state->GetName(), caller.c_str(), m_current_playlist.c_str());
            StartAudio();
            SelectFirstTrack(caller);
            return 0;
        }
        KLOG_INFO("%s CPlayer::OpenPlaylist(): Error empty item found.\n", GetPrefix());
        NotifyError(EPLAYER_ITEM_NOT_PLAYABLE);
        NotifyItemMissing(Snapshot(), m_current_item);
    } else {
        const int count = m_playlist.ParsePlaylist(m_current_item, false);
        if (count > 0) {
            if (m_shuffle) {
                KLOG_INFO("%s CPlayer::OpenPlaylist(): %s: ---------- SHUFFLE ON --------\n", GetPrefix(), caller.c_str());
                m_playlist.Shuffle();
            } else {
                KLOG_INFO("%s CPlayer::OpenPlaylist(): %s: ---------- SHUFFLE OFF --------\n", GetPrefix(), caller.c_str());
            }
            KLOG_NOTICE("%s %s id=%d, state=%s, %s : PLAYLIST [%s] start\n", GetPrefix(), GetPrefix(), GetPlayerId(),
                        state->GetName(), caller.c_str(), m_current_item.c_str());
            StartAudio();
            SelectFirstTrack(caller);
            return 0;
        }
        KLOG_ERROR("%s ERROR :CPlayer::OpenPlaylist(): %s: Error parsing playlist %s return code: %d\n", GetPrefix(),
                   caller.c_str(), m_current_item.c_str(), count);
        PlaybackInfo copy = Snapshot();
        copy.m_curr_music_file = m_current_item;
        copy.m_playlist_name = m_current_item;
        NotifyError(copy, EPLAYER_ITEM_NOT_PLAYABLE);
        if (count == CPlaylistFileMap::kMissing) NotifyItemMissing(copy, m_current_item);
    }
    StartAudio();
    SetCurrentTrack("");
    return 0;
}

// An item whose repeat count is used up before its first track (a count of 0) holds nothing to
// play: a later Play finds no track rather than playing the list once.
void CPlayer::SelectFirstTrack(const std::string& caller) {
    if (MoveTrackUp(caller, false) == 0) return;
    m_playlist.Clear();
    SetCurrentTrack("");
}

int CPlayer::MoveTrackUp(const std::string& caller, bool notify) {
    std::string next;
    if (m_playlist.MoveToNext(next) == 0) {
        SetCurrentTrack(next);
        return 0;
    }
    APlayerState* state = m_state.load();
    if (!m_playlist.HasPlayableTracks()) {
        KLOG_ERROR("%s ERROR :%s id=%d, state=%s, CPlayer::MoveTrackUp():-----|> %s: All Playlist tracks failed to open! Stopping Player.\n",
                   GetPrefix(), GetPrefix(), GetPlayerId(), state->GetName(), caller.c_str());
        NotifyError(EPLAYER_ITEM_NOT_PLAYABLE);
        SetCurrentTrack(next);
        return 1;
    }
    m_playlist.ResetPlayableCount();
    int count;
    {
        utils::scope_lock guard(m_lock);
        count = m_info.m_cnt;
        if (count > 0) m_info.m_cnt = count - 1;
    }
    if (count == 0) {
        KLOG_INFO("%s CPlayer::MoveTrackUp():-------------------------|> %s: Playback Item end passed!\n", GetPrefix(),
                  caller.c_str());
        m_item_started = false;
        if (notify) {
            if (IPlayerDelegate* delegate = Delegate()) delegate->NotifyItemPlaybackFinished(Snapshot(), m_current_item);
        }
        SetCurrentTrack(next);
        return 1;
    }
    SetCurrentTrack(next);
    return 0;
}

void CPlayer::MoveTrackDown(const std::string& caller) {
    std::string previous;
    if (m_playlist.MoveToPrevious(previous) != 0)
        KLOG_INFO("%s CPlayer::MoveTrackDown():-------------------------|> %s: Playback Item begin passed!\n", GetPrefix(),
                  caller.c_str());
    SetCurrentTrack(previous);
}

void CPlayer::SetCurrentTrack(const std::string& track) {
    utils::scope_lock guard(m_lock);
    m_current_track = track;
}

// ---------------------------------------------------------------- tracks

int CPlayer::OpenTrack(const std::string& caller) {
    if (m_current_item.empty() && m_current_track.empty()) {
        KLOG_INFO("%s CPlayer::OpenTrack(): %s: No playlist or other item is assigned returning to idle state.\n",
                  GetPrefix(), caller.c_str());
        SetState(m_idle);
        m_is_stream = false;
        return 0;
    }
    {
        utils::scope_lock guard(m_lock);
        m_info.m_album_name.clear();
        m_info.m_artist_name.clear();
    }
    CAudioSource* source = GetSource();
    const bool network = utils::is_url(m_current_track);
    int result;
    if (!network) {
        m_is_stream = false;
        if (m_out != m_normal_out) {
            KLOG_INFO("%s Setting PCM Output to NORMAL output address is 0x%x.\n", GetPrefix(),
                      static_cast<unsigned>(reinterpret_cast<uintptr_t>(m_normal_out)));
            StopAudio();
            if (m_buffered_out != nullptr) {
                m_buffered_out->DeInitialize();
                delete m_buffered_out;
                m_buffered_out = nullptr;
            }
            m_out = m_normal_out;
            m_decoder->SetOutput(m_out);
            StartAudio();
        }
        // An absolute track stands for itself; anything else is found in the media folder.
        const std::string path = m_current_track.compare(0, 1, "/") == 0 ? m_current_track : m_media_dir + m_current_track;
        KLOG_INFO("%s CPlayer[%d]::OpenTrack(): %s found in DB.\n", GetPrefix(), GetPlayerId(), path.c_str());
        result = source->Initialize(path, m_current_track);
    } else {
        m_is_stream = true;
        KLOG_INFO("%s Setting PCM Output to BUFFERED output address is 0x%x.\n", GetPrefix(),
                  static_cast<unsigned>(reinterpret_cast<uintptr_t>(m_buffered_out)));
        StopAudio();
        if (m_buffered_out != nullptr) {
            m_buffered_out->DeInitialize();
            delete m_buffered_out;
            m_buffered_out = nullptr;
        }
        StreamParams params;
        {
            utils::scope_lock guard(m_lock);
            params = m_stream_params;
        }
        const bool rtp = contains(m_current_track, "rtp://");
        const unsigned delay = rtp ? params.rtp_delay : params.tcp_delay;
        const unsigned accuracy = rtp ? params.rtp_accuracy : params.tcp_accuracy;
        const unsigned limit = (accuracy + delay) / kMillisPerSecond + kSourceTimeoutMarginSec;
        BufferingAlgorithm::IBufferingAlgorithm* algorithm;
        if (rtp) {
            KLOG_INFO("%s Switching to RTP buffering. Setting delay to %u [%s]\n", GetPrefix(), limit,
                      m_current_track.c_str());
            algorithm = &m_rtp_algorithm;
            m_threshold_ms = params.rtp_low_threshold;
        } else {
            KLOG_INFO("%s Switching to TCP buffering. Setting delay to %u s. [%s]\n", GetPrefix(), limit,
                      m_current_track.c_str());
            algorithm = &m_tcp_algorithm;
            m_threshold_ms = params.tcp_low_threshold;
        }
        source->SetTimeout(static_cast<int>(limit));
        m_buffered_out = new CPCMOutputBuffered(algorithm, static_cast<int>(delay), static_cast<int>(accuracy));
        m_buffered_out->SetPlayerId(GetPlayerId());
        m_buffered_out->set_player_prefix(GetPrefix());
        m_out = m_buffered_out;
        AssignPlayerChannel();
        m_decoder->SetOutput(m_out);
        m_decoder->SetAudioFormat(AudioFormat());
        if (m_out->Initialize() < 0) {
            KLOG_ERROR("%s ERROR :CPlayer::OpenTrack(): %s: Error failed to create Buffered Audio Output!\n", GetPrefix(),
                       caller.c_str());
            NotifyError(EPLAYER_PCMAUDIO_OUT);
            return 0;
        }
        StartAudio();
        result = source->Initialize(m_current_track, "");
    }

    if (result >= 0) {
        AudioFormat format;
        source->GetAudioFormat(format);
        {
            utils::scope_lock guard(m_lock);
            m_info.m_format_value = format.rate;
        }
        m_track_opened = true;
        m_partially_played = true;
        if (!m_item_started) {
            m_item_started = true;
            if (IPlayerDelegate* delegate = Delegate()) delegate->NotifyItemPlaybackStarted(Snapshot());
        }
        if (m_decoder->RestartFeed() != 0) {
            KLOG_ERROR("%s ERROR :CPlayer::OpenTrack(): %s: Feeder restarting failed!\n", GetPrefix(), caller.c_str());
            if (network) {
                NotifyError(EPLAYER_OPEN_URL);
            } else {
                m_playlist.SetCurrentPlayable(false);
                NotifyError(EPLAYER_OPEN_TRACKFILE);
            }
            NotifyItemMissing(Snapshot(), m_current_track);
            return 0;
        }
        KLOG_INFO("%s CPlayer::OpenTrack(): -------------------------|> Track %s successfully opened for playback.\n",
                  GetPrefix(), (m_media_dir + m_current_track).c_str());
        m_playlist.SetCurrentPlayable(true);
        KLOG_NOTICE("%s %s id=%d, state=%s, %s :start.\n", GetPrefix(), GetPrefix(), GetPlayerId(),
                    m_state.load()->GetName(), m_current_track.c_str());
        return 1;
    }

    KLOG_INFO("%s CPlayer::OpenTrack(): %s: Audio source initialization error!\n", GetPrefix(), caller.c_str());
    if (!network) {
        m_playlist.SetCurrentPlayable(false);
        if (result == -ENOENT) {
            KLOG_INFO("%s CPlayer::OpenTrack():-------------------------|> missing file error detected\n", GetPrefix());
            NotifyItemMissing(Snapshot(), m_current_track);
        } else {
            KLOG_INFO("%s CPlayer::OpenTrack():-------------------------|> Open error detected\n", GetPrefix());
        }
        NotifyError(EPLAYER_OPEN_TRACKFILE);
    } else if (result == AVERROR_EXIT && source->GetTimeout() < 0) {
        KLOG_INFO("%s CPlayer::OpenTrack():-------------------------|> Custom interrupt detected\n", GetPrefix());
    } else if (result == AVERROR_EXIT) {
        KLOG_INFO("%s CPlayer::OpenTrack():-------------------------|> URL time-out error detected\n", GetPrefix());
        NotifyError(EPLAYER_SOURCE_TIMEOUT);
    } else {
        KLOG_INFO("%s CPlayer::OpenTrack():-------------------------|> Other error detected\n", GetPrefix());
        NotifyError(EPLAYER_OPEN_URL);
    }
    return 0;
}

int CPlayer::ProcessTrack() {
    CAudioSource* source = GetSource();
    bool metadata_changed = false;
    const int result = source->ProcessPacket(metadata_changed);
    if (result >= 0) {
        if (metadata_changed) RefreshStreamInfo();
        return result;
    }
    if (result == AVERROR_EOF) {
        KLOG_INFO("%s CPlayer::ProcessTrack():-------------------------|>EOF detected\n", GetPrefix());
        m_partially_played = false;
    } else if (result == AVERROR(EIO) && m_is_stream) {
        // A stream without a length ends as an input error when the server closes it: the end of
        // the stream, not a fault of the player's.
        KLOG_INFO("%s CPlayer::ProcessTrack():-------------------------|>EOF detected\n", GetPrefix());
    } else if (result == AVERROR_EXIT) {
        if (source->GetTimeout() < 0) {
            KLOG_INFO("%s CPlayer::ProcessTrack():-------------------------|> interrupt detected\n", GetPrefix());
        } else {
            KLOG_INFO("%s CPlayer::ProcessTrack():-------------------------|> time-out error detected\n", GetPrefix());
            NotifyError(EPLAYER_SOURCE_TIMEOUT);
        }
    } else {
        KLOG_INFO("%s CPlayer::ProcessTrack():-------------------------|> other error detected\n", GetPrefix());
        NotifyError(EPLAYER_PROCESS_BUFFER);
    }
    return result;
}

void CPlayer::CloseTrack() {
    if (m_current_track.empty()) {
        KLOG_INFO("%s CPlayer::CloseTrack(): -------------------------|> Empty string provided for track filename.\n",
                  GetPrefix());
        return;
    }
    KLOG_INFO("%s CPlayer::CloseTrack(): -------------------------|> Closing %s\n", GetPrefix(),
              (m_media_dir + m_current_track).c_str());
    if (CAudioSource* source = GetSource()) source->Close();
    if (m_track_opened) {
        KLOG_INFO("%s CPlayer::CloseTrack(): Notifying end of stream for %s\n", GetPrefix(), m_current_track.c_str());
        NotifyAudioStreamFinished();
    } else {
        KLOG_INFO("%s CPlayer::CloseTrack(): %s was never opened. Skipping NotifyAudioStreamFinished() \n", GetPrefix(),
                  m_current_track.c_str());
    }
    m_is_stream = false;
    m_track_opened = false;
}

void CPlayer::NotifyAudioStreamFinished() {
    if (IPlayerDelegate* delegate = Delegate())
        delegate->NotifyTrackPlaybackFinished(Snapshot(), m_current_track, m_partially_played);
}

void CPlayer::LoadPlaybackInfo(bool notify) {
    CAudioSource* source = GetSource();
    KORVEL_ASSERT(kSource, source);
    TrackInfo track;
    source->GetTrackInfo(track);
    // At the end of a shuffled pass the peek at the next track shuffles anew and leaves the cursor
    // at the end: the track under way keeps the id it was given when the cursor was still on it.
    int song_id = m_playlist.GetCurrentIndex();
    if (song_id < 0) {
        utils::scope_lock guard(m_lock);
        if (m_info.m_curr_music_file == m_current_track) song_id = m_info.m_song_id;
    }
    std::string next;
    const int last = m_playlist.GetNext(next, false);
    KLOG_DEBUG("%s CPlayer::LoadPlaybackInfo() next item is: [%s]\n", GetPrefix(), next.c_str());
    // The next track's tags are read before the lock is taken: the host's GetPlaybackInfo must not
    // wait for a file to be opened.
    std::string next_name = next;
    if (!next.empty() && !utils::is_url(next) && next != m_current_track) {
        KLOG_INFO("%s CPlayer::LoadPlaybackInfo() Extracting ID3 tag metadata.\n", GetPrefix());
        CAudioOutputDummy sink;
        CAudioSource tags;
        tags.SetOutput(&sink);
        tags.set_player_prefix(GetPrefix());
        const std::string path = next.compare(0, 1, "/") == 0 ? next : m_media_dir + next;
        if (tags.Initialize(path, next) >= 0) {
            TrackInfo info;
            tags.GetTrackInfo(info);
            if (!info.title.empty()) next_name = info.title;
            if (!info.artist.empty()) next_name += " (" + info.artist + ")";
            KLOG_INFO("%s CPlayer::LoadPlaybackInfo() setting next song to: [%s]\n", GetPrefix(), next_name.c_str());
        } else {
            KLOG_ERROR("%s ERROR :CPlayer::LoadPlaybackInfo(): Could not find next item in DB defaulting to file location name",
                       GetPrefix());
        }
        tags.Close();
    }
    {
        utils::scope_lock guard(m_lock);
        m_info.m_playlist_digest = source->GetPlaylistDigest();
        m_info.m_curr_song_name = track.title.empty() ? m_current_track : track.title;
        m_info.m_album_name = track.album;
        m_info.m_artist_name = track.artist;
        m_info.m_curr_music_file = m_current_track;
        KLOG_INFO("%s CPlayer::LoadPlaybackInfo() song name to be displayed: [%s | %s]\n", GetPrefix(),
                  m_info.m_curr_music_file.c_str(), m_info.m_curr_song_name.c_str());
        m_info.m_curr_volume = static_cast<int16_t>(GetVolume());
        m_info.m_playlist_name = m_current_item.empty() ? m_current_playlist : m_current_item;
        m_info.m_song_id = song_id;
        m_info.m_next_music_file = next;
        m_info.m_next_song_name = next_name;
    }
    IPlayerDelegate* delegate = Delegate();
    if (!notify || delegate == nullptr) return;
    if (m_playlist.GetCount() == 0) {
        NotifyError(EPLAYER_ITEM_NOT_PLAYABLE);
        return;
    }
    if (last == 1) KLOG_INFO("%s CPlayer::LoadPlaybackInfo() last song detected\n", GetPrefix());
    delegate->NotifyTrackPlaybackStarted(Snapshot(), last == 1);
}

void CPlayer::RefreshStreamInfo() {
    CAudioSource* source = GetSource();
    TrackInfo track;
    source->GetTrackInfo(track);
    AudioFormat format;
    source->GetAudioFormat(format);
    {
        utils::scope_lock guard(m_lock);
        m_info.m_album_name.clear();
        m_info.m_artist_name.clear();
        m_info.m_format_extra = 0;
        m_info.m_curr_song_name = track.title;
    }
    if (IPlayerDelegate* delegate = Delegate()) delegate->NotifyPlaybackInfoChanged(Snapshot());
}

void CPlayer::ClearTexts() {
    m_info.m_playlist_name.clear();
    m_info.m_curr_music_file.clear();
    m_info.m_next_music_file.clear();
    m_info.m_curr_song_name.clear();
    m_info.m_next_song_name.clear();
    m_info.m_artist_name.clear();
    m_info.m_album_name.clear();
}

void CPlayer::ClearPlaybackInfo(bool keep_ids) {
    utils::scope_lock guard(m_lock);
    ClearTexts();
    if (keep_ids) return;
    m_info.m_song_id = -1;
    m_info.m_cnt = 0;
}

bool CPlayer::ClearCustomInterrupt() {
    CAudioSource* source = GetSource();
    if (source == nullptr || source->GetTimeout() >= 0) return false;
    source->SetTimeout(kInterruptedSourceTimeoutSec);
    return true;
}

unsigned CPlayer::GetTrackCount() const { return m_playlist.GetCount(); }

void CPlayer::ResetSourceTrackInfo() {
    if (CAudioSource* source = GetSource()) source->ResetTrackInfo();
}

void CPlayer::LoadTrackDuration() {
    CAudioSource* source = GetSource();
    utils::scope_lock guard(m_lock);
    m_remaining_track_ms = source != nullptr ? source->m_duration_ms : 0;
}

bool CPlayer::GetOutputStatus() { return m_out != nullptr && m_out->NeedsBuffering(); }

bool CPlayer::NeedsBuffering() { return GetOutputStatus(); }

// ---------------------------------------------------------------- stream parameters

namespace {
bool SameBuffering(const StreamParams& a, const StreamParams& b) {
    return a.rtp_delay == b.rtp_delay && a.rtp_accuracy == b.rtp_accuracy && a.rtp_low_threshold == b.rtp_low_threshold &&
           a.tcp_delay == b.tcp_delay && a.tcp_accuracy == b.tcp_accuracy && a.tcp_low_threshold == b.tcp_low_threshold &&
           a.stream_fade == b.stream_fade && a.track_fade_margin == b.track_fade_margin;
}
}  // namespace

// The corrections every set of stream parameters gets, each logged with the value it puts in place.
StreamParams CPlayer::Corrected(const StreamParams& p) const {
    StreamParams c = p;
    if (c.rtp_accuracy < kMinRtpAccuracy) {
        c.rtp_accuracy = kMinRtpAccuracy;
        KLOG_NOTICE("%s CPlayer::SetStreamParams() too low rtp accuracy requested, overriding with %d", GetPrefix(), c.rtp_accuracy);
    }
    if (c.tcp_accuracy < kMinTcpAccuracy) {
        c.tcp_accuracy = kMinTcpAccuracy;
        KLOG_NOTICE("%s CPlayer::SetStreamParams() too low tcp accuracy requested, overriding with %d", GetPrefix(), c.tcp_accuracy);
    }
    if (c.rtp_delay < kMinRtpDelay) {
        c.rtp_delay = kMinRtpDelay;
        KLOG_NOTICE("%s CPlayer::SetStreamParams() too low rtp delay requested, overriding with %d", GetPrefix(), c.rtp_delay);
    }
    if (c.tcp_delay < kMinTcpDelay) {
        c.tcp_delay = kMinTcpDelay;
        KLOG_NOTICE("%s CPlayer::SetStreamParams() too low tcp delay requested, overriding with %d", GetPrefix(), c.tcp_delay);
    }
    if (c.rtp_delay < c.rtp_accuracy) {
        c.rtp_accuracy = static_cast<uint16_t>(c.rtp_delay - 1);
        KLOG_NOTICE("%s CPlayer::SetStreamParams() rtp delay < accuracy requested , overriding accuracy with %d", GetPrefix(),
                    c.rtp_accuracy);
    }
    if (c.tcp_delay < c.tcp_accuracy) {
        c.tcp_accuracy = static_cast<uint16_t>(c.tcp_delay - 1);
        KLOG_NOTICE("%s CPlayer::SetStreamParams() tcp delay < accuracy requested , overriding accuracy with %d", GetPrefix(),
                    c.tcp_accuracy);
    }
    if (c.rtp_low_threshold > c.rtp_delay / 2) {
        c.rtp_low_threshold = static_cast<uint16_t>(c.rtp_delay / 2);
        KLOG_NOTICE("%s CPlayer::SetStreamParams() rtp low buffer threshold > delay/2 requested , overriding accuracy with %d",
                    GetPrefix(), c.rtp_low_threshold);
    }
    if (c.tcp_low_threshold > c.tcp_delay / 2) {
        KLOG_NOTICE("%s CPlayer::SetStreamParams() tcp low buffer threshold (%d) > (%d) delay/2 requested , overriding with %d",
                    GetPrefix(), c.tcp_low_threshold, c.tcp_delay / 2, c.tcp_delay / 2);
        c.tcp_low_threshold = static_cast<uint16_t>(c.tcp_delay / 2);
    }
    if (c.stream_fade > c.tcp_low_threshold) {
        c.stream_fade = c.tcp_low_threshold;
        KLOG_NOTICE("%s CPlayer::SetStreamParams() stream fade in period > tcp low buffer threshold requested, overriding with value of the threshold %d",
                    GetPrefix(), static_cast<int>(c.stream_fade));
    }
    return c;
}

void CPlayer::SetStreamParams(const StreamParams& p) {
    utils::scope_lock guard(m_lock);
    // A set that needed corrections is stored corrected: the same request again changes nothing either.
    if (SameBuffering(p, m_stream_params) || SameBuffering(p, m_requested_stream_params)) return;
    m_requested_stream_params = p;
    KLOG_INFO("%s Setting up new buffer[delay,acc,low_thresh] of RTP[%d,%d,%d]ms, TCP[%d,%d]ms, fade-in [%d]ms ...............\n",
              GetPrefix(), p.rtp_delay, p.rtp_accuracy, p.rtp_low_threshold, p.tcp_delay, p.tcp_accuracy,
              static_cast<int>(p.stream_fade));
    m_stream_params = Corrected(p);
    // Before Initialize there is no worker to run the command, and nothing to apply the set to.
    if (is_running())
        PostCommand(kCmdApplyStreamParams);
    else
        ApplyStreamParams();
}

void CPlayer::ApplyStreamParams() {
    if (m_buffered_out == nullptr) {
        KLOG_WARNING("%s %s id=%d, CPlayer::ApplyStreamParams() could not apply new streaming parameters. Initilize Player first\n",
                     GetPrefix(), GetPrefix(), GetPlayerId());
        return;
    }
    StreamParams p;
    {
        utils::scope_lock guard(m_lock);
        p = m_stream_params;
    }
    uint16_t total;
    unsigned threshold;
    if (p.tcp_delay < p.rtp_delay) {
        total = static_cast<uint16_t>(p.rtp_delay + p.rtp_accuracy + p.tcp_accuracy);
        threshold = p.rtp_low_threshold;
    } else {
        total = static_cast<uint16_t>(p.tcp_delay + p.rtp_accuracy + p.tcp_accuracy);
        threshold = p.tcp_low_threshold;
    }
    if (static_cast<int64_t>(total) - threshold < static_cast<int64_t>(p.stream_fade))
        KLOG_WARNING("%s fade out threshold + fade-out interval (%d+%d)=%d[ms] exceeds total buffer (%d)[ms]. This will cause a time-out. Consider providing proper stream parameters when setting buffer size!",
                     GetPrefix(), threshold, static_cast<int>(p.stream_fade), threshold + static_cast<int>(p.stream_fade), total);
    else
        KLOG_INFO("%s CPlayer::ApplyStreamParams(): Setting up fade out threshold (%d) fade-out interval (%d) and total buffer size of (%d)[ms].",
                  GetPrefix(), threshold, static_cast<int>(p.stream_fade), total);
    if (m_buffered_out->SetBufferSize(total) < 0) {
        KLOG_ERROR("%s ERROR :CPlayer::ApplyStreamParams(): Error on setting buffer size.", GetPrefix());
        NotifyError(EPLAYER_PCMAUDIO_OUT);
        return;
    }
    m_threshold_ms = threshold;
    utils::scope_lock guard(m_lock);
    if (CAudioSource* source = GetSource()) source->SetTimeout(static_cast<int>(total / kMillisPerSecond + kSourceTimeoutMarginSec));
}

// ---------------------------------------------------------------- fading and volume

void CPlayer::FadeAndStop(unsigned interval_ms, unsigned volume) { m_fader.FadeAndStop(interval_ms, volume); }

void CPlayer::FadeAndPause(unsigned interval_ms, unsigned volume) { m_fader.FadeAndPause(interval_ms, volume); }

void CPlayer::FadeAndPlay(unsigned interval_ms, unsigned init, unsigned target) {
    m_fader.FadeAndPlay(interval_ms, init, target);
}

void CPlayer::FadeIn(unsigned interval_ms, unsigned volume) {
    FadeAndPlay(interval_ms, static_cast<unsigned>(GetVolume()), volume);
}

void CPlayer::Fade(const FadeRequest& request) {
    if (m_state.load() == nullptr)
        KLOG_WARNING("%s  CPlayer::Fade(interval,volume) could not start fading. Initialize Player first\n", GetPrefix());
    PrepareFader(request);
}

// The fader is never called with the player lock held: its own lock is held while it calls back.
void CPlayer::PrepareFader(const FadeRequest& request) {
    KLOG_WARNING("%s CPlayer::PrepareFader(): aborting pending fading and seting fading from %u >>>> %u.\n", GetPrefix(),
                 request.init, request.target);
    m_fader.Abort();
    KLOG_INFO("%s id=%d, CPlayer::PrepareFader() Setting up Fader.\n", GetPrefix(), GetPlayerId());
    m_fader.Setup(request);
    int state;
    {
        utils::scope_lock guard(m_lock);
        state = m_info.m_player_state;
    }
    if (state == PLAYER_STATE_PLAYING || state == PLAYER_STATE_ENDING) {
        if (request.wait == 0)
            m_fader.StartFadingNow();
        else
            m_fader.StartWaiting();
        KLOG_INFO("%s %s id=%d, CPlayer::PrepareFader(interval,volume) Player playing already, fading started immediately.\n",
                  GetPrefix(), GetPrefix(), GetPlayerId());
        return;
    }
    KLOG_INFO("%s %s id=%d, CPlayer::PrepareFader() Player not playing right now, only setting up, should start on next play.\n",
              GetPrefix(), GetPrefix(), GetPlayerId());
}

void CPlayer::StartFading() { m_fader.StartFadingNow(); }

void CPlayer::SetupTrackAutoFade() {
    if (!m_auto_fade_tracks) {
        KLOG_INFO("%s PLAYBACK: AUTOFADE: Track auto-fading disabled", GetPrefix());
        return;
    }
    KLOG_INFO("%s PLAYBACK: AUTOFADE: id=%d, setting up automatic track fade in with duration 500 ms.\n", GetPrefix(),
              GetPlayerId());
    if (IPlayerFadingDelegate* observer = m_fading_delegate.load()) observer->NotifyTrackFadeIn(Snapshot());
    FadeRequest request;
    request.duration = kTrackFadeInMs;
    request.target = static_cast<uint32_t>(RequestedVolume());
    request.operation = FADE_OP_PLAY;
    PrepareFader(request);
}

void CPlayer::SetupStreamAutoFade() {
    uint32_t fade;
    {
        utils::scope_lock guard(m_lock);
        fade = m_stream_params.stream_fade;
    }
    if (!m_auto_fade_streams || fade == 0) return;
    KLOG_INFO("%s PLAYBACK: AUTOFADE: id=%d, setting up automatic stream fade in with duration %ums.\n", GetPrefix(),
              GetPlayerId(), fade);
    FadeRequest request;
    request.duration = fade;
    request.target = static_cast<uint32_t>(RequestedVolume());
    request.operation = FADE_OP_NONE;
    PrepareFader(request);
}

int CPlayer::RequestedVolume() {
    utils::scope_lock guard(m_lock);
    return m_requested_volume;
}

// Timer thread (or the thread that aborted the job), with the fader's lock held.
void CPlayer::EndFadingCallback(const unsigned* operation) {
    {
        utils::scope_lock guard(m_lock);
        m_info.m_curr_volume = static_cast<int16_t>(GetVolume());
    }
    switch (*operation) {
        case FADE_OP_PAUSE:
            InterruptSource();
            AddCommand(kCmdPause);
            KLOG_INFO("%s id=%d, CPlayer::EndFadingCallback(): Pause executed, ending fading", GetPrefix(), GetPlayerId());
            break;
        case FADE_OP_STOP:
            InterruptSource();
            m_stop_interrupt = true;
            AddCommand(kCmdStop);
            KLOG_INFO("%s id=%d, CPlayer::EndFadingCallback(): Stop executed, ending fading", GetPrefix(), GetPlayerId());
            break;
        case FADE_OP_RECONNECT:
            InterruptSource();
            AddCommand(kCmdReconnect);
            KLOG_INFO("%s %s id=%d, CPlayer::EndFadingCallback(): Changing to connecting state to trigger eventual re-buffering, ending fading",
                      GetPrefix(), GetPrefix(), GetPlayerId());
            break;
        case FADE_OP_STOP_TIMEOUT:
            InterruptSource();
            AddCommand(kCmdStopTimeout);
            KLOG_INFO("%s id=%d, CPlayer::EndFadingCallback(): Stopping a stream reporting a time out error.", GetPrefix(),
                      GetPlayerId());
            break;
        case FADE_OP_PLAY:
            if (m_auto_fade_tracks && !m_item_is_stream) ArmTrackEndWait();
            KLOG_INFO("%s id=%d, CPlayer::EndFadingCallback(): Track started playing after fading", GetPrefix(), GetPlayerId());
            break;
        case FADE_OP_WAIT:
            KLOG_INFO("%s id=%d, CPlayer::EndFadingCallback(): Wait ended", GetPrefix(), GetPlayerId());
            break;
        default:
            break;
    }
    if (IPlayerFadingDelegate* observer = m_fading_delegate.load())
        observer->NotifyFadeEnded(Snapshot(), m_item_is_stream, operation);
}

void CPlayer::ArmTrackEndWait() {
    int64_t remaining;
    int64_t limit;
    int requested;
    {
        utils::scope_lock guard(m_lock);
        remaining = m_remaining_track_ms;
        limit = m_stream_params.track_fade_margin + kTrackEndLeadMs;
        requested = m_requested_volume;
    }
    KLOG_INFO("%s >>>>>>>>>>>>>>>>>>>>>>>>>>> TRACK AUTO_FADE ON\n", GetPrefix());
    FadeRequest wait;
    if (remaining > limit) {
        wait.wait = static_cast<uint32_t>(remaining - limit);
        KLOG_INFO("%s >>>>>>>>>>>>>>>>>>>>>>>>>>> Waiting for %ld[ms]\n", GetPrefix(), static_cast<long>(wait.wait));
    } else {
        KLOG_INFO("%s >>>>>>>>>>>>>>>>>>>>>>>>>>> Remaining TRACK duration (%lld[ms]) is too short, issue wait end now.\n",
                  GetPrefix(), static_cast<long long>(remaining));
    }
    wait.target = static_cast<uint32_t>(requested);
    wait.init = static_cast<uint32_t>(requested);
    m_fader.Setup(wait);
    m_fader.StartWaiting();
}

void CPlayer::NotifyFadeAborted(long elapsed) {
    if (m_item_is_stream) return;
    KLOG_INFO("%s CPlayer::NotifyFadeAborted() received at elapsed track duration of %ld\n", GetPrefix(), elapsed);
    if (elapsed < 1 || !m_track_opened) return;
    utils::scope_lock guard(m_lock);
    m_remaining_track_ms -= elapsed;
}

bool CPlayer::SetVolume(unsigned short percent) {
    APlayerState* state = m_state.load();
    KLOG_NOTICE("%s  id=%d, state=%s, CPlayer::SetVolume(): with Volume value %d requested. \n", GetPrefix(), GetPlayerId(),
                state != nullptr ? state->GetName() : "", percent);
    if (percent > kMaxPercent) {
        KLOG_ERROR("%s ERROR :CPlayer::SetVolume(): Volume value %ld is out of range, value in [0..100 %%] required. \n",
                   GetPrefix(), static_cast<long>(percent));
        return false;
    }
    PostCommand(kCmdVolume, bytes_of<uint16_t>(percent));
    return true;
}

bool CPlayer::SetVolume_dB(long dB) {
    if (dB < CVolumeControlAdapter::kMinDb || dB > CVolumeControlAdapter::kMaxDb) {
        KLOG_ERROR("%s ERROR :CPlayer::SetVolume_dB(): Volume value %ld dB is out of range, value in [-120..0 dB] required. \n",
                   GetPrefix(), dB);
        return false;
    }
    PostCommand(kCmdVolumeDb, bytes_of<int32_t>(static_cast<int32_t>(dB)));
    return true;
}

void CPlayer::SetVolumeValue(int value, int unit) {
    m_db_volume = kNoDbVolume;
    if (unit == 1)
        PostCommand(kCmdVolumeDb, bytes_of<int32_t>(value));
    else if (unit == 0)
        PostCommand(kCmdVolume, bytes_of<uint16_t>(static_cast<uint16_t>(value)));
}

void CPlayer::ApplyVolume(int percent) {
    if (m_volume.SetOutputVolume(percent) < 0) {
        NotifyError(EPLAYER_SET_VOLUME);
        return;
    }
    utils::scope_lock guard(m_lock);
    m_requested_volume = percent;
    m_info.m_curr_volume = static_cast<int16_t>(percent);
}

// Fade-ins aim at the requested volume in percent, so after a dB command it holds the loudness in
// percent that the dB value gave.
void CPlayer::ApplyVolumeDb(int dB) {
    if (m_volume.SetOutputVolume_db(dB) < 0) {
        NotifyError(EPLAYER_SET_VOLUME);
        return;
    }
    m_db_volume = dB;
    utils::scope_lock guard(m_lock);
    m_requested_volume = GetVolume();
    m_info.m_curr_volume = static_cast<int16_t>(GetVolume());
}

int CPlayer::GetVolume() { return m_volume.GetVolumePercent(); }

// ---------------------------------------------------------------- small public calls

void CPlayer::GetPlaybackInfo(PlaybackInfo& info) { info = Snapshot(); }

void CPlayer::SetFadingDelegate(IPlayerFadingDelegate* observer) { m_fading_delegate = observer; }

void CPlayer::SetDelegate(IPlayerDelegate* delegate, IPlayer* player) {
    m_delegate = delegate;
    utils::scope_lock guard(m_lock);
    m_info.m_player = player;
}

bool CPlayer::GetErrorText(int code, std::string& text) { return KorvelPlayer::GetErrorText(code, text); }

void CPlayer::GetVersion(std::string& version) { version = kPlayerVersion; }

bool CPlayer::IsRunning() { return is_running(); }
