// Collects the daemon's log lines for the life of the object: the logger is
// put into syslog mode with its syslog sink replaced, so every line that
// passes the threshold lands here with its priority and its prefix. Lines
// may come from any thread.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace testsupport {

struct LogLine {
    int priority;
    std::string text;  // the finished line, "[TACTORD] func:line " included
};

class LogCapture {
public:
    explicit LogCapture(int threshold = 3);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // A copy of the lines so far.
    std::vector<LogLine> lines() const;
    // Number of lines that end with message.
    int count(const std::string& message) const;
    bool has(const std::string& message) const { return count(message) > 0; }
    // Waits until at least times lines end with message.
    bool wait_for(const std::string& message, int times = 1,
                  std::chrono::milliseconds timeout = std::chrono::seconds(3)) const;

private:
    int saved_level_;
    int saved_place_;
    void (*saved_sink_)(int, const char*);
};

}  // namespace testsupport
