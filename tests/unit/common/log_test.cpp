#include "common/log.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "common/log_internal.h"
#include "support/log_capture.h"
#include "support/scratch_root.h"

using testsupport::LogCapture;

TEST(Log, DefaultsAreErrorsOnlyToSyslogWithCallerPrefix)
{
    EXPECT_EQ(gs_log_level, LEVEL_ERROR);
    EXPECT_EQ(gs_log_place, LOG_PLACE_SYSLOG);
    LogCapture log(gs_log_level);
    EXPECT_EQ(TLOG(LEVEL_DEBUG, "dropped\n"), 0);
    const int line = __LINE__ + 1;
    EXPECT_EQ(TLOG(LEVEL_ERROR, "kept %d\n", 7), 0);
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0].priority, LOG_ERR);
    EXPECT_EQ(log.lines()[0].text, "[TACTORD] TestBody:" + std::to_string(line) + " kept 7\n");
}

TEST(Log, InfoRanksBelowDebugAndOutOfRangeLevelsKeepTheThreshold)
{
    LogCapture log(LEVEL_DEBUG);
    log_write(LEVEL_INFO, "f", 1, "info\n");
    log_write(LEVEL_DEBUG, "f", 2, "debug\n");
    log_write(LEVEL_WARN, "f", 3, "warn\n");
    ASSERT_EQ(log.lines().size(), 2u);
    EXPECT_EQ(log.lines()[0].priority, LOG_DEBUG);
    EXPECT_EQ(log.lines()[1].priority, LOG_WARNING);

    set_log_level(LEVEL_INFO);
    for (int bad : {4, -1, 7})
        set_log_level(bad);
    EXPECT_EQ(gs_log_level, LEVEL_INFO);
    log_write(LEVEL_INFO, "f", 4, "info\n");
    EXPECT_EQ(log.lines().back().priority, LOG_INFO);
}

TEST(Log, TwoAndAboveAndNegativesSelectSyslog)
{
    for (auto [given, expected] : {std::pair{0, 0}, {1, 1}, {2, 2}, {5, 2}, {-3, 2}, {-1, 2}}) {
        set_log_to_stdout(given);
        EXPECT_EQ(gs_log_place, expected) << "-p " << given;
    }
}

// The second pass over the finished line: conversions from a configuration
// line, a sysfs path or a peer address stand as they are, "%%" becomes "%".
TEST(Log, LinesAreCutAt510CharactersAndFormattedASecondTime)
{
    const std::string text(600, 'x');
    {
        LogCapture log;
        log_write(LEVEL_ERROR, "func", 12, "%s", text.c_str());
        log_write(LEVEL_ERROR, "f", 1, "%s\n", "StartSection %n%n%s%d %% %5.2f %");
        const std::string prefix = "[TACTORD] func:12 ";
        ASSERT_EQ(log.lines().size(), 2u);
        EXPECT_EQ(log.lines()[0].text, prefix + text.substr(0, 510 - prefix.size()));
        EXPECT_EQ(log.lines()[1].text, "[TACTORD] f:1 StartSection %n%n%s%d % %5.2f %\n");
    }
    // Standard output has no prefix (conversions there: the daemon start-up test).
    set_log_to_stdout(LOG_PLACE_STDOUT);
    testing::internal::CaptureStdout();
    log_write(LEVEL_ERROR, "f", 1, "plain %s\n", "100%%");
    log_write(LEVEL_ERROR, "func", 12, "%s", text.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "plain 100%\n" + text.substr(0, 510));
}

class LogFile : public testing::Test {
protected:
    void SetUp() override { set_log_to_stdout(LOG_PLACE_FILE); }
    void TearDown() override
    {
        if (log_file != nullptr)
            std::fclose(log_file);
        log_file = nullptr;
    }
    std::string read(const char* suffix = "")
    {
        if (log_file != nullptr)
            std::fflush(log_file);
        return testsupport::read_file(root.at("/var/log/tactord.log") + suffix);
    }
    testsupport::ScratchRoot root;
};

TEST_F(LogFile, FirstWrittenMessageRotatesThePreviousRunToOldThenAppends)
{
    testsupport::write_file(root.at("/var/log/tactord.log"), "previous run\n");
    log_write(LEVEL_DEBUG, "a", 1, "filtered\n");
    EXPECT_EQ(log_file, nullptr);
    EXPECT_EQ(log_write(LEVEL_ERROR, "a", 1, "first\n"), 0);
    EXPECT_EQ(log_write(LEVEL_ERROR, "b", 2, "second\n"), 0);
    EXPECT_EQ(read(), "[TACTORD] a:1 first\n[TACTORD] b:2 second\n");
    EXPECT_EQ(read(".old"), "previous run\n");
}

TEST_F(LogFile, UnopenableFileReportsMinusOne)
{
    std::filesystem::remove_all(root.at("/var/log"));
    // The logger stays locked after this on purpose; nothing logs afterwards.
    EXPECT_EQ(log_write(LEVEL_ERROR, "a", 1, "lost\n"), -1);
}
