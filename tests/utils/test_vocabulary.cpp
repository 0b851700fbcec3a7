#include <gtest/gtest.h>

#include <climits>

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

}  // namespace
