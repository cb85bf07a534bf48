#include "support/scratch_root.h"

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "common/multi_config.h"

namespace testsupport {

ScratchRoot::ScratchRoot()
{
    path_ = (std::filesystem::temp_directory_path() / "tactord-root-XXXXXX").string();
    if (mkdtemp(path_.data()) == nullptr)
        std::abort();  // no scratch directory: no test can run
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

int ScratchRoot::count_in(const std::string& rel, const std::string& what) const
{
    return count_text(read_file(at(rel)), what);
}

int ScratchRoot::load_port_conf(const std::string& text, const std::string& rel) const
{
    return config_init(write_port_conf(at(rel), text).c_str());
}

std::string read_file(const std::string& path)
{
    std::ostringstream out;
    out << std::ifstream(path, std::ios::binary).rdbuf();
    return out.str();
}

void write_file(const std::string& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

int count_text(const std::string& text, const std::string& what)
{
    int n = 0;
    for (auto p = text.find(what); p != std::string::npos; p = text.find(what, p + 1))
        ++n;
    return n;
}

bool wait_for_file_text(const std::string& path, const std::string& what, int n, std::chrono::milliseconds timeout)
{
    for (auto end = std::chrono::steady_clock::now() + timeout; count_text(read_file(path), what) < n;) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

const char* const kExamplePortConf =
    "    StartSection \"Terminal\"\n        Screen 0\n        InputDevice 5\n        InputDevice 1\n    EndSection\n"
    "    StartSection \"Terminal\"\n        Screen 1\n        InputDevice 2\n    EndSection\n"
    "    StartSection \"Mode\"\n        ScreenNum 2\n    EndSection\n"
    "    StartSection \"Input\"\n        usb-musb-hdrc.1-1.1 1\n        usb-musb-hdrc.1-1.2 2\n"
    "        usb-musb-hdrc.0-1 5\n    EndSection\n";

std::string write_port_conf(const std::string& dir, const std::string& text)
{
    std::filesystem::create_directories(dir);
    write_file(dir + "/port.conf", text);
    return dir + "/port.conf";
}

std::string printed(const std::function<void(std::FILE*)>& fill)
{
    char* text = nullptr;
    std::size_t len = 0;
    std::FILE* out = open_memstream(&text, &len);
    fill(out);
    std::fclose(out);
    std::string s(text);
    std::free(text);
    return s;
}

}  // namespace testsupport
