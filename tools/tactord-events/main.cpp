// tactord-events: a display client that prints what it receives. It
// registers for a screen on the control socket and prints every record that
// arrives there, decoded: what an event monitor is for kernel devices, for
// the developers of display clients.
#include <csignal>
#include <cstdio>
#include <string>

#include "arm/input_manager.h"
#include "client/args.h"
#include "client/monitor.h"

namespace {

int usage(std::FILE* to, int status)
{
    std::fprintf(to,
                 "usage: tactord-events [--screen N] [--json] [--time] [--count N] [--for SECONDS]\n"
                 "                      [--socket PATH] [--wait SECONDS]\n"
                 "Registers as the display client of screen N (0 main, the default; 1 sub) on tactord's control\n"
                 "socket (%s; TACTORD_ROOT moves it) and prints every record it receives, one per line:\n"
                 "standard events by name (EV_KEY KEY_A press), the daemon's own records by meaning (focus\n"
                 "gained, cursor lost, lock Caps on, cursor show, locked touch ...) and replies. The first\n"
                 "line is the reply that shows the registration was handled, with the current mode.\n"
                 "  --json          one JSON object per record\n"
                 "  --time          text lines start with the record's time stamp\n"
                 "  --count N       stop after N records;  --for SECONDS  stop after that long\n"
                 "  --wait SECONDS  wait that long for the socket to appear\n"
                 "  -h, --help      this text;  --version  the version\n"
                 "Only one client holds a screen: while another does, tactord ignores the registration\n"
                 "silently. When no event has arrived 10 s after registering, a note on standard error says\n"
                 "so and how to free the screen.\n"
                 "Exit status: 0 when a limit was reached, 1 when tactord is not reachable or closed the\n"
                 "connection, 2 for bad arguments.\n",
                 tools::default_socket_path().c_str());
    return status;
}

}  // namespace

int main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    tools::MonitorOptions opts;
    opts.hint = stderr;
    std::string socket = tools::default_socket_path();
    std::chrono::milliseconds wait{0};
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h" || arg == "help")
            return usage(stdout, 0);
        if (arg == "--version") {
            std::printf("tactord-events %s\n", TACTORD_VERSION);
            return 0;
        }
        if (arg == "--json") {
            opts.json = true;
            continue;
        }
        if (arg == "--time") {
            opts.with_time = true;
            continue;
        }
        if (arg != "--screen" && arg != "--count" && arg != "--for" && arg != "--wait" && arg != "--socket") {
            std::fprintf(stderr, "tactord-events: unexpected argument '%s'\n", arg.c_str());
            return usage(stderr, 2);
        }
        if (i + 1 >= argc)
            return std::fprintf(stderr, "tactord-events: option %s needs a value\n", arg.c_str()), 2;
        const std::string value = argv[++i];
        if (arg == "--screen") {
            const auto n = tools::parse_integer(value, 0, 1);
            if (!n)
                return std::fprintf(stderr, "tactord-events: --screen takes 0 (main) or 1 (sub)\n"), 2;
            opts.screen = static_cast<int>(*n);
        } else if (arg == "--count") {
            const auto n = tools::parse_integer(value, 1, INT32_MAX);
            if (!n)
                return std::fprintf(stderr, "tactord-events: --count takes a number of records\n"), 2;
            opts.count = *n;
        } else if (arg == "--socket") {
            socket = value;
        } else {
            const auto s = tools::parse_seconds(value, 86400);
            if (!s)
                return std::fprintf(stderr, "tactord-events: %s takes seconds\n", arg.c_str()), 2;
            (arg == "--for" ? opts.duration : wait) = std::chrono::milliseconds(static_cast<long long>(*s * 1000));
        }
    }
    std::string error;
    auto conn = tools::ControlConnection::open(socket, wait, error);
    if (!conn) {
        std::fprintf(stderr, "tactord-events: %s\n", error.c_str());
        return 1;
    }
    if (tools::run_monitor(*conn, opts, stdout) != 0) {
        std::fprintf(stderr, "tactord-events: tactord closed the connection\n");
        return 1;
    }
    return 0;
}
