#include "harness/drill.h"

#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "common/usb_gun/unixsocket.h"

namespace testharness {

int open_fds(pid_t pid)
{
    const std::string targets = fd_targets(pid);
    return targets.empty() ? -1 : static_cast<int>(std::count(targets.begin(), targets.end(), '\n'));
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
    const std::string status = testsupport::read_file("/proc/" + std::to_string(pid) + "/status");
    const auto at = status.find("VmRSS:");
    return at == std::string::npos ? -1 : std::stol(status.substr(at + 6));
}

std::optional<int> wait_end(pid_t pid, std::chrono::milliseconds timeout)
{
    for (const auto deadline = std::chrono::steady_clock::now() + timeout;; std::this_thread::sleep_for(50ms)) {
        int status = 0;
        const pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid)
            return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
        if ((r < 0 && errno != EINTR) || std::chrono::steady_clock::now() >= deadline)
            return std::nullopt;
    }
}

int connect_unix(const char* path, std::chrono::milliseconds wait)
{
    int fd = -1;
    for (const auto deadline = std::chrono::steady_clock::now() + wait;
         (fd = unix_client_open(path)) < 0 && std::chrono::steady_clock::now() < deadline;)
        std::this_thread::sleep_for(20ms);
    return fd;
}

bool round_trip(DisplayClient& c, int32_t tag, std::chrono::milliseconds bound)
{
    const auto deadline = std::chrono::steady_clock::now() + bound;
    if (!c.send(make_msg(TYPE_MODE_GET, tag)))
        return false;
    for (std::optional<SystemMsg> reply; (reply = c.read_reply(left_until(deadline)));)
        if (reply->type == TYPE_MODE_GET && reply->scr_index == tag)
            return true;
    return false;
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
    for (std::optional<tactord::input_event> e; out.size() < n && (e = c.read_event(left_until(deadline)));)
        if (e->type < 26 || e->type > EV_PRIV_CURSOR_SHOW)  // the screen model's records, not the device's
            out.emplace_back(e->type, e->code, e->value);
    return out;
}

::testing::AssertionResult tap_served(emul::EvdevTestbed& bed, int node, DisplayClient& c)
{
    const std::vector<std::tuple<int, int, int>> want = {{1, 272, 1}, {3, 0, 46}, {3, 1, 52},
                                                         {0, 0, 0},   {1, 272, 0}, {0, 0, 0}};
    if (!play_tap(bed, node))
        return ::testing::AssertionFailure() << "the tap could not be played into node " << node;
    auto result = receive(c, want.size()) == want ? ::testing::AssertionSuccess() : ::testing::AssertionFailure();
    return result << "node " << node << " tap " << (result ? "received whole" : "not received whole");
}

ServingProbe::ServingProbe(const std::string& root) : client_(root)
{
    // Served once first, so its connection is in the monitor list on return.
    if (!round_trip(client_, 999))
        misses_.store(1);
    else
        thread_ = std::thread([this] {
            for (int32_t tag = 1000; !stop_.load(); ++tag, ++rounds_, std::this_thread::sleep_for(100ms))
                misses_ += round_trip(client_, tag) ? 0 : 1;
        });
}

int ServingProbe::stop()
{
    stop_.store(true);
    if (thread_.joinable())
        thread_.join();
    client_.close_now();
    return misses_.load();
}

void DaemonTest::launch(const std::vector<std::string>& args, const emul::Launch& how)
{
    daemon_ = std::make_unique<emul::DaemonProcess>(root_.at("/work"), args, how);
    ASSERT_TRUE(daemon_->started());
}

void DaemonTest::TearDown()
{
    if (HasFailure() && daemon_) {
        const std::string out = daemon_->output();
        std::fputs(out.c_str() + (out.size() > 8000 ? out.size() - 8000 : 0), stderr);
    }
}

}  // namespace testharness
