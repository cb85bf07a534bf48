#include "support/shell.h"

#include <sys/wait.h>

#include <cstdio>

namespace testsupport {

std::pair<std::string, int> run_command(const std::string& command)
{
    std::string out;
    FILE* p = popen((command + " 2>&1").c_str(), "r");
    if (p == nullptr)
        return {"", -1};
    char buf[512];
    while (std::fgets(buf, sizeof buf, p) != nullptr)
        out += buf;
    const int status = pclose(p);
    return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

}  // namespace testsupport
