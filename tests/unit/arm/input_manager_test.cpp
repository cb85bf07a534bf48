// The daemon's entry: command-line options, caught signals (and none on worker threads), a loop pass.
#include "arm/input_manager.h"

#include "common/worker_thread.h"
#include "support/unit_common.h"

namespace {

tactord_options parse(std::vector<const char*> args, std::string& warned)
{
    args.insert(args.begin(), "tactord");
    args.push_back(nullptr);
    tactord_options opts;
    warned = testsupport::printed(
        [&](std::FILE* out) { opts = parse_options(int(args.size()) - 1, const_cast<char**>(args.data()), out); });
    return opts;
}

// In order: each case starts from the logger settings the one before left.
TEST(Options, EachTakesTheNextArgumentAsADecimalNumberAndWhatItCannotUseIsNamedOnce)
{
    const std::string unknown = " (tactord --help lists the options)\n";
    const struct {
        std::vector<const char*> args;
        int init_ipc, level, place;
        std::string warned;
    } cases[] = {
        {{}, 1, LEVEL_ERROR, LOG_PLACE_SYSLOG, ""},
        {{"-d", "1", "-p", "0", "-t", "3", "-i", "0"}, 0, LEVEL_DEBUG, LOG_PLACE_STDOUT, ""},
        {{"-d", "2", "-p"}, 1, LEVEL_WARN, LOG_PLACE_STDOUT, "tactord: ignoring option -p: it needs a value\n"},
        {{"-i", "7", "-d", "7", "-p", "1", "-p", "-1"}, 7, LEVEL_WARN, LOG_PLACE_SYSLOG, ""},  // the logger's own ranges
        // "-d" takes "-p" as its value (0), the lone "2" is skipped, "abc" is 0.
        {{"--verbose", "x", "-i", "abc", "-d", "-p", "2"}, 0, LEVEL_INFO, LOG_PLACE_SYSLOG,
         "tactord: ignoring unknown option '--verbose'" + unknown + "tactord: ignoring unknown option 'x'" + unknown +
             "tactord: ignoring unknown option '2'" + unknown},
        {{"-d", "2", "-i"}, 1, LEVEL_WARN, LOG_PLACE_SYSLOG, "tactord: ignoring option -i: it needs a value\n"},
    };
    std::string warned;
    for (const auto& c : cases) {
        const tactord_options opts = parse(c.args, warned);
        EXPECT_TRUE(opts.init_ipc == c.init_ipc && !opts.help && !opts.version) << c.args.size();
        EXPECT_TRUE(gs_log_level == c.level && gs_log_place == c.place && warned == c.warned) << warned;
    }
    EXPECT_EQ(gs_ipcType, 3);
    EXPECT_TRUE(parse({"-h"}, warned).help && parse({"-i", "0", "--help"}, warned).help);
    EXPECT_TRUE(parse({"--version"}, warned).version && !parse({"-t", "-h"}, warned).help);  // "-h" as a value is a value
}

// Fixed storage: a sink that allocates is not safe inside a signal handler.
char handler_line[512];
volatile sig_atomic_t handler_lines = 0;

// A signal inside the logger drops its line instead of taking the logger's lock again (a hang).
TEST(Signals, CaughtAreLoggedOthersKeepTheirDefaultNoneInsideTheLoggerOrOnWorkerThreads)
{
    testsupport::LogCapture log;
    log_syslog_sink = [](int, const char* line) {
        std::strncpy(handler_line, line, sizeof handler_line - 1);
        handler_lines = handler_lines + 1;
    };
    signal_initcapture();
    for (int sig : {SIGPIPE, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH}) {
        const int before = handler_lines;
        raise(sig);  // would stop or end the process if not caught
        EXPECT_EQ(handler_lines, before + 1) << sig;
        EXPECT_TRUE(std::string(handler_line).ends_with("catch a signal: " + std::to_string(sig))) << sig;
    }
    EXPECT_TRUE(signal(SIGINT, SIG_DFL) == SIG_DFL && signal(SIGABRT, SIG_DFL) == SIG_DFL);

    log_syslog_sink = [](int, const char*) { raise(SIGWINCH); };
    EXPECT_EQ(TLOG(LEVEL_ERROR, "line\n"), 0);
    EXPECT_EQ(TLOG(LEVEL_ERROR, "and the logger is free again\n"), 0);

    std::promise<sigset_t> seen;
    const auto report_mask = [](void* out) -> void* {
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        static_cast<std::promise<sigset_t>*>(out)->set_value(mask);
        return nullptr;
    };
    ASSERT_EQ(start_worker_thread(report_mask, &seen), 0);
    const sigset_t worker_mask = seen.get_future().get();
    for (int sig : {SIGPIPE, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH})
        EXPECT_EQ(sigismember(&worker_mask, sig), 1) << sig;
    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(sigismember(&own, SIGWINCH), 0);  // the creator keeps its mask
}

std::vector<int> handled;

TEST(MainLoop, OnePassFeedsTheWatchdogAndServesReadyDescriptors)
{
    int quiet[2], ready[2];
    ASSERT_TRUE(pipe(quiet) == 0 && pipe(ready) == 0 && write(ready[1], "x", 1) == 1);
    int one = 1, two = 2;
    const auto note = [](void* para) { return handled.push_back(*static_cast<int*>(para)), 0; };
    add_monitor_handle(quiet[0], note, &one);
    add_monitor_handle(ready[0], note, &two);
    const unsigned before = nWatdogReset.load();
    int max_fd = 0;
    main_loop_pass(&max_fd);
    EXPECT_TRUE(nWatdogReset.load() == before + 1 && max_fd == std::max(quiet[0], ready[0]));
    EXPECT_EQ(handled, std::vector<int>{2});
}

}  // namespace
