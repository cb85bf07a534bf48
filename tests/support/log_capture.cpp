#include "support/log_capture.h"

#include <syslog.h>

#include "common/log_internal.h"

namespace testsupport {
namespace {

std::vector<LogLine> captured;

void capture_sink(int priority, const char* line)
{
    captured.push_back({priority, line});
}

}  // namespace

LogCapture::LogCapture(int threshold)
    : saved_level_(gs_log_level), saved_place_(gs_log_place), saved_sink_(log_syslog_sink)
{
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
    captured.clear();
}

const std::vector<LogLine>& LogCapture::lines() const
{
    return captured;
}

int LogCapture::count(const std::string& message) const
{
    int n = 0;
    for (const auto& line : captured)
        n += line.text.ends_with(message);
    return n;
}

}  // namespace testsupport
