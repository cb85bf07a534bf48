#include "support/log_capture.h"

#include <mutex>
#include <thread>

#include "common/log_internal.h"

namespace testsupport {
namespace {

std::mutex captured_lock;  // guards captured
std::vector<LogLine> captured;

void capture_sink(int priority, const char* line)
{
    std::lock_guard<std::mutex> guard(captured_lock);
    captured.push_back({priority, line});
}

}  // namespace

LogCapture::LogCapture(int threshold)
    : saved_level_(gs_log_level), saved_place_(gs_log_place), saved_sink_(log_syslog_sink)
{
    std::lock_guard<std::mutex> guard(captured_lock);
    captured.clear();
    gs_log_level = threshold;
    gs_log_place = 2;
    log_syslog_sink = capture_sink;
}

LogCapture::~LogCapture()
{
    log_syslog_sink = saved_sink_;
    gs_log_level = saved_level_;
    gs_log_place = saved_place_;
    std::lock_guard<std::mutex> guard(captured_lock);
    captured.clear();
}

std::vector<LogLine> LogCapture::lines() const
{
    std::lock_guard<std::mutex> guard(captured_lock);
    return captured;
}

int LogCapture::count(const std::string& message) const
{
    int n = 0;
    for (const auto& line : lines())
        n += line.text.ends_with(message);
    return n;
}

bool LogCapture::wait_for(const std::string& message, int times, std::chrono::milliseconds timeout) const
{
    for (auto end = std::chrono::steady_clock::now() + timeout; count(message) < times;) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

}  // namespace testsupport
