// The daemon's logger: levels, places, the caller prefix, the 510-character cut, the second
// formatting pass and the log file's rotation.
#include "common/log.h"

#include "support/unit_common.h"

// By default errors only, to syslog; info ranks below debug; bad levels keep the threshold. In the
// second formatting pass conversions from a configuration line, a sysfs path or a peer address stand
// as they are and "%%" becomes "%"; standard output has no prefix.
TEST(Log, LevelsPlacesAndPrefixAndLinesCutAt510AndFormattedASecondTime)
{
    EXPECT_TRUE(gs_log_level == LEVEL_ERROR && gs_log_place == LOG_PLACE_SYSLOG);
    {
        LogCapture log(gs_log_level);
        EXPECT_EQ(TLOG(LEVEL_DEBUG, "dropped\n"), 0);
        const int line = __LINE__ + 1;
        EXPECT_EQ(TLOG(LEVEL_ERROR, "kept %d\n", 7), 0);
        ASSERT_EQ(log.lines().size(), 1u);
        EXPECT_EQ(log.lines()[0].priority, LOG_ERR);
        EXPECT_EQ(log.lines()[0].text, "[TACTORD] TestBody:" + std::to_string(line) + " kept 7\n");
    }
    LogCapture log(LEVEL_DEBUG);
    for (int level : {LEVEL_INFO, LEVEL_DEBUG, LEVEL_WARN})
        log_write(level, "f", 1, "x\n");
    set_log_level(LEVEL_INFO);
    for (int bad : {4, -1, 7})
        set_log_level(bad);
    EXPECT_EQ(gs_log_level, LEVEL_INFO);
    log_write(LEVEL_INFO, "f", 4, "info\n");
    ASSERT_EQ(log.lines().size(), 3u);
    EXPECT_EQ(log.lines()[0].priority, LOG_DEBUG);
    EXPECT_EQ(log.lines()[1].priority, LOG_WARNING);
    EXPECT_EQ(log.lines()[2].priority, LOG_INFO);
    for (auto [given, expected] : {std::pair{0, 0}, {1, 1}, {2, 2}, {5, 2}, {-3, 2}, {-1, 2}}) {
        set_log_to_stdout(given);  // two and above and negatives select syslog
        EXPECT_EQ(gs_log_place, expected) << "-p " << given;
    }
    const std::string text(600, 'x');
    {
        LogCapture cut;
        log_write(LEVEL_ERROR, "func", 12, "%s", text.c_str());
        log_write(LEVEL_ERROR, "f", 1, "%s\n", "StartSection %n%n%s%d %% %5.2f %");
        const std::string prefix = "[TACTORD] func:12 ";
        ASSERT_EQ(cut.lines().size(), 2u);
        EXPECT_EQ(cut.lines()[0].text, prefix + text.substr(0, 510 - prefix.size()));
        EXPECT_EQ(cut.lines()[1].text, "[TACTORD] f:1 StartSection %n%n%s%d % %5.2f %\n");
    }
    set_log_to_stdout(LOG_PLACE_STDOUT);
    testing::internal::CaptureStdout();
    log_write(LEVEL_ERROR, "f", 1, "plain %s\n", "100%%");
    log_write(LEVEL_ERROR, "func", 12, "%s", text.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "plain 100%\n" + text.substr(0, 510));
}

// The first message written rotates the previous run to ".old", then appends; an unopenable
// file gives -1 (the logger stays locked after this on purpose).
TEST(LogFile, FirstWrittenMessageRotatesThePreviousRunToOldAndAnUnopenableFileGivesMinusOne)
{
    testsupport::ScratchRoot root;
    set_log_to_stdout(LOG_PLACE_FILE);
    const std::string path = root.at("/var/log/tactord.log");
    testsupport::write_file(path, "previous run\n");
    log_write(LEVEL_DEBUG, "a", 1, "filtered\n");
    EXPECT_EQ(log_file, nullptr);
    EXPECT_EQ(log_write(LEVEL_ERROR, "a", 1, "first\n"), 0);
    EXPECT_EQ(log_write(LEVEL_ERROR, "b", 2, "second\n"), 0);
    std::fflush(log_file);
    EXPECT_EQ(testsupport::read_file(path), "[TACTORD] a:1 first\n[TACTORD] b:2 second\n");
    EXPECT_EQ(testsupport::read_file(path + ".old"), "previous run\n");
    std::fclose(log_file);
    log_file = nullptr;
    std::filesystem::remove_all(root.at("/var/log"));
    EXPECT_EQ(log_write(LEVEL_ERROR, "a", 1, "lost\n"), -1);
}
