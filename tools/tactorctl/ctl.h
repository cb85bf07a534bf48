// tactorctl: a command-line client of the daemon's control socket, one
// subcommand per message type. The command set is a library so that the
// simulated panel runs the same commands in its own process.
#pragma once

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
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

struct Command {
    std::vector<std::string> words;  // "calibration", "get"
    std::string args;                // "SCREEN"
    std::string help;                // what it does and prints
    int (*run)(CtlContext& ctx, const std::vector<std::string>& args);
};

// The commands of each group.
void add_calibration_commands(std::vector<Command>& table);
void add_config_commands(std::vector<Command>& table);

// Runs one tactorctl command line (without the program name); the exit status.
int tactorctl_run(const std::vector<std::string>& args, std::FILE* out, std::FILE* err);

}  // namespace tools
