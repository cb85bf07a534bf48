#include "harness/drill.h"

#include <linux/input.h>
#include <sys/wait.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace testharness {

int open_fds(pid_t pid)
{
    std::error_code ec;
    std::filesystem::directory_iterator it("/proc/" + std::to_string(pid) + "/fd", ec);
    if (ec)
        return -1;
    int n = 0;
    for (const auto& entry : it) {
        (void)entry;
        ++n;
    }
    return n;
}

std::string fd_targets(pid_t pid)
{
    std::string out;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec)) {
        std::error_code gone;  // closed meanwhile
        out += entry.path().filename().string() + " -> " + std::filesystem::read_symlink(entry.path(), gone).string() + "\n";
    }
    return out;
}

long rss_kib(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string key;
    long value = -1;
    while (status >> key) {
        if (key == "VmRSS:") {
            status >> value;
            return value;
        }
        status.ignore(4096, '\n');
    }
    return -1;
}

std::optional<int> wait_end(pid_t pid, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int status = 0;
        const pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid)
            return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        if (r < 0 && errno != EINTR)
            return std::nullopt;
        if (std::chrono::steady_clock::now() >= deadline)
            return std::nullopt;
        std::this_thread::sleep_for(50ms);
    }
}

bool round_trip(DisplayClient& c, int32_t tag, std::chrono::milliseconds bound)
{
    if (!c.send(make_msg(TYPE_MODE_GET, tag)))
        return false;
    const auto deadline = std::chrono::steady_clock::now() + bound;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        const auto reply = c.read_reply(left);
        if (!reply)
            return false;
        if (reply->type == TYPE_MODE_GET && reply->scr_index == tag)
            return true;
    }
}

bool play_tap(emul::EvdevTestbed& bed, int node)
{
    using emul::ev;
    return bed.play(node, {ev(EV_KEY, BTN_TOUCH, 1), ev(EV_ABS, ABS_X, 100), ev(EV_ABS, ABS_Y, 200),
                           ev(EV_SYN, SYN_REPORT, 0)}) &&
           bed.play(node, {ev(EV_KEY, BTN_TOUCH, 0), ev(EV_SYN, SYN_REPORT, 0)});
}

std::vector<std::tuple<int, int, int>> receive(DisplayClient& c, std::size_t n, std::chrono::milliseconds bound)
{
    std::vector<std::tuple<int, int, int>> out;
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (out.size() < n) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        const auto e = left.count() > 0 ? c.read_event(left) : std::nullopt;
        if (!e)
            break;
        // Focus, cursor, lock-key and show/hide records follow the screen
        // model, not the device.
        if (e->type < 26 || e->type > EV_PRIV_CURSOR_SHOW)
            out.emplace_back(e->type, e->code, e->value);
    }
    return out;
}

ServingProbe::ServingProbe(const std::string& root) : client_(root)
{
    // Served once before the probe counts, so its connection is in the
    // monitor list when the constructor returns.
    if (!round_trip(client_, 999)) {
        misses_.store(1);
        return;
    }
    thread_ = std::thread([this] {
        for (int32_t tag = 1000; !stop_.load(); ++tag) {
            if (!round_trip(client_, tag))
                misses_.fetch_add(1);
            rounds_.fetch_add(1);
            std::this_thread::sleep_for(100ms);
        }
    });
}

ServingProbe::~ServingProbe()
{
    stop();
}

int ServingProbe::stop()
{
    stop_.store(true);
    if (thread_.joinable())
        thread_.join();
    client_.close_now();
    return misses_.load();
}

}  // namespace testharness
