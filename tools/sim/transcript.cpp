#include "sim/transcript.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace emul {

void Transcript::line(const std::string& source, const char* arrow, const std::string& text)
{
    char head[64];
    std::snprintf(head, sizeof head, "%-12s %s ", source.c_str(), arrow);
    const std::string printed = head + text + "\n";
    std::lock_guard<std::mutex> guard(mutex_);
    if (wake_fd_ >= 0) {
        if (held_.empty() && write(wake_fd_, "", 1) < 0) {
            // A full pipe already wakes the terminal's owner.
        }
        held_ += printed;
    } else {
        std::fputs(printed.c_str(), out_);
        std::fflush(out_);
    }
    lines_.push_back({source, text});
    last_ = std::chrono::steady_clock::now();
    changed_.notify_all();
}

std::size_t Transcript::mark() const
{
    std::lock_guard<std::mutex> guard(mutex_);
    return lines_.size();
}

bool Transcript::wait_for(const std::string& source, const std::string& what, std::size_t since,
                          std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(mutex_);
    std::size_t next = since;
    return changed_.wait_for(lock, timeout, [&] {
        for (; next < lines_.size(); ++next)
            if (lines_[next].source == source && lines_[next].text.find(what) != std::string::npos)
                return true;
        return false;
    });
}

std::vector<std::string> Transcript::lines_of(const std::string& source, std::size_t since,
                                              const std::function<bool(const std::string&)>& keep, std::size_t n,
                                              std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(mutex_);
    std::vector<std::string> found;
    std::size_t next = since;
    changed_.wait_for(lock, timeout, [&] {
        for (; next < lines_.size(); ++next)
            if (lines_[next].source == source && keep(lines_[next].text))
                found.push_back(lines_[next].text);
        return found.size() >= n;
    });
    return found;
}

void Transcript::hold(int wake_fd)
{
    std::lock_guard<std::mutex> guard(mutex_);
    wake_fd_ = wake_fd;
}

void Transcript::release()
{
    std::lock_guard<std::mutex> guard(mutex_);
    wake_fd_ = -1;
    std::fputs(held_.c_str(), out_);
    std::fflush(out_);
    held_.clear();
}

std::string Transcript::take_held()
{
    std::lock_guard<std::mutex> guard(mutex_);
    return std::exchange(held_, {});
}

void Transcript::settle(std::chrono::milliseconds quiet, std::chrono::milliseconds max, bool since_call)
{
    const auto start = std::chrono::steady_clock::now();
    const auto deadline = start + max;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        // After an action, quiet since the call or since the last line,
        // whichever is later: what an action causes arrives after it.
        const auto quiet_until = (since_call ? std::max(last_, start) : last_) + quiet;
        if (now >= quiet_until || now >= deadline)
            return;
        changed_.wait_until(lock, std::min(quiet_until, deadline));
    }
}

}  // namespace emul
