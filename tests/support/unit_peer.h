// A stream socket pair for the unit tests: the daemon's end (a client, a device node) and the
// peer's, closed with the object; the peer's end never blocks.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <vector>

namespace testsupport {

struct UnitPeer {
    int daemon = -1, peer = -1;
    explicit UnitPeer(int daemon_flags = 0)
    {
        int fd[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, fd) != 0)
            return;
        daemon = fd[0];
        peer = fd[1];
        fcntl(daemon, F_SETFL, daemon_flags);
        fcntl(peer, F_SETFL, O_NONBLOCK);
    }
    ~UnitPeer()
    {
        close(daemon);
        close_peer();
    }
    UnitPeer(const UnitPeer&) = delete;
    UnitPeer& operator=(const UnitPeer&) = delete;
    void close_peer()
    {
        if (peer >= 0)
            close(peer);
        peer = -1;
    }
    bool put(const void* data, std::size_t len) const { return write(peer, data, len) == static_cast<ssize_t>(len); }
    // Everything waiting at the peer's end.
    std::vector<uint8_t> drain() const
    {
        std::vector<uint8_t> out;
        uint8_t buf[4096];
        for (ssize_t n; (n = read(peer, buf, sizeof buf)) > 0;)
            out.insert(out.end(), buf, buf + n);
        return out;
    }
};

}  // namespace testsupport
