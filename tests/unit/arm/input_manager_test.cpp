#include "arm/input_manager.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>
#include <initializer_list>
#include <string>
#include <vector>

#include "common/OrvelClient.h"
#include "common/log.h"
#include "common/log_internal.h"
#include "common/worker_thread.h"
#include "msg_handle.h"
#include "support/log_capture.h"
#include "support/scratch_root.h"

namespace {

// Parses args; the warnings it printed land in *warned.
tactord_options parse(std::initializer_list<const char*> args, std::string* warned = nullptr)
{
    std::vector<std::string> owned{"tactord"};
    owned.insert(owned.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& s : owned)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    char* text = nullptr;
    std::size_t size = 0;
    FILE* out = open_memstream(&text, &size);
    const tactord_options opts = parse_options(static_cast<int>(owned.size()), argv.data(), out);
    std::fclose(out);
    if (warned != nullptr)
        *warned = text;
    std::free(text);
    return opts;
}

TEST(Options, DefaultsAndEachOptionTakingTheNextArgumentAsADecimalNumber)
{
    std::string warned;
    const tactord_options defaults = parse({}, &warned);
    EXPECT_TRUE(defaults.init_ipc == 1 && !defaults.help && !defaults.version && warned.empty());
    EXPECT_TRUE(gs_log_level == LEVEL_ERROR && gs_log_place == LOG_PLACE_SYSLOG);
    const tactord_options opts = parse({"-d", "1", "-p", "0", "-t", "3", "-i", "0"});
    EXPECT_TRUE(gs_log_level == LEVEL_DEBUG && gs_log_place == LOG_PLACE_STDOUT);
    EXPECT_TRUE(gs_ipcType == 3 && opts.init_ipc == 0 && parse({"-i", "7"}).init_ipc == 7);
    EXPECT_TRUE(parse({"-h"}).help && parse({"-i", "0", "--help"}).help && parse({"--version"}).version);
}

TEST(Options, OutOfRangeUnknownAndMissingValues)
{
    parse({"-d", "2", "-d", "7", "-p", "1", "-p", "-1"});  // the logger's own rules
    EXPECT_TRUE(gs_log_level == LEVEL_WARN && gs_log_place == LOG_PLACE_SYSLOG);
    // "-d" takes "-p" as its value (0), the lone "2" is skipped, "abc" is 0; each skip named once.
    std::string warned;
    EXPECT_EQ(parse({"--verbose", "x", "-i", "abc", "-d", "-p", "2"}, &warned).init_ipc, 0);
    EXPECT_TRUE(gs_log_level == LEVEL_INFO && gs_log_place == LOG_PLACE_SYSLOG);
    EXPECT_EQ(testsupport::count_text(warned, "tactord: ignoring unknown option '"), 3);
    EXPECT_NE(warned.find("'x' (tactord --help lists the options)\n"), std::string::npos);
    // An option given last without a value changes nothing; "-h" as a value is a value.
    EXPECT_EQ(parse({"-d", "2", "-i"}, &warned).init_ipc, 1);
    EXPECT_EQ(warned, "tactord: ignoring option -i: it needs a value\n");
    EXPECT_EQ(gs_log_level, LEVEL_WARN);
    EXPECT_FALSE(parse({"-t", "-h"}).help);
    set_log_to_stdout(LOG_PLACE_STDOUT);
    parse({"-p"});
    EXPECT_EQ(gs_log_place, LOG_PLACE_STDOUT);
}

// Fixed storage: a sink that allocates is not safe inside a signal handler.
char handler_line[512];
volatile sig_atomic_t handler_lines = 0;
void signal_safe_sink(int, const char* line)
{
    std::strncpy(handler_line, line, sizeof handler_line - 1);
    handler_lines = handler_lines + 1;
}

TEST(Signals, CaughtSignalsAreLoggedAndOthersKeepTheirDefault)
{
    testsupport::LogCapture log;
    log_syslog_sink = signal_safe_sink;
    signal_initcapture();
    for (int sig : {SIGPIPE, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH}) {
        const int before = handler_lines;
        raise(sig);  // would stop or end the process if not caught
        EXPECT_EQ(handler_lines, before + 1) << sig;
        EXPECT_TRUE(std::string(handler_line).ends_with("catch a signal: " + std::to_string(sig))) << sig;
    }
    EXPECT_TRUE(signal(SIGINT, SIG_DFL) == SIG_DFL && signal(SIGABRT, SIG_DFL) == SIG_DFL);
}

// A signal inside the logger drops its line instead of taking the logger's lock again (a hang).
TEST(Signals, ASignalInsideTheLoggerDropsItsLineAndWorkerThreadsNeverTakeOne)
{
    testsupport::LogCapture log;
    signal_initcapture();
    log_syslog_sink = [](int, const char*) { raise(SIGWINCH); };
    EXPECT_EQ(TLOG(LEVEL_ERROR, "line\n"), 0);
    EXPECT_EQ(TLOG(LEVEL_ERROR, "and the logger is free again\n"), 0);

    std::promise<sigset_t> seen;
    ASSERT_EQ(start_worker_thread(
                  [](void* out) -> void* {
                      sigset_t mask;
                      pthread_sigmask(SIG_BLOCK, nullptr, &mask);
                      static_cast<std::promise<sigset_t>*>(out)->set_value(mask);
                      return nullptr;
                  },
                  &seen),
              0);
    const sigset_t worker_mask = seen.get_future().get();
    for (int sig : CAUGHT_SIGNALS)
        EXPECT_EQ(sigismember(&worker_mask, sig), 1) << sig;
    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGWINCH), 0);  // the creator keeps its mask
}

std::vector<int> handled;

TEST(MainLoop, OnePassFeedsTheWatchdogAndServesReadyDescriptors)
{
    int quiet[2], ready[2];
    ASSERT_TRUE(pipe(quiet) == 0 && pipe(ready) == 0);
    ASSERT_EQ(write(ready[1], "x", 1), 1);
    int one = 1, two = 2;
    const auto note = [](void* para) { return handled.push_back(*static_cast<int*>(para)), 0; };
    add_monitor_handle(quiet[0], note, &one);
    add_monitor_handle(ready[0], note, &two);

    const unsigned before = nWatdogReset.load();
    int max_fd = 0;
    main_loop_pass(&max_fd);
    EXPECT_TRUE(nWatdogReset.load() == before + 1 && max_fd == std::max(quiet[0], ready[0]));
    EXPECT_EQ(handled, std::vector<int>{2});
    for (int fd : {quiet[0], quiet[1], ready[0], ready[1]})
        close(fd);
}

}  // namespace
