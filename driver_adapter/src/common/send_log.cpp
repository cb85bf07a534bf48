#include "common/send_log.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include "common/send_log_internal.h"

namespace {

// Owns the logger's socket for the life of the process.
class udp_socket {
public:
    udp_socket() = default;
    ~udp_socket()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    udp_socket(const udp_socket&) = delete;
    udp_socket& operator=(const udp_socket&) = delete;

    bool open()
    {
        fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        return fd_ >= 0;
    }
    bool is_open() const { return fd_ >= 0; }
    int fd() const { return fd_; }

private:
    int fd_ = -1;
};

std::mutex g_log_lock;  // guards g_log_sock, g_log_dest and g_log_buf
udp_socket g_log_sock;
sockaddr_in g_log_dest{};
// Level byte, text, terminating zero.
std::array<char, 1 + SEND_LOG_TEXT_MAX + 1> g_log_buf{};

std::atomic<send_log_sink> g_log_sink{nullptr};

}  // namespace

void send_log_set_sink(send_log_sink sink)
{
    g_log_sink.store(sink, std::memory_order_relaxed);
}

void send_log(int level, const char* format, ...)
{
    if (format == nullptr)
        return;
    std::lock_guard<std::mutex> guard(g_log_lock);

    const send_log_sink sink = g_log_sink.load(std::memory_order_relaxed);
    if (sink == nullptr && !g_log_sock.is_open()) {
        // Created on first use; when that fails the message is dropped and
        // the next one tries again.
        if (!g_log_sock.open())
            return;
        g_log_dest.sin_family = AF_INET;
        g_log_dest.sin_port = htons(SEND_LOG_PORT);
        inet_pton(AF_INET, SEND_LOG_ADDR, &g_log_dest.sin_addr);
    }

    g_log_buf[0] = static_cast<char>(level);
    va_list ap;
    va_start(ap, format);
    const int n = std::vsnprintf(g_log_buf.data() + 1, g_log_buf.size() - 1, format, ap);
    va_end(ap);
    if (n < 0)
        return;
    const std::size_t text_len = std::strlen(g_log_buf.data() + 1);

    if (sink != nullptr) {
        sink(level, g_log_buf.data() + 1);
        return;
    }
    sendto(g_log_sock.fd(), g_log_buf.data(), 1 + text_len + 1, MSG_DONTWAIT,
           reinterpret_cast<const sockaddr*>(&g_log_dest), sizeof(g_log_dest));
}
