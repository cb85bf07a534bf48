#include "support/remote_link.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <utility>

#include "arm/input_manager.h"
#include "common/OrvelClient.h"
#include "common/OrvelClient_internal.h"
#include "common/screen_manager_internal.h"
#include "msg_handle_internal.h"

namespace testsupport {
namespace {

bool set_if(int ctl, unsigned long request, const char* name, const char* addr)
{
    ifreq ifr{};
    std::strncpy(ifr.ifr_name, name, IFNAMSIZ - 1);
    if (request == SIOCSIFFLAGS)
        ifr.ifr_flags = IFF_UP;  // shares its place with the address
    else
        link_peer_address(addr, 0, reinterpret_cast<sockaddr_in*>(&ifr.ifr_addr));
    return ioctl(ctl, request, &ifr) == 0;
}

// Receives wait at most timeout (at least 1 ms: 0 would mean for ever).
void set_timeout(int fd, std::chrono::milliseconds timeout)
{
    const long ms = std::max<long>(timeout.count(), 1);
    const timeval tv{ms / 1000, (ms % 1000) * 1000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
}

std::atomic<int> wake_fd{-1};  // the running loop's wake pipe

void wake_loop(const EventHandleRec&)
{
    [[maybe_unused]] const ssize_t n = write(wake_fd.load(), "w", 1);  // a full pipe: the loop is awake anyway
}

int drain(void* para)
{
    for (char buf[64]; read(static_cast<int>(reinterpret_cast<intptr_t>(para)), buf, sizeof buf) > 0;)
        continue;
    return 0;
}

}  // namespace

std::string enter_private_net()
{
    const int ctl = unshare(CLONE_NEWNET) == 0 ? socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0) : -1;
    bool ok = ctl >= 0 && set_if(ctl, SIOCSIFFLAGS, "lo", "0.0.0.0");
    for (const char* addr : {"173.0.0.2", "173.0.0.3", "173.0.0.5"}) {
        const std::string label = std::string("lo:") + addr[8];
        ok = ok && set_if(ctl, SIOCSIFADDR, label.c_str(), addr) &&
             set_if(ctl, SIOCSIFNETMASK, label.c_str(), "255.255.255.255");
    }
    const std::string why = ok ? "" : std::strerror(errno);
    close(ctl);
    return why;
}

Bytes agent_frame(uint32_t type, const Words& payload)
{
    Words w = {IPC_PKG_FLAG, static_cast<uint32_t>(4 + payload.size() * 4), 0, type};
    w.insert(w.end(), payload.begin(), payload.end());
    const auto* p = reinterpret_cast<const uint8_t*>(w.data());
    return Bytes(p, p + w.size() * 4);
}

Bytes agent_text_frame(uint32_t type, const std::string& text)
{
    Bytes out = agent_frame(type, {});
    out[4] = static_cast<uint8_t>(4 + text.size());  // texts below 252 bytes
    out.insert(out.end(), text.begin(), text.end());
    return out;
}

Bytes read_exactly(int fd, std::size_t n, std::chrono::milliseconds timeout)
{
    Bytes out(n);
    set_timeout(fd, timeout);
    return n == 0 || recv(fd, out.data(), n, MSG_WAITALL) == static_cast<ssize_t>(n) ? out : Bytes{};
}

FakePeer::FakePeer(const char* addr, int port) : listen_fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in in{};
    link_peer_address(addr, port, &in);
    const int on = 1;
    setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listen_fd_, reinterpret_cast<sockaddr*>(&in), sizeof in) != 0 || listen(listen_fd_, 4) != 0)
        ADD_FAILURE() << "fake peer on " << addr << ":" << port << ": " << std::strerror(errno);
}

FakePeer::~FakePeer()
{
    hang_up();
    close(listen_fd_);
}

bool FakePeer::accept(std::chrono::milliseconds timeout)
{
    hang_up();
    set_timeout(listen_fd_, timeout);
    conn_fd_ = accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    return conn_fd_ >= 0;
}

Words FakePeer::frame(std::chrono::milliseconds timeout, bool with_ticks)
{
    for (const auto deadline = std::chrono::steady_clock::now() + timeout;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        Bytes raw = bytes(16, left);
        const uint32_t len = raw.empty() ? 0 : raw[4] | raw[5] << 8;  // agent frames are short
        const Bytes payload = len >= 4 ? bytes(len - 4, left) : Bytes{};
        raw.insert(raw.end(), payload.begin(), payload.end());
        if (raw.size() != len + 12)
            return {};
        Words w(raw.size() / 4);
        std::memcpy(w.data(), raw.data(), w.size() * 4);
        if (w[3] != MessageType_Tick || with_ticks)
            return w;
        ++ticks;
        if (answer_ticks)
            send(agent_frame(MessageType_Tick));
    }
}

bool FakePeer::send(const Bytes& data)
{
    return ::send(conn_fd_, data.data(), data.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(data.size());
}

int FakePeer::bytes_until_closed(std::chrono::milliseconds timeout)
{
    set_timeout(conn_fd_, timeout);
    char buf[256];
    int n = 0;
    errno = 0;
    for (ssize_t r; (r = recv(conn_fd_, buf, sizeof buf, 0)) > 0;)
        n += static_cast<int>(r);
    return errno == EAGAIN ? -1 : n;
}

void FakePeer::hang_up()
{
    if (conn_fd_ >= 0)
        close(std::exchange(conn_fd_, -1));
}

void FakePeer::reset()
{
    const linger abort{1, 0};
    setsockopt(conn_fd_, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);  // fails harmlessly without a connection
    hang_up();
}

std::string FakePeer::peer_address() const
{
    sockaddr_in in{};
    socklen_t len = sizeof in;
    char text[INET_ADDRSTRLEN] = "";
    if (getpeername(conn_fd_, reinterpret_cast<sockaddr*>(&in), &len) == 0)
        inet_ntop(AF_INET, &in.sin_addr, text, sizeof text);
    return text;
}

bool eventually(const std::function<bool()>& pred, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!pred() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(2ms);
    return pred();
}

void RemoteLinkTest::SetUp()
{
    if (const std::string why = enter_private_net(); !why.empty())
        GTEST_SKIP() << "no private network namespace (" << why << "): the link tests never use the real network";
    log_ = std::make_unique<LogCapture>(0);
    signal(SIGPIPE, SIG_IGN);  // a peer closing early must not end the test
    // A descriptor added to the monitor list is watched at once, not after
    // the pass's one-second select.
    ASSERT_EQ(pipe2(wake_, O_CLOEXEC | O_NONBLOCK), 0);
    add_monitor_handle(wake_[0], drain, reinterpret_cast<void*>(static_cast<intptr_t>(wake_[0])));
    wake_fd.store(wake_[1]);
    monitor_add_observer = wake_loop;
    loop_ = std::thread([this] {
        for (int max_fd = 0; !loop_stop_.load();)
            main_loop_pass(&max_fd);
    });
}

void RemoteLinkTest::TearDown()
{
    if (!loop_.joinable())
        return;
    for (const LogLine& line : HasFailure() ? log_->lines() : std::vector<LogLine>{})
        std::fputs(line.text.c_str(), stderr);
    link_threads_stop();  // each drops its link
    loop_stop_.store(true);
    wake_loop({});
    loop_.join();
    monitor_add_observer = nullptr;
    remove_monitor_handle(wake_[0]);
    close(wake_[0]);
    close(wake_[1]);
    gs_ipcType = 0;
    screen_model_reset();
    link_time_divisor.store(1);
}

}  // namespace testsupport
