#include <gtest/gtest.h>

#include <climits>

#include "APlayerInfoAdapter.h"
#include "PlayerTypes.h"

namespace {

using namespace KorvelPlayer;

// A code and its negation name the same error; codes outside the table leave the text alone.
TEST(ErrorText, EitherSignFindsTheTextAndCodesOutsideTheTableFindNothing) {
    const char* const kTimeout = "EPLAYER_SOURCE_TIMEOUT: Audio source timeout detected.";
    const std::pair<int, const char*> cases[] = {
        {-1004, kTimeout}, {1004, kTimeout},
        {EPLAYER_OPEN_ITEM, "EPLAYER_OPEN_ITEM: Failed to open/parse a playback item."},
        {EPLAYER_STREAM_LOW_BUFFER_REACHED, "EPLAYER_STREAM_LOW_BUFFER_REACHED: Stream is runnig out of buffer."},
        {-999, nullptr}, {-1009, nullptr}, {0, nullptr}, {999, nullptr}, {1009, nullptr}, {INT_MIN, nullptr}};
    for (const auto& [code, expected] : cases) {
        std::string text = "unchanged";
        EXPECT_EQ(GetErrorText(code, text), expected != nullptr) << code;
        EXPECT_EQ(text, expected != nullptr ? expected : "unchanged") << code;
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
