// Shell commands run by tests (installs, tools, a daemon run to its end).
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>
#include <utility>

namespace testsupport {

// Output (both streams) and exit status of command run by /bin/sh; status -1 when it did not exit normally.
inline std::pair<std::string, int> run_command(const std::string& command)
{
    std::string out;
    FILE* p = popen((command + " 2>&1").c_str(), "r");
    char buf[512];
    while (p != nullptr && std::fgets(buf, sizeof buf, p) != nullptr)
        out += buf;
    const int status = p != nullptr ? pclose(p) : -1;
    return {out, status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

}  // namespace testsupport
