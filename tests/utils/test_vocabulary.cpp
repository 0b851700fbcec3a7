#include <gtest/gtest.h>

#include "APlayerInfoAdapter.h"
#include "PlayerTypes.h"

namespace {

using namespace KorvelPlayer;

TEST(ErrorText, NegativeAndPositiveCodesFindTheSameText) {
    std::string negative, positive;
    EXPECT_TRUE(GetErrorText(-1004, negative));
    EXPECT_TRUE(GetErrorText(1004, positive));
    EXPECT_EQ(negative, "EPLAYER_SOURCE_TIMEOUT: Audio source timeout detected.");
    EXPECT_EQ(positive, negative);
}

TEST(ErrorText, TheWholeTableIsReachableAndItsEdgesHold) {
    std::string text;
    EXPECT_TRUE(GetErrorText(EPLAYER_OPEN_ITEM, text));
    EXPECT_EQ(text, "EPLAYER_OPEN_ITEM: Failed to open/parse a playback item.");
    EXPECT_TRUE(GetErrorText(EPLAYER_STREAM_LOW_BUFFER_REACHED, text));
    EXPECT_EQ(text, "EPLAYER_STREAM_LOW_BUFFER_REACHED: Stream is runnig out of buffer.");
}

TEST(ErrorText, CodesOutsideTheTableLeaveTheTextAlone) {
    for (int code : {-999, -1009, 0, 999, 1009, -2147483647 - 1}) {
        std::string text = "unchanged";
        EXPECT_FALSE(GetErrorText(code, text)) << code;
        EXPECT_EQ(text, "unchanged") << code;
    }
}

TEST(StateNames, EveryIdHasItsName) {
    EXPECT_STREQ(GetStateName(PLAYER_STATE_IDLE), "Player_state_idle");
    EXPECT_STREQ(GetStateName(PLAYER_STATE_BUFFERING), "Player_state_buffering");
    EXPECT_STREQ(GetStateName(PLAYER_STATE_WAIT), "Player_state_wait");
    EXPECT_STREQ(GetStateName(7), "");
}

TEST(Records, DefaultsAreThoseOfAFreshPlayer) {
    const StreamParams params;
    EXPECT_EQ(params.rtp_delay, 500);
    EXPECT_EQ(params.tcp_delay, 10000);
    EXPECT_EQ(params.tcp_accuracy, 8000);
    EXPECT_EQ(params.stream_fade, 1000u);
    const PlaybackInfo info;
    EXPECT_EQ(info.m_song_id, -1);
    EXPECT_EQ(info.m_cnt, 0);
    EXPECT_EQ(info.m_player_state, PLAYER_STATE_IDLE);
}

TEST(PlayerInfoAdapter, PrefixGrowsByAppendAndIdStartsUnset) {
    APlayerInfoAdapter adapter;
    EXPECT_EQ(adapter.GetPlayerId(), -1);
    adapter.set_player_prefix("PLAYBACK :");
    adapter.AppendPrefix(" AUDIO OUT:");
    EXPECT_STREQ(adapter.GetPrefix(), "PLAYBACK : AUDIO OUT:");
    adapter.SetPlayerId(2);
    EXPECT_EQ(adapter.GetPlayerId(), 2);
}

}  // namespace
