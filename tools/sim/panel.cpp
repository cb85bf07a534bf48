#include "sim/panel.h"

#include <linux/input.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <utility>
#include <vector>

#include "client/record_text.h"
#include "common/usb_gun/usbscangun_manger.h"
#include "sim/input_listing.h"
#include "tactorctl/ctl.h"

namespace emul {
namespace {

using namespace std::chrono_literals;

// A kernel evdev node delivers whole records; an emulated one is a byte
// stream, so large writes are cut into plays of at most this many records.
constexpr std::size_t kRecordsPerWrite = 10;
// Node numbers the daemon's hot-plug monitor looks at.
constexpr int kNodes = 16;

// A keyboard-wedge barcode scanner behind a hub on the keyboard's port: to
// the daemon a keyboard of the main screen until a scanner client declares
// it a scanner by its name.
BoardDevice wedge_scanner()
{
    TestDevice dev = devices::full_keyboard().on("usb-musb-hdrc.1-1.1.2/input0");
    dev.name = "Barcode Scanner";
    dev.ev = {EV_SYN, EV_KEY, EV_REP};
    return {"scanner", "USB keyboard-wedge barcode scanner behind the keyboard's hub (scan TEXT)", dev};
}

std::vector<std::string> split_words(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string w; in >> w;)
        out.push_back(w);
    return out;
}

// The events of one write, in words: "REL_X 300, SYN_REPORT".
std::string frame_text(const std::vector<tactord::input_event>& events)
{
    std::string text;
    for (const auto& ev : events) {
        std::string one = tools::describe_event(ev);
        // The type is clear from the code's name.
        if (const std::size_t blank = one.find(' '); blank != std::string::npos && one.rfind("EV_", 0) == 0)
            one = one.substr(blank + 1);
        text += (text.empty() ? "" : ", ") + one;
    }
    return text;
}

}  // namespace

Panel::Panel(Transcript& transcript, PanelOptions options) : transcript_(transcript), options_(std::move(options)) {}

Panel::~Panel()
{
    stop_.store(true);
    flooding_.store(false);
    if (flood_.joinable())
        flood_.join();
    if (watcher_.joinable())
        watcher_.join();
    for (const pid_t pid : clients_)
        kill(pid, SIGTERM);
    for (std::thread& t : readers_)
        t.join();
    daemon_.reset();
    dev_mod_cfg_.reset();
    fb_.reset();
    bed_.reset();
}

bool Panel::start(std::string& error)
{
    namespace fs = std::filesystem;
    std::error_code ec;
    if (access(options_.events_binary.c_str(), X_OK) != 0) {
        error = "cannot run the display client " + options_.events_binary;
        return false;
    }
    for (const char* dir : {"/var/log", "/tmp", "/proc/bus/input", "/work"})
        fs::create_directories(options_.root + dir, ec);
    fs::copy_file(options_.port_conf, options_.root + "/work/port.conf", fs::copy_options::overwrite_existing, ec);
    if (ec) {
        error = "cannot copy " + options_.port_conf + ": " + ec.message();
        return false;
    }
    // The board's touch controller identifies itself (2151: a 12-bit panel).
    std::FILE* id = options_.touch_controller.empty() ? nullptr
                                                      : std::fopen((options_.root + "/proc/atmel_product").c_str(), "w");
    if (id != nullptr) {
        std::fputs(options_.touch_controller.c_str(), id);
        std::fclose(id);
    }
    setenv("TACTORD_ROOT", options_.root.c_str(), 1);

    bed_ = std::make_unique<EvdevTestbed>();
    fb_ = std::make_unique<FramebufferEmulator>(bed_->testbed(), kBoardWidth, kBoardHeight);
    dev_mod_cfg_ = std::make_unique<DevModCfgEmulator>(bed_->testbed());
    for (const BoardDevice& b : board())
        devices_.push_back({b.name, b.what, b.dev});
    const BoardDevice scanner = wedge_scanner();
    devices_.push_back({scanner.name, scanner.what, scanner.dev});
    write_listing();
    if (!bed_->add_acm(kCdcPort)) {
        error = std::string("cannot emulate ") + kCdcNode;
        return false;
    }
    // The scanner service's log, shown as it grows: what a scanner client
    // makes the service do.
    fs::remove(options_.root + SCANNER_LOG_PATH, ec);

    Launch launch;
    launch.umockdev_preload = true;
    launch.log_path = options_.root + "/tactord.log";
    fs::remove(launch.log_path, ec);  // a sandbox used before keeps the last run's log only until now
    daemon_ = std::make_unique<DaemonProcess>(options_.root + "/work", split_words(options_.daemon_args), launch);
    // Without the preload the daemon would read this machine's own devices:
    // the loader's complaint comes before the daemon's banner.
    if (!daemon_->started() || !daemon_->wait_for("Build time ", 0, 10s) ||
        daemon_->count("cannot be preloaded") > 0) {
        daemon_.reset();
        error = "cannot start " + launch.binary + " under the umockdev preload (is the umockdev package installed?)";
        return false;
    }
    transcript_.line("sim", "--",
                     "tactord " + options_.daemon_args + " started in " + options_.root + " (its log: " +
                         launch.log_path + ")");
    for (const int screen : options_.client_screens)
        if (!start_client(screen, error))
            return false;
    watcher_ = std::thread([this] { watch_devices(); });
    for (const BoardDevice& b : board())
        if (!plug(b.name, error))
            return false;
    return plug(scanner.name, error);
}

bool Panel::daemon_alive()
{
    return daemon_ && daemon_->alive();
}

bool Panel::start_client(int screen, std::string& error)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        error = std::string("pipe: ") + std::strerror(errno);
        return false;
    }
    const std::size_t since = transcript_.mark();
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        dup2(fds[1], STDOUT_FILENO);
        dup2(fds[1], STDERR_FILENO);
        const std::string n = std::to_string(screen);
        execl(options_.events_binary.c_str(), options_.events_binary.c_str(), "--screen", n.c_str(), "--wait", "10",
              static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    if (pid < 0) {
        close(fds[0]);
        error = std::string("fork: ") + std::strerror(errno);
        return false;
    }
    clients_.push_back(pid);
    readers_.emplace_back([this, screen, pid, fd = fds[0]] { read_client(screen, pid, fd); });
    // The client's first line is the answer that shows it is registered.
    if (!transcript_.wait_for("screen " + std::to_string(screen), "reply TYPE_MODE_GET", since, 15s)) {
        error = "the display client of screen " + std::to_string(screen) + " did not register";
        return false;
    }
    // Ending it frees the screen for a client of one's own.
    transcript_.line("sim", "--",
                     "display client of screen " + std::to_string(screen) + " (tactord-events, pid " +
                         std::to_string(pid) + ")");
    return true;
}

void Panel::read_client(int screen, pid_t pid, int fd)
{
    const std::string source = "screen " + std::to_string(screen);
    std::string pending;
    char buf[1024];
    for (;;) {
        const ssize_t n = read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        pending.append(buf, static_cast<std::size_t>(n));
        for (std::size_t nl; (nl = pending.find('\n')) != std::string::npos; pending.erase(0, nl + 1))
            transcript_.line(source, "<<", pending.substr(0, nl));
    }
    close(fd);
    int status = 0;
    waitpid(pid, &status, 0);
    if (stop_.load())
        return;
    const std::string how = WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                              : "signal " + std::to_string(WTERMSIG(status));
    transcript_.line("sim", "--",
                     "the display client of " + source + " ended (" + how + "): the screen is free for another client");
}

void Panel::watch_devices()
{
    // What the daemon writes to a device (LED states to keyboards) arrives
    // on the node's other end, in the host kernel's record layout.
    while (!stop_.load()) {
        std::vector<pollfd> fds;
        std::vector<std::string> names;
        {
            std::lock_guard<std::mutex> guard(mutex_);
            for (const Device& d : devices_)
                if (d.fd >= 0) {
                    fds.push_back({d.fd, POLLIN, 0});
                    names.push_back(d.name);
                }
        }
        follow_scan_log();
        if (fds.empty() || poll(fds.data(), fds.size(), 50) <= 0) {
            usleep(50000);
            continue;
        }
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if ((fds[i].revents & POLLIN) == 0) {
                // A node nobody has open reports a hang-up: nothing to read.
                continue;
            }
            uint8_t raw[16 * sizeof(::input_event)];
            std::lock_guard<std::mutex> guard(mutex_);
            const ssize_t n = read(fds[i].fd, raw, sizeof raw);
            for (tactord::input_event ev : bed_->decode(raw, n > 0 ? static_cast<std::size_t>(n) : 0)) {
                ev.tv_sec = ev.tv_usec = 0;
                transcript_.line(names[i], "<<", tools::describe_event(ev));
            }
        }
        usleep(20000);
    }
}

void Panel::follow_scan_log()
{
    std::FILE* f = std::fopen((options_.root + SCANNER_LOG_PATH).c_str(), "rb");
    if (f == nullptr)
        return;
    char buf[4096];
    std::string fresh;
    if (std::fseek(f, static_cast<long>(scan_log_read_), SEEK_SET) == 0)
        for (std::size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;)
            fresh.append(buf, n);
    std::fclose(f);
    scan_log_read_ += fresh.size();
    scan_log_partial_ += fresh;
    for (std::size_t nl; (nl = scan_log_partial_.find('\n')) != std::string::npos; scan_log_partial_.erase(0, nl + 1)) {
        // "[seconds.microseconds][function:line] message\r\n": the messages.
        // A message without its own line end (a hex dump cut to the line's
        // size) runs on into the next one's prefix: each prefix starts a
        // message of its own. Hex dumps of records ("[016]Data:...") are
        // left out.
        std::string text = scan_log_partial_.substr(0, nl);
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        static const std::regex prefix(R"(\[[0-9]+\.[0-9]+\]\[[^\]]*\] )");
        std::vector<std::pair<std::size_t, std::size_t>> starts;  // prefix position, message position
        for (auto it = std::sregex_iterator(text.begin(), text.end(), prefix); it != std::sregex_iterator(); ++it)
            starts.emplace_back(it->position(), it->position() + it->length());
        if (starts.empty())
            starts.emplace_back(0, 0);
        for (std::size_t i = 0; i < starts.size(); ++i) {
            const std::size_t stop = i + 1 < starts.size() ? starts[i + 1].first : text.size();
            std::string message = text.substr(starts[i].second, stop - starts[i].second);
            while (!message.empty() && (message.back() == '\r' || message.back() == '\n'))
                message.pop_back();
            if (!message.empty() && message.find("]Data:") == std::string::npos)
                transcript_.line("scan-service", "--", message);
        }
    }
}

std::vector<Panel::Device> Panel::devices() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return devices_;
}

std::optional<Panel::Device> Panel::find(const std::string& name) const
{
    std::lock_guard<std::mutex> guard(mutex_);
    for (const Device& d : devices_)
        if (d.name == name)
            return d;
    return std::nullopt;
}

Panel::Device* Panel::lookup(const std::string& name)
{
    for (Device& d : devices_)
        if (d.name == name)
            return &d;
    return nullptr;
}

bool Panel::add_device(const std::string& name, const std::string& what, const TestDevice& dev, std::string& error,
                       NodeOptions options)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (lookup(name) != nullptr) {
        error = "there is already a device called " + name;
        return false;
    }
    devices_.push_back({name, what, dev, -1, -1, options});
    return true;
}

bool Panel::plug(const std::string& name, std::string& error)
{
    int node = -1;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        Device* d = lookup(name);
        if (d == nullptr) {
            error = "no device called " + name;
            return false;
        }
        if (d->node >= 0) {
            error = name + " is plugged in already";
            return false;
        }
        // The emulation keeps the other end of an unplugged node, so each
        // node number serves once per run.
        if (next_node_ >= kNodes) {
            error = "no event node left: the emulation uses each of /dev/event0..15 once per run";
            return false;
        }
        node = next_node_++;
        if (!bed_->add(node, d->dev, d->options)) {
            error = "cannot emulate /dev/event" + std::to_string(node);
            return false;
        }
        d->node = node;
        d->fd = umockdev_testbed_get_dev_fd(bed_->testbed(), ("/dev/event" + std::to_string(node)).c_str());
        write_listing();
        transcript_.line(name, "--", "plugged in as /dev/event" + std::to_string(node) + ": " + d->what);
    }
    // The hot-plug monitor looks every 200 ms; the classification line says
    // the daemon has the device (or could not identify it).
    const std::string devnode = "/dev/event" + std::to_string(node);
    const char* const unknown = "This is not a USB device or type is not identified";
    const int unknown_before = daemon_->count(unknown);
    bool seen = false;
    for (int i = 0; i < 50 && !seen; ++i) {
        seen = daemon_->count(devnode + " is ") > 0 || daemon_->count(unknown) > unknown_before;
        if (!seen)
            std::this_thread::sleep_for(100ms);
    }
    if (!seen) {
        error = "tactord did not report " + devnode + " (see its log)";
        return false;
    }
    std::this_thread::sleep_for(200ms);  // registration follows the classification line
    return true;
}

bool Panel::unplug(const std::string& name, std::string& error)
{
    std::string devnode;
    {
        std::lock_guard<std::mutex> guard(mutex_);
        Device* d = lookup(name);
        if (d == nullptr || d->node < 0) {
            error = d == nullptr ? "no device called " + name : name + " is not plugged in";
            return false;
        }
        devnode = "/dev/event" + std::to_string(d->node);
        bed_->remove(d->node);
        d->node = -1;
        d->fd = -1;
        write_listing();
        transcript_.line(name, "--", "unplugged (" + devnode + " gone)");
    }
    if (!daemon_->wait_for(devnode + " fail to connect!", 0, 10s)) {
        error = "tactord did not notice that " + devnode + " went";
        return false;
    }
    return true;
}

bool Panel::play(const std::string& name, const std::vector<tactord::input_event>& events, std::string& error,
                 const std::string& summary)
{
    std::lock_guard<std::mutex> guard(mutex_);
    Device* d = lookup(name);
    if (d == nullptr || d->node < 0) {
        error = d == nullptr ? "no device called " + name : name + " is not plugged in";
        return false;
    }
    timeval now{};
    gettimeofday(&now, nullptr);
    for (std::size_t at = 0; at < events.size(); at += kRecordsPerWrite) {
        std::vector<tactord::input_event> chunk(events.begin() + static_cast<std::ptrdiff_t>(at),
                                                events.begin() + static_cast<std::ptrdiff_t>(
                                                                     std::min(events.size(), at + kRecordsPerWrite)));
        for (auto& ev : chunk) {
            ev.tv_sec = static_cast<int32_t>(now.tv_sec);
            ev.tv_usec = static_cast<int32_t>(now.tv_usec);
        }
        if (!bed_->play(d->node, chunk)) {
            error = "cannot write into " + name;
            return false;
        }
    }
    transcript_.line(name, ">>", summary.empty() ? frame_text(events) : summary);
    return true;
}

bool Panel::play_raw(const std::string& name, const std::string& bytes, std::string& error)
{
    std::lock_guard<std::mutex> guard(mutex_);
    Device* d = lookup(name);
    if (d == nullptr || d->node < 0) {
        error = d == nullptr ? "no device called " + name : name + " is not plugged in";
        return false;
    }
    if (!bed_->write_raw(d->node, bytes.data(), bytes.size())) {
        error = "cannot write into " + name;
        return false;
    }
    transcript_.line(name, ">>", std::to_string(bytes.size()) + " raw bytes");
    return true;
}

bool Panel::set_driver_lock(int screen, bool locked)
{
    if (!dev_mod_cfg_ || screen < 0 || screen >= TS_SCREEN_COUNT)
        return false;
    dev_mod_cfg_t record = dev_mod_cfg_->state(screen);
    record.status = locked ? 0 : 1;
    dev_mod_cfg_->set_state(screen, record);
    transcript_.line("sim", "--", "the touch driver reports screen " + std::to_string(screen) +
                                      (locked ? " locked" : " unlocked"));
    return true;
}

bool Panel::flood(int signal, bool on, std::string& error)
{
    if (on == flooding_.load()) {
        error = on ? "a flood runs already" : "no flood runs";
        return false;
    }
    flooding_.store(on);
    if (!on) {
        flood_.join();
    } else {
        const pid_t pid = daemon_->pid();
        flood_ = std::thread([this, pid, signal] {
            while (flooding_.load()) {
                kill(pid, signal);
                usleep(100);
            }
        });
    }
    transcript_.line("sim", "--", std::string(on ? "flooding tactord with SIG" : "no more SIG") + sigabbrev_np(signal) +
                                      (on ? " every 0.1 ms" : ""));
    return true;
}

std::size_t Panel::log_mark() const
{
    return daemon_ ? daemon_->mark() : 0;
}

bool Panel::log_wait(const std::string& text, std::size_t since, std::chrono::milliseconds timeout) const
{
    return daemon_ && daemon_->wait_for(text, since, timeout);
}

std::string Panel::log_since(std::size_t since) const
{
    const std::string all = daemon_ ? daemon_->output() : std::string();
    return since < all.size() ? all.substr(since) : std::string();
}

void Panel::write_listing()
{
    // The input devices' sysfs directories, to name each node's.
    gchar* root = umockdev_testbed_get_root_dir(bed_->testbed());
    const std::string sys = std::string(root) + "/sys";
    const std::string inputs = sys + "/devices/platform/test/input";
    g_free(root);
    std::vector<ListedNode> nodes;
    for (const Device& d : devices_) {
        if (d.node < 0)
            continue;
        ListedNode n{d.dev, d.node, "/devices/virtual/input/event" + std::to_string(d.node)};
        std::error_code ec;
        for (const auto& entry : std::filesystem::directory_iterator(inputs, ec))
            if (std::filesystem::exists(entry.path() / ("event" + std::to_string(d.node)), ec))
                n.sysfs = entry.path().string().substr(sys.size());
        nodes.push_back(std::move(n));
    }
    std::sort(nodes.begin(), nodes.end(), [](const ListedNode& a, const ListedNode& b) { return a.node < b.node; });
    // Replaced in one step: a reader sees the old listing or the new one.
    const std::string path = options_.root + "/proc/bus/input/devices";
    if (std::FILE* f = std::fopen((path + ".new").c_str(), "w")) {
        const std::string text = input_devices_text(nodes);
        const bool written = std::fwrite(text.data(), 1, text.size(), f) == text.size();
        if (std::fclose(f) == 0 && written)
            std::rename((path + ".new").c_str(), path.c_str());
    }
}

bool Panel::cdc_scan(const std::string& bytes, bool& lost, std::string& error)
{
    // The service's CDC reader logs the port as plugged in once it holds it
    // open; bytes that come before are flushed when it opens the port.
    const std::string port = kCdcNode;
    std::ifstream log(options_.root + SCANNER_LOG_PATH, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
    const auto times = [&text](const std::string& what) {
        int n = 0;
        for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
            ++n;
        return n;
    };
    lost = times("ScanGun " + port + " is plugin") <= times("ScanGun " + port + " is plugout");
    std::lock_guard<std::mutex> guard(mutex_);
    if (!bed_->write_acm(kCdcPort, bytes.data(), bytes.size())) {
        error = "cannot write into " + port;
        return false;
    }
    std::string shown;
    for (const char c : bytes)
        shown += c == '\r' ? std::string("\\r") : std::string(1, c);
    transcript_.line("cdc-scanner", ">>", port + ": " + shown);
    return true;
}

bool Panel::snapshot(const std::string& png_path, std::string& error) const
{
    return fb_ != nullptr && fb_->snapshot(png_path, error);
}

int Panel::ctl(const std::vector<std::string>& args)
{
    std::string line;
    for (const std::string& a : args)
        line += " " + a;
    transcript_.line("tactorctl", "$", line.substr(line.empty() ? 0 : 1));
    // Temporary files rather than memory streams: this program runs under
    // the umockdev preload, whose fclose() goes straight to the C library,
    // and a memory stream closed past the thread sanitizer's interceptor
    // leaves it stale bookkeeping that stops a later one.
    std::FILE* out = std::tmpfile();
    std::FILE* err = std::tmpfile();
    int status = tools::kExitFailed;
    if (out != nullptr && err != nullptr)
        status = tools::tactorctl_run(args, out, err);
    for (std::FILE* f : {out, err}) {
        if (f == nullptr)
            continue;
        std::rewind(f);
        char* text = nullptr;
        std::size_t cap = 0;
        for (ssize_t n; (n = getline(&text, &cap, f)) > 0;)
            transcript_.line("tactorctl", f == err ? "!!" : "--",
                             std::string(text, static_cast<std::size_t>(text[n - 1] == '\n' ? n - 1 : n)));
        std::free(text);
        std::fclose(f);
    }
    return status;
}

}  // namespace emul
