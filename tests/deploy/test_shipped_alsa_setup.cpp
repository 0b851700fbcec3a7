// The ALSA set-up shipped for devices (config/asound.conf), loaded as it is by the system libasound.
// Only what lies below it is replaced: ALSA's dmix of card 0 (which accepts nothing but a kernel
// PCM as its slave) by the virtual card's vsink, and the card's control device by vuserctl, which
// holds the softvol controls as a card holds them once softvol has added them. Everything the
// shipped file defines (plug, softvol, the route to the mix) runs as it runs on a device.
// The player is made through the public factory only, as a host program makes it.
#include <alsa/asoundlib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "PacketReader.h"
#include "PcmChecks.h"
#include "PcmTolerance.h"
#include "PlayerFactory.h"
#include "RecordingDelegate.h"
#include "ScratchDir.h"

#include "vcard.h"

namespace {

constexpr int kPlayerId = 3;
constexpr const char* kTrack = "track_a.mp3";  // 1 s of 440 Hz, both channels
// The card plays four times faster than real time: the test waits less, softvol sees the same data.
constexpr int kCardSpeed = 4;
// A buffer as short as a dmix's (186 ms of the track), so that the card plays while the track is
// written instead of swallowing it whole before it starts.
constexpr unsigned kCardBufferBytes = 32768;
constexpr unsigned kCardPeriodBytes = 4096;
// Several times what the card holds, on its clock.
constexpr int kDrainMs = 300;
constexpr int kItemTimeoutMs = 10000;
constexpr int kHalfVolume = 50;
constexpr long kFullRaw = 255;
// softvol's default scale: raw 0..255 over -51..0 dB; the player writes 255 * percent / 100.
constexpr double kMinDb = -51.0;
constexpr double kDbPerStep = 51.0 / 255.0;

const char* const kElements[] = {"chan_1", "chan_2", "chan_3", "chan_4"};

// The missing card is the expected outcome, not news for the test log.
void IgnoreAlsaError(const char*, int, const char*, int, const char*, ...) {}

std::string Quoted(const std::string& text) { return "\"" + text + "\""; }

class ShippedAlsaSetup : public ::testing::Test {
protected:
    void TearDown() override {
        unsetenv("ALSA_CONFIG_PATH");
        snd_config_update_free_global();
    }
    // libasound reads only this file: the shipped set-up, then the card it is meant to sit on.
    void UseConfig(const std::string& text) {
        const std::string path = m_dir.file("asound.conf", text);
        setenv("ALSA_CONFIG_PATH", path.c_str(), 1);
        snd_config_update_free_global();
    }
    void UseVirtualCard() {
        std::string elements;
        for (const char* element : kElements) elements += Quoted(std::string(element) + " Playback Volume") + " ";
        m_capture = m_dir.path() + "/card.raw";
        UseConfig("defaults.pcm.rate_converter \"linear\"\n"
                  "pcm_type.vsink { lib " + Quoted(KORVEL_VSINK_LIB) + " }\n"
                  "ctl_type.vuserctl { lib " + Quoted(KORVEL_VUSERCTL_LIB) + " }\n"
                  "<" KORVEL_SHIPPED_ASOUND_CONF ">\n"
                  // ALSA's own definitions that the set-up and the player rely on: plug:NAME, and
                  // dmix:CARD, here the card itself instead of a mix in front of it.
                  "pcm.!plug {\n"
                  "    @args [ SLAVE ]\n"
                  "    @args.SLAVE { type string }\n"
                  "    type plug\n"
                  "    slave.pcm $SLAVE\n"
                  "}\n"
                  "pcm.!dmix {\n"
                  "    @args [ CARD ]\n"
                  "    @args.CARD { type string default \"0\" }\n"
                  "    type vsink\n"
                  "    capture " + Quoted(m_capture) + "\n"
                  "    speed " + std::to_string(kCardSpeed) + "\n"
                  "    buffer_bytes_max " + std::to_string(kCardBufferBytes) + "\n"
                  "    period_bytes_max " + std::to_string(kCardPeriodBytes) + "\n"
                  "}\n"
                  "ctl.!hw {\n"
                  "    @args [ CARD ]\n"
                  "    @args.CARD { type string }\n"
                  "    type vuserctl\n"
                  "    state " + Quoted(m_dir.path() + "/controls.state") + "\n"
                  "    elements [ " + elements + "]\n"
                  "}\n"
                  "ctl.!default \"hw:0\"\n");
    }

    ScratchDir m_dir;
    std::string m_capture;
};

// One player on channel 3 plays a tone twice, at 100 % and then at 50 %, while another client has
// turned chan_1 all the way down in between. The first play proves the chain passes audio at unity,
// the second that chan_3 (and only chan_3) scales channel3 by softvol's scale, and the controls
// afterwards that the player wrote chan_3 and nothing else.
TEST_F(ShippedAlsaSetup, ChannelThreeFollowsChan3AndNoOtherControl) {
    UseVirtualCard();
    const std::string media = m_dir.path() + "/media/";
    std::filesystem::create_directory(media);
    std::filesystem::copy_file(MediaPath(kTrack), media + kTrack);

    KorvelPlayer::ScopedRuntime runtime;
    RecordingDelegate delegate;
    KorvelPlayer::IPlayer* player = KorvelPlayer::CreatePlayer();
    ASSERT_NE(player, nullptr);
    player->SetDelegate(&delegate, player);
    KorvelPlayer::InitParams init;
    init.player_id = kPlayerId;
    init.playlist_dir = media;
    init.media_dir = media;
    ASSERT_EQ(KorvelPlayer::InitializePlayer(player, init, KorvelPlayer::StreamParams()), 0);

    KorvelPlayer::PlayerItem item;
    item.name = kTrack;
    item.repeat_count = 1;
    item.interrupt = true;
    // As the program starts playing: the fade of interval 0 sets the volume at once, on the timer
    // thread of the runtime.
    item.volume = 100;
    player->SetItem(item);
    player->FadeIn(0, 100);
    ASSERT_GE(delegate.wait_for_count(RecordingDelegate::kItemFinished, 1, kItemTimeoutMs), 0);
    ASSERT_EQ(vcard::WriteMixerVolume("chan_1", 0), 0);
    // As a host changes the volume between items: a volume command, then the item.
    item.volume = kHalfVolume;
    player->SetVolume(kHalfVolume);
    player->SetItem(item);
    player->Play();
    ASSERT_GE(delegate.wait_for_count(RecordingDelegate::kItemFinished, 2, kItemTimeoutMs), 0);
    // An item ends when its last samples are in the card: give it the time to play them before the
    // player closes it (the virtual card writes its capture when it is next called, the close).
    std::this_thread::sleep_for(std::chrono::milliseconds(kDrainMs));
    EXPECT_EQ(KorvelPlayer::DeinitializePlayer(player), 0);
    delete player;

    EXPECT_EQ(delegate.errors(), std::vector<int>());
    // Both plays, one after the other.
    const std::vector<int16_t> played = CaptureSamples(m_capture);
    const std::vector<int16_t> track = Samples(Mp3Reference(MediaPath(kTrack)));
    const size_t length = track.size();
    ASSERT_GT(length, 0u);
    ASSERT_GE(played.size(), 2 * length);
    // softvol at 0 dB copies the samples: the first play is the track itself, bit for bit (within
    // the allowance for a cross build's decoder).
    const auto differ = std::mismatch(track.begin(), track.end(), played.begin(), SamplesMatch);
    EXPECT_TRUE(differ.first == track.end())
        << "channel3 at 100 % differs from the track at sample " << (differ.first - track.begin());
    const long half_raw = kFullRaw * kHalfVolume / 100;
    const double expected_gain = std::pow(10.0, (kMinDb + half_raw * kDbPerStep) / 20.0);
    const double gain = MiddleRms(played, length, 2 * length) / MiddleRms(track, 0, length);
    EXPECT_NEAR(gain, expected_gain, expected_gain * 0.05)
        << "channel3 at 50 % played at " << 20 * std::log10(gain) << " dB";

    EXPECT_EQ(vcard::ReadMixerVolume("chan_3"), half_raw);
    EXPECT_EQ(vcard::ReadMixerVolume("chan_1"), 0) << "player 3 wrote chan_1";
    EXPECT_EQ(vcard::ReadMixerVolume("chan_2"), kFullRaw);
    EXPECT_EQ(vcard::ReadMixerVolume("chan_4"), kFullRaw);
}

// On a device the same file ends on hw:0 through ALSA's own dmix, which no virtual card can stand in
// for. With the stock configuration in front, as on a device, opening a channel gets as far as
// asking for the card: a plug or softvol field ALSA does not know, or arguments the stock dmix does
// not take, would fail earlier, with -EINVAL.
TEST_F(ShippedAlsaSetup, DeviceChainIsValidUpToTheMissingCard) {
    if (std::filesystem::exists("/dev/snd/controlC0")) GTEST_SKIP() << "this machine has a card 0";
    const std::string stock = std::string(snd_config_topdir()) + "/alsa.conf";
    setenv("ALSA_CONFIG_PATH", (stock + ":" + KORVEL_SHIPPED_ASOUND_CONF).c_str(), 1);
    snd_config_update_free_global();
    snd_lib_error_set_handler(IgnoreAlsaError);
    for (int channel = 1; channel <= 4; ++channel) {
        snd_pcm_t* pcm = nullptr;
        const std::string name = "channel" + std::to_string(channel);
        EXPECT_EQ(snd_pcm_open(&pcm, name.c_str(), SND_PCM_STREAM_PLAYBACK, 0), -ENOENT) << name;
    }
    snd_lib_error_set_handler(nullptr);
}

}  // namespace
