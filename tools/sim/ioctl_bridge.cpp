#include "sim/ioctl_bridge.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace emul {

namespace {

namespace fs = std::filesystem;

// The testbed's protocol commands (its preload's numbering).
enum : uint64_t {
    kReqIoctl = 1,
    kReqResult = 2,
    kResDone = 3,
    kResRun = 4,
    kResReadMem = 5,
    kResWriteMem = 6,
};

struct Message32 {
    uint32_t cmd, arg1, arg2;
};
static_assert(sizeof(Message32) == 12);
struct Message64 {
    uint64_t cmd, arg1, arg2;
};
static_assert(sizeof(Message64) == 24);

// Reads or sends all of len bytes; false when the connection ended.
bool transfer(int fd, void* buf, std::size_t len, bool sending)
{
    auto* p = static_cast<uint8_t*>(buf);
    while (len > 0) {
        const ssize_t n = sending ? send(fd, p, len, MSG_NOSIGNAL) : read(fd, p, len);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        p += n;
        len -= static_cast<std::size_t>(n);
    }
    return true;
}

bool read_all(int fd, void* buf, std::size_t len)
{
    return transfer(fd, buf, len, false);
}

bool write_all(int fd, const void* buf, std::size_t len)
{
    return transfer(fd, const_cast<void*>(buf), len, true);
}

// Copies len bytes from one socket to the other (a memory block).
bool pass(int from, int to, uint64_t len)
{
    uint8_t buf[4096];
    while (len > 0) {
        const std::size_t n = len < sizeof buf ? static_cast<std::size_t>(len) : sizeof buf;
        if (!read_all(from, buf, n) || !write_all(to, buf, n))
            return false;
        len -= n;
    }
    return true;
}

// One client's connection: requests from the target widened for the
// testbed, the testbed's answers and memory requests narrowed back, until
// either side closes.
void relay(int guest, int host)
{
    for (Message32 in; read_all(guest, &in, sizeof in);) {
        // A result travels as a signed int; addresses, sizes and request
        // numbers are unsigned.
        const uint64_t arg1 = in.cmd == kReqResult ? static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(in.arg1)))
                                                   : in.arg1;
        const Message64 out{in.cmd, arg1, in.arg2};
        if (!write_all(host, &out, sizeof out))
            return;
        // The testbed's side of this request, up to its result.
        for (bool done = false; !done;) {
            Message64 answer;
            if (!read_all(host, &answer, sizeof answer))
                return;
            const Message32 back{static_cast<uint32_t>(answer.cmd), static_cast<uint32_t>(answer.arg1),
                                 static_cast<uint32_t>(answer.arg2)};
            if (!write_all(guest, &back, sizeof back))
                return;
            switch (answer.cmd) {
            case kResReadMem:  // the target sends the block
                if (!pass(guest, host, answer.arg2))
                    return;
                break;
            case kResWriteMem:  // the testbed sends the block
                if (!pass(host, guest, answer.arg2))
                    return;
                break;
            case kResRun: {  // the target runs the call itself and reports
                Message32 result;
                if (!read_all(guest, &result, sizeof result))
                    return;
                const Message64 wide{result.cmd, static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(result.arg1))),
                                     result.arg2};
                if (!write_all(host, &wide, sizeof wide))
                    return;
                break;
            }
            case kResDone:
                done = true;
                break;
            default:  // an abort: the target ends itself
                return;
            }
        }
    }
}

int unix_socket(const std::string& path, bool listening)
{
    sockaddr_un addr{};
    if (path.size() >= sizeof addr.sun_path)
        return -1;
    addr.sun_family = AF_UNIX;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const auto* sa = reinterpret_cast<const sockaddr*>(&addr);
    const bool ok = listening ? bind(fd, sa, sizeof addr) == 0 && listen(fd, 16) == 0
                              : connect(fd, sa, sizeof addr) == 0;
    if (!ok) {
        close(fd);
        return -1;
    }
    return fd;
}

class View {
public:
    View(const std::string& testbed, const std::string& dir) : testbed_(testbed), dir_(dir)
    {
        if (pipe2(wake_, O_CLOEXEC) != 0)
            wake_[0] = wake_[1] = -1;
        thread_ = std::thread([this] { serve(); });
    }

    ~View()
    {
        {
            std::lock_guard<std::mutex> guard(mutex_);
            stopping_ = true;
            for (const auto& [guest, host] : open_)
                shutdown(guest, SHUT_RDWR), shutdown(host, SHUT_RDWR);
        }
        if (wake_[1] >= 0 && write(wake_[1], "x", 1) < 0) {
            // The poll ends on its time-out then.
        }
        thread_.join();
        for (std::thread& t : relays_)
            t.join();
        for (const Listener& l : listeners_)
            close(l.fd);
        for (int fd : wake_)
            if (fd >= 0)
                close(fd);
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }

    // Listens for devnode ("/dev/event3", "_default") in the view.
    void add(const std::string& devnode)
    {
        const std::string path = dir_ + "/ioctl/" + devnode;
        std::error_code ec;
        fs::create_directories(fs::path(path).parent_path(), ec);
        std::lock_guard<std::mutex> guard(mutex_);
        for (const Listener& l : pending_)
            if (l.devnode == devnode)
                return;
        for (const Listener& l : listeners_)
            if (l.devnode == devnode)
                return;
        fs::remove(path, ec);
        const int fd = unix_socket(path, true);
        if (fd >= 0)
            pending_.push_back({fd, devnode});
        if (write(wake_[1], "x", 1) < 0) {
            // The poll takes it on its next time-out.
        }
    }

private:
    struct Listener {
        int fd;
        std::string devnode;
    };

    void serve()
    {
        std::vector<std::thread> ended;
        for (;;) {
            {
                std::lock_guard<std::mutex> guard(mutex_);
                if (stopping_)
                    return;
                listeners_.insert(listeners_.end(), pending_.begin(), pending_.end());
                pending_.clear();
                // Relays whose connection ended (a node opened and closed
                // again for every plug-in) are joined as they go.
                for (const std::thread::id id : ended_)
                    for (auto it = relays_.begin(); it != relays_.end(); ++it)
                        if (it->get_id() == id) {
                            ended.push_back(std::move(*it));
                            relays_.erase(it);
                            break;
                        }
                ended_.clear();
            }
            for (std::thread& t : ended)
                t.join();
            ended.clear();
            std::vector<pollfd> fds = {{wake_[0], POLLIN, 0}};
            for (const Listener& l : listeners_)
                fds.push_back({l.fd, POLLIN, 0});
            if (poll(fds.data(), fds.size(), 1000) <= 0)
                continue;
            char drain[64];
            if ((fds[0].revents & POLLIN) != 0 && read(wake_[0], drain, sizeof drain) < 0) {
                // Nothing to drain.
            }
            for (std::size_t i = 1; i < fds.size(); ++i) {
                if ((fds[i].revents & POLLIN) == 0)
                    continue;
                const int guest = accept4(fds[i].fd, nullptr, nullptr, SOCK_CLOEXEC);
                if (guest < 0)
                    continue;
                const int host = unix_socket(testbed_ + "/ioctl/" + listeners_[i - 1].devnode, false);
                if (host < 0) {
                    close(guest);
                    continue;
                }
                std::lock_guard<std::mutex> guard(mutex_);
                open_.emplace(guest, host);
                relays_.emplace_back([this, guest, host] {
                    relay(guest, host);
                    std::lock_guard<std::mutex> closing(mutex_);
                    open_.erase(guest);
                    close(guest);
                    close(host);
                    ended_.push_back(std::this_thread::get_id());
                });
            }
        }
    }

    const std::string testbed_;
    const std::string dir_;
    int wake_[2] = {-1, -1};
    std::thread thread_;
    std::vector<Listener> listeners_;  // the serving thread's own
    std::mutex mutex_;  // guards relays_, ended_, pending_, open_ and stopping_
    std::vector<std::thread> relays_;
    std::vector<std::thread::id> ended_;  // relays that are about to return
    std::vector<Listener> pending_;
    std::map<int, int> open_;  // guest socket -> testbed socket, of running relays
    bool stopping_ = false;
};

std::mutex g_views_mutex;  // guards g_views
std::map<std::string, std::unique_ptr<View>> g_views;

// The ioctl sockets the testbed serves now, as device paths.
std::vector<std::string> served(const std::string& testbed)
{
    std::vector<std::string> out;
    const fs::path root = fs::path(testbed) / "ioctl";
    std::error_code ec;
    for (auto it = fs::recursive_directory_iterator(root, ec); !ec && it != fs::recursive_directory_iterator();
         it.increment(ec))
        if (it->is_socket(ec))
            out.push_back(fs::relative(it->path(), root, ec).string());
    for (std::string& d : out)
        if (d != "_default")
            d = "/" + d;
    return out;
}

}  // namespace

std::string target_view(const std::string& testbed_dir)
{
    std::lock_guard<std::mutex> guard(g_views_mutex);
    const std::string dir = testbed_dir + ".target";
    auto it = g_views.find(testbed_dir);
    if (it != g_views.end())
        return dir;
    std::error_code ec;
    fs::remove_all(dir, ec);
    if (!fs::create_directories(dir + "/ioctl", ec))
        return {};
    // Everything but the sockets is the testbed's own, also what it adds later.
    for (const char* entry : {"dev", "sys", "proc", "run", "bus", "class"})
        fs::create_directory_symlink(testbed_dir + "/" + entry, dir + "/" + entry, ec);
    for (const auto& e : fs::directory_iterator(testbed_dir, ec))
        if (e.path().filename() != "ioctl" && !fs::exists(dir + "/" + e.path().filename().string()))
            fs::create_symlink(e.path(), dir + "/" + e.path().filename().string(), ec);
    auto view = std::make_unique<View>(testbed_dir, dir);
    for (const std::string& devnode : served(testbed_dir))
        view->add(devnode);
    g_views.emplace(testbed_dir, std::move(view));
    return dir;
}

void bridge_ioctl(const std::string& testbed_dir, const std::string& devnode)
{
    std::lock_guard<std::mutex> guard(g_views_mutex);
    auto it = g_views.find(testbed_dir);
    if (it != g_views.end())
        it->second->add(devnode);
}

void drop_target_view(const std::string& testbed_dir)
{
    std::unique_ptr<View> gone;
    {
        std::lock_guard<std::mutex> guard(g_views_mutex);
        auto it = g_views.find(testbed_dir);
        if (it == g_views.end())
            return;
        gone = std::move(it->second);
        g_views.erase(it);
    }
}

}  // namespace emul
