#include "support/scratch_root.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace testsupport {

ScratchRoot::ScratchRoot()
{
    std::string tmpl = (std::filesystem::temp_directory_path() / "tactord-root-XXXXXX").string();
    if (mkdtemp(tmpl.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    path_ = tmpl;
    for (const char* dir : {"/var/log", "/tmp", "/proc"})
        std::filesystem::create_directories(path_ + dir);
    setenv("TACTORD_ROOT", path_.c_str(), 1);
}

ScratchRoot::~ScratchRoot()
{
    unsetenv("TACTORD_ROOT");
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

std::string read_file(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

void write_file(const std::string& path, const std::string& text)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
}

}  // namespace testsupport
