#include "common/usb_gun/usblog.h"

#include <sys/time.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "common/root_path.h"

namespace {

constexpr std::size_t USBLOG_BUF_SIZE = 512;
constexpr std::size_t USBLOG_PATH_MAX = 256;

std::once_flag log_once;
std::array<char, USBLOG_PATH_MAX> log_path{};
// Guards log_file and the line buffer; serialises the lines of all threads.
std::mutex log_mutex;
FILE* log_file = nullptr;
char log_buf[USBLOG_BUF_SIZE];

}  // namespace

int usblog_init_log(const char* path)
{
    int rc = 0;
    std::call_once(log_once, [&] {
        std::snprintf(log_path.data(), log_path.size(), "%s", path != nullptr ? path : "");
        root_path_buf resolved;
        std::lock_guard<std::mutex> guard(log_mutex);
        log_file = std::fopen(resolve_path(log_path.data(), resolved), "a");
        if (log_file == nullptr)
            rc = -1;
    });
    return rc;
}

int usblog_log_write(const char* func, int line, const char* fmt, ...)
{
    std::lock_guard<std::mutex> guard(log_mutex);
    if (log_file == nullptr)
        return -1;
    timeval now{};
    gettimeofday(&now, nullptr);
    int len = std::snprintf(log_buf, sizeof log_buf, "[%ld.%ld][%s:%d] ", static_cast<long>(now.tv_sec),
                            static_cast<long>(now.tv_usec), func != nullptr ? func : "", line);
    if (len < 0)
        len = 0;
    if (static_cast<std::size_t>(len) < sizeof log_buf) {
        va_list ap;
        va_start(ap, fmt);
        std::vsnprintf(log_buf + len, sizeof log_buf - len, fmt, ap);
        va_end(ap);
    }
    std::fputs(log_buf, log_file);
    std::fflush(log_file);
    return 0;
}

void usblog_log_dumpdata(const uint8_t* data, int n)
{
    if (data == nullptr || n <= 0)
        return;
    const std::size_t size = 2 * static_cast<std::size_t>(n);
    char* text = static_cast<char*>(std::calloc(size, 1));
    if (text == nullptr)
        return;
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
        // The limit is one short of the room left, so the last byte never
        // makes it into the text: a 16-byte dump shows 15 bytes.
        std::snprintf(text + 2 * i, size - 2 * i - 1, "%02x", data[i]);
    }
    usblog_log_write(__func__, __LINE__, "[%03d]Data:%s\r\n", n, text);
    std::free(text);
}
