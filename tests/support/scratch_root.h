// A scratch directory set as $TACTORD_ROOT for the life of the object, with the
// directories the daemon writes into (var/log, var, tmp, proc) already made.
#pragma once

#include <string>

namespace testsupport {

class ScratchRoot {
public:
    ScratchRoot();
    ~ScratchRoot();
    ScratchRoot(const ScratchRoot&) = delete;
    ScratchRoot& operator=(const ScratchRoot&) = delete;

    const std::string& path() const { return path_; }
    // path() + rel, rel starting with '/'.
    std::string at(const std::string& rel) const { return path_ + rel; }

private:
    std::string path_;
};

// Whole contents of a file, empty when it cannot be read.
std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& text);

}  // namespace testsupport
