// tactord-sim: the simulated panel on an ordinary PC. It emulates the board's
// devices, runs the real tactord under the emulation with its own display
// clients, plays a short demonstration and then takes commands from the
// terminal, or runs a script of commands (--script FILE) and exits.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "sim/commands.h"
#include "sim/console.h"
#include "sim/panel.h"
#include "sim/sandbox_lock.h"

namespace {

volatile std::sig_atomic_t g_interrupted = 0;

void on_interrupt(int)
{
    g_interrupted = 1;
}

int usage(std::FILE* to, int status)
{
    std::fprintf(to,
                 "usage: tactord-sim [--script FILE] [--no-demo] [--root DIR] [--port-conf FILE] [--log-level N]\n"
                 "                   [--clients 0,1|0|1|none] [--daemon BINARY] [--touch-controller ID|none]\n"
                 "Emulates the panel's board (a 1280x800 framebuffer, /dev/dev_mod_cfg, the board's touch panel,\n"
                 "a USB touchscreen on seat 5, a USB keyboard on seat 1, a USB mouse on seat 2, a keyboard-wedge\n"
                 "barcode scanner behind the keyboard's hub and a CDC scanner on /dev/ttyACM0) under umockdev,\n"
                 "with $TACTORD_ROOT/proc/bus/input/devices listing the plugged devices, runs the real tactord\n"
                 "under it in a sandbox ($TACTORD_ROOT), and display clients for screens 0 and 1 that print what\n"
                 "they receive. Without --script it plays a demonstration and reads commands from the terminal\n"
                 "(line editing and history; type help); with --script it runs the file's commands and exits:\n"
                 "0 when every command worked and every expectation was met, else 1. A sandbox in use by another\n"
                 "tactord-sim or tactord is refused (exit status 1).\n"
                 "  --root DIR       the sandbox (default: a new directory under /tmp, removed at the end)\n"
                 "  --port-conf FILE the seat file (default: the sample etc/port.conf)\n"
                 "  --log-level N    tactord's -d level (default 2: warnings and errors)\n"
                 "  --clients LIST   the screens the sim's own display clients hold (default 0,1; none: no\n"
                 "                   client, so that clients of your own can register)\n"
                 "  --touch-controller ID  what the board's touch controller reports in /proc/atmel_product\n"
                 "                   (default 2151, a 12-bit panel; 214e: 10-bit; none: no such file)\n"
                 "  --daemon BINARY  the tactord to run (default: this build's); a target build (ARMv7) runs under\n"
                 "                   qemu-arm with the sysroot next to its build tree (scripts/install-deps)\n");
    return status;
}

// "0,1", "1", "none": the screens, each 0 or 1, once.
bool parse_clients(const std::string& text, std::vector<int>& screens)
{
    screens.clear();
    if (text == "none")
        return true;
    for (std::size_t at = 0; at <= text.size(); at += 2) {
        const char c = text[at];
        if ((c != '0' && c != '1') || (at + 1 < text.size() && text[at + 1] != ','))
            return false;
        if (std::find(screens.begin(), screens.end(), c - '0') != screens.end())
            return false;
        screens.push_back(c - '0');
    }
    return !screens.empty();
}

std::string self_dir()
{
    std::error_code ec;
    return std::filesystem::read_symlink("/proc/self/exe", ec).parent_path().string();
}

}  // namespace

int main(int argc, char** argv)
{
    // The panel's own process runs under the umockdev preload too, as the
    // daemon does: a tactorctl command it runs (ctl) that opens a device
    // node then reaches the emulated one, not this machine's.
    if (const char* old = std::getenv("LD_PRELOAD"); old == nullptr || std::strstr(old, "libumockdev-preload") == nullptr) {
        const std::string preload =
            std::string("libumockdev-preload.so.0") + (old != nullptr && old[0] != '\0' ? ":" + std::string(old) : "");
        setenv("LD_PRELOAD", preload.c_str(), 1);
        execv("/proc/self/exe", argv);
        std::perror("tactord-sim: re-exec under the umockdev preload");
        return 1;
    }
    std::signal(SIGPIPE, SIG_IGN);
    // Ctrl-C ends the session like "quit": the prompt's read is interrupted
    // (no restart), and the daemon, the clients and the sandbox are cleaned up.
    struct sigaction stop {};
    stop.sa_handler = on_interrupt;
    sigaction(SIGINT, &stop, nullptr);
    sigaction(SIGTERM, &stop, nullptr);
    std::string script;
    bool demo = true;
    bool own_root = true;
    emul::PanelOptions options;
    options.port_conf = TACTORD_SOURCE_DIR "/etc/port.conf";
    options.events_binary = self_dir() + "/tactord-events";
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        const bool value = i + 1 < argc;
        if (arg == "--help")
            return usage(stdout, 0);
        if (arg == "--script" && value) {
            script = argv[++i];
        } else if (arg == "--no-demo") {
            demo = false;
        } else if (arg == "--root" && value) {
            options.root = std::filesystem::absolute(argv[++i]).string();
            own_root = false;
        } else if (arg == "--port-conf" && value) {
            options.port_conf = argv[++i];
        } else if (arg == "--clients" && value) {
            if (!parse_clients(argv[++i], options.client_screens)) {
                std::fprintf(stderr, "tactord-sim: --clients takes 0,1 or 0 or 1 or none, not '%s'\n", argv[i]);
                return usage(stderr, 2);
            }
        } else if (arg == "--daemon" && value) {
            // The emulation reads it too: it writes the records of the
            // daemon's architecture.
            setenv("TACTORD_DAEMON", std::filesystem::absolute(argv[++i]).c_str(), 1);
        } else if (arg == "--touch-controller" && value) {
            options.touch_controller = argv[++i];
            if (options.touch_controller == "none")
                options.touch_controller.clear();
        } else if (arg == "--log-level" && value) {
            options.daemon_args = std::string("-p 0 -d ") + argv[++i] + " -i 0";
        } else {
            std::fprintf(stderr, "tactord-sim: unexpected argument '%s'\n", arg.c_str());
            return usage(stderr, 2);
        }
    }
    std::ifstream script_file;
    if (!script.empty()) {
        script_file.open(script);
        if (!script_file) {
            std::fprintf(stderr, "tactord-sim: cannot read %s\n", script.c_str());
            return 2;
        }
    }
    if (own_root) {
        std::string tmpl = (std::filesystem::temp_directory_path() / "tactord-sim-XXXXXX").string();
        if (mkdtemp(tmpl.data()) == nullptr) {
            std::perror("tactord-sim: mkdtemp");
            return 1;
        }
        options.root = tmpl;
    }

    int status = 0;
    emul::SandboxLock lock;
    if (std::string error; !lock.acquire(options.root, error)) {
        std::fprintf(stderr, "tactord-sim: %s\n", error.c_str());
        return 1;
    }
    {
        emul::Transcript transcript(stdout);
        emul::Panel panel(transcript, options);
        emul::Interpreter interpreter(panel, transcript);
        std::string error;
        if (!panel.start(error)) {
            transcript.line("sim", "!!", error);
            status = 1;
        } else if (!script.empty()) {
            for (std::string line; g_interrupted == 0 && std::getline(script_file, line);) {
                if (!interpreter.run(line))
                    break;
            }
            status = interpreter.failures() == 0 ? 0 : 1;
            transcript.line("sim", "--",
                            status == 0 ? "script done" : "script done, " + std::to_string(interpreter.failures()) +
                                                              " failure(s)");
        } else {
            // The demonstration shows both screens' clients at work.
            const bool both = options.client_screens.size() == 2;
            if (demo && !both)
                transcript.line("sim", "--", "no demonstration: it needs the display clients of screens 0 and 1");
            if (demo && both && g_interrupted == 0)
                interpreter.run("demo");
            if (isatty(STDIN_FILENO) != 0) {
                emul::run_console(interpreter, transcript, g_interrupted);
            } else {
                for (std::string line; g_interrupted == 0 && std::getline(std::cin, line) && interpreter.run(line);) {
                }
            }
        }
    }
    if (own_root) {
        std::error_code ec;
        std::filesystem::remove_all(options.root, ec);
    }
    return status;
}
