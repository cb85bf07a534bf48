#include "daemon_run.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace benchrun {

Sandbox::Sandbox()
{
    char tmpl[] = "/tmp/tactord-bench.XXXXXX";
    if (mkdtemp(tmpl) == nullptr)
        return;
    path_ = tmpl;
    std::error_code ec;
    for (const char* dir : {"/var/log", "/tmp", "/proc"})
        std::filesystem::create_directories(path_ + dir, ec);
    std::filesystem::copy_file(TACTORD_SOURCE_DIR "/etc/port.conf", path_ + "/port.conf", ec);
    if (ec)
        path_.clear();
}

Sandbox::~Sandbox()
{
    std::error_code ec;
    if (!path_.empty())
        std::filesystem::remove_all(path_, ec);
}

Daemon::Daemon(const DaemonCommand& cmd, const Sandbox& box,
               const std::vector<std::pair<std::string, std::string>>& extra_env)
{
    // Everything the child needs is built before fork: the parent may have
    // threads (the umockdev worker), so the child only calls what is safe
    // between fork and exec.
    std::vector<std::string> words = cmd.emulator;
    // The child changes into the sandbox: a relative path is taken from here.
    std::error_code ec;
    const bool relative = cmd.binary.find('/') != std::string::npos && cmd.binary[0] != '/';
    words.push_back(relative ? std::filesystem::absolute(cmd.binary, ec).string() : cmd.binary);
    words.insert(words.end(), cmd.args.begin(), cmd.args.end());
    std::vector<char*> argv;
    for (auto& w : words)
        argv.push_back(w.data());
    argv.push_back(nullptr);

    std::vector<std::pair<std::string, std::string>> set = extra_env;
    set.emplace_back("TACTORD_ROOT", box.path());
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e) {
        const std::string entry = *e;
        bool replaced = false;
        for (const auto& [name, value] : set)
            replaced = replaced || entry.rfind(name + "=", 0) == 0;
        if (!replaced)
            env.push_back(entry);
    }
    for (const auto& [name, value] : set)
        env.push_back(name + "=" + value);
    std::vector<char*> envp;
    for (auto& e : env)
        envp.push_back(e.data());
    envp.push_back(nullptr);
    const std::string dir = box.path();

    started_at_ = std::chrono::steady_clock::now();
    pid_ = fork();
    if (pid_ == 0) {
        const int null_fd = open("/dev/null", O_RDWR);
        if (null_fd >= 0) {
            dup2(null_fd, STDIN_FILENO);
            dup2(null_fd, STDOUT_FILENO);
            dup2(null_fd, STDERR_FILENO);
        }
        if (chdir(dir.c_str()) == 0)
            execvpe(argv[0], argv.data(), envp.data());
        _exit(127);
    }
}

Daemon::~Daemon()
{
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

int connect_control(const std::string& path)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path)
        return -1;
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0)
        return fd;
    if (fd >= 0)
        close(fd);
    return -1;
}

bool Daemon::wait_accepting(const std::string& socket_path, std::chrono::milliseconds timeout,
                            std::chrono::steady_clock::time_point* when) const
{
    if (pid_ <= 0)
        return false;
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        const int fd = connect_control(socket_path);
        const auto now = std::chrono::steady_clock::now();
        const bool accepted = fd >= 0;
        if (accepted)
            close(fd);
        if (accepted) {
            if (when != nullptr)
                *when = now;
            return true;
        }
        if (waitpid(pid_, nullptr, WNOHANG) != 0)
            return false;  // the daemon ended (or is not ours)
        std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return false;
}

long cpu_ticks(pid_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(in, line))
        return -1;
    // The command name may hold blanks and parentheses: fields are counted
    // from the last ')'. utime and stime are fields 14 and 15, the 12th and
    // 13th after it.
    const auto close_paren = line.rfind(')');
    if (close_paren == std::string::npos)
        return -1;
    std::istringstream rest(line.substr(close_paren + 1));
    std::string field;
    long utime = -1;
    long stime = -1;
    for (int i = 3; i <= 15 && rest >> field; ++i) {
        if (i == 14)
            utime = std::strtol(field.c_str(), nullptr, 10);
        if (i == 15)
            stime = std::strtol(field.c_str(), nullptr, 10);
    }
    return utime < 0 || stime < 0 ? -1 : utime + stime;
}

IdleCpu measure_idle(pid_t pid, std::chrono::seconds stretch)
{
    IdleCpu r;
    const long before = cpu_ticks(pid);
    const long long before_ns = cpu_ns(pid);
    const auto t0 = std::chrono::steady_clock::now();
    std::this_thread::sleep_for(stretch);
    const long after = cpu_ticks(pid);
    const long long after_ns = cpu_ns(pid);
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    if (before < 0 || after < 0)
        return r;
    r.ok = true;
    r.ticks = after - before;
    r.percent = 100.0 * static_cast<double>(r.ticks) / static_cast<double>(sysconf(_SC_CLK_TCK)) / r.seconds;
    // Threads that ended meanwhile are missing from the second sum.
    r.percent_schedstat = 100.0 * static_cast<double>(std::max(after_ns - before_ns, 0LL)) / 1e9 / r.seconds;
    return r;
}

long long cpu_ns(pid_t pid)
{
    std::error_code ec;
    long long total = -1;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task", ec)) {
        std::ifstream in(task.path() / "schedstat");
        long long ns = 0;
        if (in >> ns)
            total = (total < 0 ? 0 : total) + ns;
    }
    return total;
}

long status_kib(pid_t pid, const char* field)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    const std::string key = std::string(field) + ":";
    for (std::string line; std::getline(in, line);)
        if (line.rfind(key, 0) == 0)
            return std::strtol(line.c_str() + key.size(), nullptr, 10);
    return -1;
}

std::string take_option(int* argc, char** argv, const std::string& name, const std::string& fallback)
{
    const std::string prefix = "--" + name + "=";
    std::string value = fallback;
    int out = 1;
    for (int i = 1; i < *argc; ++i) {
        if (std::strncmp(argv[i], prefix.c_str(), prefix.size()) == 0)
            value = argv[i] + prefix.size();
        else
            argv[out++] = argv[i];
    }
    *argc = out;
    argv[out] = nullptr;
    return value;
}

std::vector<std::string> split_words(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string w; in >> w;)
        words.push_back(w);
    return words;
}

benchmark::internal::Benchmark* once_in_seconds(benchmark::internal::Benchmark* b)
{
    return b->Iterations(1)->UseManualTime()->Unit(benchmark::kSecond);
}

int run_registered()
{
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace benchrun
