#include "common/usb_gun/usblog.h"

#include <sys/time.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/root_path.h"

bool ServiceLog::open(const char* path)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (file_ != nullptr)
        return true;
    std::snprintf(path_.data(), path_.size(), "%s", path != nullptr ? path : "");
    root_path_buf resolved;
    file_ = std::fopen(resolve_path(path_.data(), resolved), "a");
    return file_ != nullptr;
}

bool ServiceLog::is_open()
{
    std::lock_guard<std::mutex> guard(mutex_);
    return file_ != nullptr;
}

int ServiceLog::vwrite(const char* func, int line, const char* fmt, va_list ap)
{
    std::lock_guard<std::mutex> guard(mutex_);
    if (file_ == nullptr)
        return -1;
    timeval now{};
    gettimeofday(&now, nullptr);
    int len = std::snprintf(line_, sizeof line_, "[%ld.%ld][%s:%d] ", static_cast<long>(now.tv_sec),
                            static_cast<long>(now.tv_usec), func != nullptr ? func : "", line);
    if (len < 0)
        len = 0;
    if (static_cast<std::size_t>(len) < sizeof line_)
        std::vsnprintf(line_ + len, sizeof line_ - len, fmt, ap);
    std::fputs(line_, file_);
    std::fflush(file_);
    return 0;
}

int ServiceLog::write(const char* func, int line, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int rc = vwrite(func, line, fmt, ap);
    va_end(ap);
    return rc;
}

void ServiceLog::dump(const char* func, int line, const uint8_t* data, int n)
{
    if (data == nullptr || n <= 0 || !is_open())
        return;  // nothing to format for a log that is not open
    const std::size_t size = 2 * static_cast<std::size_t>(n);
    std::unique_ptr<char[]> text(new (std::nothrow) char[size]());
    if (text == nullptr)
        return;
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
        // The limit is one short of the room left, so the last byte never
        // makes it into the text: a 16-byte dump shows 15 bytes.
        std::snprintf(text.get() + 2 * i, size - 2 * i - 1, "%02x", data[i]);
    }
    write(func, line, "[%03d]Data:%s\r\n", n, text.get());
}

namespace {
ServiceLog scan_log;
std::once_flag scan_log_once;
}  // namespace

int usblog_init_log(const char* path)
{
    int rc = 0;
    std::call_once(scan_log_once, [&] { rc = scan_log.open(path) ? 0 : -1; });
    return rc;
}

int usblog_log_write(const char* func, int line, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int rc = scan_log.vwrite(func, line, fmt, ap);
    va_end(ap);
    return rc;
}

void usblog_log_dumpdata(const uint8_t* data, int n)
{
    scan_log.dump(__func__, __LINE__, data, n);
}
