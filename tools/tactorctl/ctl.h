// tactorctl: a command-line client of the daemon's control socket, one
// subcommand per message type. The command set is a library so that the
// simulated panel runs the same commands in its own process.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/control_client.h"

namespace tools {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;  // refused by the daemon, or the daemon not reachable
inline constexpr int kExitUsage = 2;   // bad arguments

struct CtlContext {
    std::string socket = default_socket_path();
    std::chrono::milliseconds wait{0};  // how long to wait for the socket to appear
    std::FILE* out = stdout;
    std::FILE* err = stderr;
    std::optional<ControlConnection> conn;

    // The connection, opened on first use; null (reported) when it fails.
    ControlConnection* connect();
    // "tactorctl: <text>" on err; returns code.
    int fail(int code, const std::string& text);
    void say(const std::string& line);
    // Sends msg with a fence; null (reported) when the daemon did not take it.
    std::optional<ControlConnection::Answer> exchange(const SystemMsg& msg);
};

// "tactorctl: <text> (see --help)" on err; kExitUsage.
int usage_error(CtlContext& ctx, const std::string& text);
// The value of the option args[i], i moved onto it; null, reported as a
// usage error naming the option, when the option is the last word.
const std::string* option_value(CtlContext& ctx, const std::vector<std::string>& args, std::size_t& i);
// Screen indexes the daemon takes for a request: "main" or 0, "sub" or 1.
std::optional<int> parse_screen(std::string_view text);

struct Command {
    std::vector<std::string> words;  // "calibration", "get"
    std::string args;                // "SCREEN"
    std::string help;                // what it does and prints
    int (*run)(CtlContext& ctx, const std::vector<std::string>& args);
};

// The seven calibration parameters of a touchscreen.
using CaliParams = std::array<int32_t, 7>;
// Why tactord refused a TYPE_CALI_TS (its negative result), in words.
std::string calibration_refusal(int result);
// Writes seat lines "SEAT P0 .. P6" that calibration restore reads, through
// a file renamed over FILE; false (reported) on failure.
bool write_calibration_file(CtlContext& ctx, const std::string& file, const std::map<int, CaliParams>& seats);

// The commands of each group.
void add_calibration_commands(std::vector<Command>& table);
void add_config_commands(std::vector<Command>& table);
void add_device_commands(std::vector<Command>& table);
void add_calibrate_commands(std::vector<Command>& table);

// Ctrl-C and SIGTERM only set a flag from now on, so that a guided command
// can put the daemon and the screen back before it ends.
void ctl_catch_interrupt();
bool ctl_interrupted();

// Runs one tactorctl command line (without the program name); the exit status.
int tactorctl_run(const std::vector<std::string>& args, std::FILE* out, std::FILE* err);

}  // namespace tools
