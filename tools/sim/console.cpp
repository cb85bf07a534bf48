#include "sim/console.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>
// readline's header needs stdio's declarations first.
#include <cstdio>
#include <readline/history.h>
#include <readline/readline.h>

#include <cerrno>
#include <cstdlib>
#include <string>

namespace emul {
namespace {

constexpr const char* kPrompt = "tactord-sim> ";
constexpr int kHistoryLines = 500;

// readline's callback takes no context: the session in progress.
struct Session {
    Interpreter* interpreter = nullptr;
    Transcript* transcript = nullptr;
    int wake_fd = -1;
    bool done = false;
};
Session g_session;

void on_line(char* text)
{
    // The prompt goes away while the command runs, and lines print as they come.
    rl_callback_handler_remove();
    g_session.transcript->release();
    if (text == nullptr) {  // end of input (Ctrl-D)
        std::fputs("\n", stdout);
        g_session.done = true;
        return;
    }
    const std::string line = text;
    std::free(text);
    if (line.find_first_not_of(" \t") != std::string::npos)
        add_history(line.c_str());
    if (!g_session.interpreter->run(line)) {
        g_session.done = true;
        return;
    }
    g_session.transcript->hold(g_session.wake_fd);
    rl_callback_handler_install(kPrompt, on_line);
}

// Prints the lines held back while the prompt was shown, above the prompt
// and the line being typed, which come back as they were.
void print_held()
{
    const std::string held = g_session.transcript->take_held();
    if (held.empty())
        return;
    char* typed = rl_copy_text(0, rl_end);
    const int point = rl_point;
    rl_save_prompt();
    rl_replace_line("", 0);
    rl_redisplay();
    std::fputs(held.c_str(), stdout);
    std::fflush(stdout);
    rl_restore_prompt();
    rl_replace_line(typed, 0);
    rl_point = point;
    rl_forced_update_display();
    std::free(typed);
}

std::string history_file()
{
    const char* home = std::getenv("HOME");
    return home != nullptr && home[0] != '\0' ? std::string(home) + "/.tactord_sim_history" : std::string();
}

}  // namespace

void run_console(Interpreter& interpreter, Transcript& transcript, const volatile std::sig_atomic_t& interrupted)
{
    int wake[2];
    if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("tactord-sim: pipe");
        return;
    }
    const std::string history = history_file();
    if (!history.empty())
        read_history(history.c_str());
    // The program's own handlers end the session on Ctrl-C.
    rl_catch_signals = 0;
    g_session = {&interpreter, &transcript, wake[1], false};
    transcript.hold(wake[1]);
    rl_callback_handler_install(kPrompt, on_line);
    while (!g_session.done && interrupted == 0) {
        pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {wake[0], POLLIN, 0}};
        if (poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if ((fds[1].revents & POLLIN) != 0) {
            char drain[64];
            while (read(wake[0], drain, sizeof drain) > 0) {
            }
            print_held();
        }
        if ((fds[0].revents & (POLLIN | POLLHUP)) != 0)
            rl_callback_read_char();
    }
    if (!g_session.done) {
        rl_callback_handler_remove();
        std::fputs("\n", stdout);
    }
    transcript.release();
    if (!history.empty()) {
        write_history(history.c_str());
        history_truncate_file(history.c_str(), kHistoryLines);
    }
    close(wake[0]);
    close(wake[1]);
}

}  // namespace emul
