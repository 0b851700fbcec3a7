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

TEST(ErrorText, BothEdgesOfTheTableAreReachable) {
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

// Every part appends its own tag to the prefix its owner hands it, so one player's lines can be
// told from another's and from the part that wrote them; a new owner prefix replaces, never stacks.
TEST(PlayerInfoAdapter, APartsPrefixIsItsOwnersFollowedByItsTag) {
    struct Part : APlayerInfoAdapter {
        void set_player_prefix(const char* prefix) override { set_tagged_prefix(prefix, " AUDIO OUT:"); }
    } part;
    EXPECT_STREQ(part.GetPrefix(), "PLAYBACK :");
    part.set_player_prefix("P1");
    part.set_player_prefix("P2");
    EXPECT_STREQ(part.GetPrefix(), "P2 AUDIO OUT:");
}

}  // namespace
