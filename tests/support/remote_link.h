// The remote-screen and INDP links under test: a private network namespace
// with the links' production addresses, a fake TCP peer (the agent or the
// INDP screen), and a fixture that runs the main loop on a thread of its own.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/log_capture.h"

namespace testsupport {

using namespace std::chrono_literals;
using Bytes = std::vector<uint8_t>;
using Words = std::vector<uint32_t>;

// Puts the calling thread, and what it starts from now on, into a network
// namespace of its own: loopback up with 173.0.0.2, .3 (the links' local end)
// and .5. Empty on success, else why not (the test skips then).
std::string enter_private_net();

// Agent frames: header and payload words, or header and text.
Bytes agent_frame(uint32_t type, const Words& payload = {});
Bytes agent_text_frame(uint32_t type, const std::string& text);
// Exactly n bytes read from the stream socket fd, or none in time.
Bytes read_exactly(int fd, std::size_t n, std::chrono::milliseconds timeout);

// A TCP peer listening on addr:port.
class FakePeer {
public:
    FakePeer(const char* addr, int port);
    ~FakePeer();
    FakePeer(const FakePeer&) = delete;
    FakePeer& operator=(const FakePeer&) = delete;

    // Takes the next connection, dropping the previous one.
    bool accept(std::chrono::milliseconds timeout = 3s);
    // The next frame as words; ticks are counted (answered while answer_ticks)
    // and skipped unless with_ticks. Empty on time-out (the stream may then be
    // out of step) or at the end.
    Words frame(std::chrono::milliseconds timeout = 3s, bool with_ticks = false);
    Bytes bytes(std::size_t n, std::chrono::milliseconds timeout = 3s) { return read_exactly(conn_fd_, n, timeout); }
    bool send(const Bytes& data);
    // Bytes the daemon sent until it closed the link; -1 if it kept it.
    int bytes_until_closed(std::chrono::milliseconds timeout);
    void hang_up();
    // Drops the connection with a reset instead of an orderly close.
    void reset();
    std::string peer_address() const;

    bool answer_ticks = false;
    int ticks = 0;

private:
    int listen_fd_ = -1;
    int conn_fd_ = -1;
};

// Waits until pred holds.
bool eventually(const std::function<bool()>& pred, std::chrono::milliseconds timeout = 3s);

// Fixture of the link tests: the namespace, every log line, the main loop
// running and woken by each new descriptor, link time as in the daemon until
// a test divides it; the link threads stopped and every state reset after.
class RemoteLinkTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    std::unique_ptr<LogCapture> log_;

private:
    std::thread loop_;
    std::atomic<bool> loop_stop_{false};
    int wake_[2] = {-1, -1};
};

}  // namespace testsupport
