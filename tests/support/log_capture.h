// The daemon's log lines (priority and finished text, "[TACTORD] func:line " included) for the
// life of the object: the logger writes to a replaced syslog sink, from any thread.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace testsupport {

struct LogLine {
    int priority;
    std::string text;
};

class LogCapture {
public:
    explicit LogCapture(int threshold = 3);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // Lines that end with message (so far, or waited for up to timeout).
    int count(const std::string& message) const;
    bool has(const std::string& message) const { return count(message) > 0; }
    bool wait_for(const std::string& message, int times = 1,
                  std::chrono::milliseconds timeout = std::chrono::seconds(3)) const;

private:
    int saved_level_, saved_place_;
    void (*saved_sink_)(int, const char*);
};

}  // namespace testsupport
