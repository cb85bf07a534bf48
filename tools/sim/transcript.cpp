#include "sim/transcript.h"

#include <algorithm>

namespace emul {

void Transcript::line(const std::string& source, const char* arrow, const std::string& text)
{
    std::lock_guard<std::mutex> guard(mutex_);
    std::fprintf(out_, "%-12s %s %s\n", source.c_str(), arrow, text.c_str());
    std::fflush(out_);
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

void Transcript::settle(std::chrono::milliseconds quiet, std::chrono::milliseconds max)
{
    const auto start = std::chrono::steady_clock::now();
    const auto deadline = start + max;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        const auto now = std::chrono::steady_clock::now();
        // Quiet since the call or since the last line, whichever is later:
        // what an action causes arrives after it.
        const auto quiet_until = std::max(last_, start) + quiet;
        if (now >= quiet_until || now >= deadline)
            return;
        changed_.wait_until(lock, std::min(quiet_until, deadline));
    }
}

}  // namespace emul
