// What the simulated panel shows a person: one line per record, saying which
// device or client it concerns, in which direction, and what it is. Every
// line is also kept, so that a script can wait for one to appear.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace emul {

class Transcript {
public:
    explicit Transcript(std::FILE* out) : out_(out) {}

    // Arrows: ">>" into a device (played by the simulation), "<<" received
    // by a display client or written to a device by the daemon, "--" a note.
    void line(const std::string& source, const char* arrow, const std::string& text);
    // Number of lines so far: pass it to wait_for to look at later lines only.
    std::size_t mark() const;
    // Waits until a line of source whose text contains what appears at or
    // after since.
    bool wait_for(const std::string& source, const std::string& what, std::size_t since,
                  std::chrono::milliseconds timeout);
    // The texts of source's lines at or after since that keep accepts,
    // waiting up to timeout until there are at least n of them.
    std::vector<std::string> lines_of(const std::string& source, std::size_t since,
                                      const std::function<bool(const std::string&)>& keep, std::size_t n,
                                      std::chrono::milliseconds timeout);
    // Waits until no line has come for quiet (at most max): counted from the
    // call, or with since_call false from the last line, when what is awaited
    // has come already.
    void settle(std::chrono::milliseconds quiet, std::chrono::milliseconds max, bool since_call = true);

    // While the prompt is shown, a line printed from another thread would
    // break the one being typed: held, lines are kept back and a byte is
    // written to wake_fd, so that the thread owning the terminal prints them
    // (take_held) around the prompt. Released, they print as they come.
    void hold(int wake_fd);
    void release();
    std::string take_held();

private:
    struct Line {
        std::string source;
        std::string text;
    };
    std::FILE* out_;
    mutable std::mutex mutex_;  // guards lines_, last_, wake_fd_ and held_
    std::condition_variable changed_;
    std::vector<Line> lines_;
    int wake_fd_ = -1;  // while held
    std::string held_;
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

}  // namespace emul
