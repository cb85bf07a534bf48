// A scratch directory set as $TACTORD_ROOT for the life of the object, with var/log, tmp and proc
// made; file helpers.
#pragma once

#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

namespace testsupport {

// The reference seat file: screen 0 has the main touchscreen port (seat 5) and seat 1, screen 1
// has seat 2.
extern const char* const kExamplePortConf;

class ScratchRoot {
public:
    ScratchRoot();
    ~ScratchRoot();
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    const std::string& path() const { return path_; }
    std::string at(const std::string& rel) const { return path_ + rel; }  // rel starts with '/'
    int count_in(const std::string& rel, const std::string& what) const;     // in the file at rel
    // Writes text as port.conf in the directory at rel and loads it; config_init's result.
    int load_port_conf(const std::string& text = kExamplePortConf, const std::string& rel = "") const;

private:
    std::string path_;
};

std::string read_file(const std::string& path);  // empty when unreadable
void write_file(const std::string& path, const std::string& text);
int count_text(const std::string& text, const std::string& what);
// Polls until the file holds what at least n times.
bool wait_for_file_text(const std::string& path, const std::string& what, int n = 1,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10));

// Writes text as dir/port.conf, making dir; returns the file's path.
std::string write_port_conf(const std::string& dir, const std::string& text = kExamplePortConf);
// What fill wrote to a stream.
std::string printed(const std::function<void(std::FILE*)>& fill);

}  // namespace testsupport
