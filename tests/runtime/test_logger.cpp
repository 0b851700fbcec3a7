#include <gtest/gtest.h>

#include "LogCapture.h"
#include "Logger.h"

namespace {

int g_evaluations = 0;
const char* counted_prefix() {
    ++g_evaluations;
    return "PREFIX";
}

TEST(Logger, IdentityIsTheNameAfterTheLastSlash) {
    Logger logger;
    logger.init("/usr/bin/vendra_player");
    EXPECT_EQ(logger.identity(), "vendra_player");
    logger.init("vendra player");
    EXPECT_EQ(logger.identity(), "vendra player");
    logger.init("/opt/bin/");
    EXPECT_EQ(logger.identity(), "");
}

TEST(Logger, OnlyTheFirstInitWritesTheStartLine) {
    Logger logger;
    LogCapture capture;
    logger.set_sink(&capture);
    logger.init("first");
    logger.init("second");
    logger.set_sink(nullptr);
    EXPECT_EQ(capture.count("Initializing Logging service"), 1);
    ASSERT_FALSE(capture.lines().empty());
    EXPECT_EQ(capture.lines().front().first, LOG_INFO);
}

TEST(Logger, DefaultMaskPassesOnlyCriticalErrorAndWarning) {
    LogCapture capture(Logger::kDefaultMask);
    g_evaluations = 0;
    KLOG_CRITICAL("%s c", counted_prefix());
    KLOG_ERROR("%s e", counted_prefix());
    KLOG_WARNING("%s w", counted_prefix());
    KLOG_NOTICE("%s n", counted_prefix());
    KLOG_INFO("%s i", counted_prefix());
    KLOG_DEBUG("%s d", counted_prefix());
    // Disabled levels must not even evaluate their arguments.
    EXPECT_EQ(g_evaluations, 3);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], std::make_pair(LOG_CRIT, std::string("PREFIX c")));
    EXPECT_EQ(lines[1], std::make_pair(LOG_ERR, std::string("PREFIX e")));
    EXPECT_EQ(lines[2], std::make_pair(LOG_WARNING, std::string("PREFIX w")));
}

TEST(Logger, FullMaskPassesEveryLevelWithItsPriority) {
    LogCapture capture(Logger::kFullMask);
    KLOG_NOTICE("n");
    KLOG_INFO("i");
    KLOG_DEBUG("d");
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].first, LOG_NOTICE);
    EXPECT_EQ(lines[1].first, LOG_INFO);
    EXPECT_EQ(lines[2].first, LOG_DEBUG);
}

TEST(Logger, PrintMapsStderrToErrorAndOtherStreamsToInfo) {
    LogCapture capture;
    g_logger.print(stderr, "to stderr %d", 1);
    g_logger.print(stdout, "to stdout %d", 2);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], std::make_pair(LOG_ERR, std::string("to stderr 1")));
    EXPECT_EQ(lines[1], std::make_pair(LOG_INFO, std::string("to stdout 2")));
}

}  // namespace
