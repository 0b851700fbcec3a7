#include <gtest/gtest.h>

#include "LogCapture.h"
#include "Logger.h"

namespace {

int g_evaluations = 0;
const char* counted_prefix() {
    ++g_evaluations;
    return "PREFIX";
}

// print() maps stderr to an error and other streams to information.
TEST(Logger, IdentityIsTheNameAfterTheLastSlashOnlyTheFirstInitAnnouncesItselfAndPrintMapsItsStream) {
    Logger logger;
    LogCapture capture;
    logger.set_sink(&capture);
    logger.print(stderr, "to stderr %d", 1);
    logger.print(stdout, "to stdout %d", 2);
    for (const auto& [path, identity] : {std::pair{"/usr/bin/vendra_player", "vendra_player"},
                                         {"vendra player", "vendra player"}, {"/opt/bin/", ""}}) {
        logger.init(path);
        EXPECT_EQ(logger.identity(), identity) << path;
    }
    logger.set_sink(nullptr);
    EXPECT_EQ(capture.count("Initializing Logging service"), 1);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], std::make_pair(LOG_ERR, std::string("to stderr 1")));
    EXPECT_EQ(lines[1], std::make_pair(LOG_INFO, std::string("to stdout 2")));
    EXPECT_EQ(lines[2].first, LOG_INFO);
}

// A level the mask disables must not even evaluate its arguments.
TEST(Logger, AMaskPassesOnlyItsLevelsEachWithItsPriority) {
    const std::pair<unsigned, std::vector<int>> masks[] = {
        {Logger::kDefaultMask, {LOG_CRIT, LOG_ERR, LOG_WARNING}},
        {Logger::kFullMask, {LOG_CRIT, LOG_ERR, LOG_WARNING, LOG_NOTICE, LOG_INFO, LOG_DEBUG}}};
    for (const auto& [mask, expected] : masks) {
        LogCapture capture(mask);
        g_evaluations = 0;
        KLOG_CRITICAL("%s", counted_prefix());
        KLOG_ERROR("%s", counted_prefix());
        KLOG_WARNING("%s", counted_prefix());
        KLOG_NOTICE("%s", counted_prefix());
        KLOG_INFO("%s", counted_prefix());
        KLOG_DEBUG("%s", counted_prefix());
        EXPECT_EQ(g_evaluations, static_cast<int>(expected.size())) << mask;
        std::vector<int> priorities;
        for (const auto& [priority, text] : capture.lines()) {
            priorities.push_back(priority);
            EXPECT_EQ(text, "PREFIX");
        }
        EXPECT_EQ(priorities, expected) << mask;
    }
}

}  // namespace
